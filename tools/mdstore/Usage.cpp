#include "Verbs.h"

const char* const kUsage =
    "Usage: mdstore VERB [OPTIONS] PATH\n"
    "Reads, checks and copies the metadata files of the metadata store.\n"
    "PATH is the store's base path as the process uses it (e.g. /mnt/hd/metadata/metadata,\n"
    "whose segments are PATH.000001.mdj, PATH.000002.mdj, ...) or one metadata file, such as\n"
    "a file made by copy.\n"
    "\n"
    "Verbs:\n"
    "  info PATH                              segments, tick range, records per operation,\n"
    "                                         clean and unclean shutdowns, damage\n"
    "  cat [--json] [--from T] [--to T] PATH  one line per record\n"
    "  copy SRC DEST [--from T] [--to T]      copy the records of a tick range into a new file\n"
    "  verify PATH                            check every byte; exit status 2 on any damage\n"
    "  VERB --help                            help on one verb\n"
    "\n"
    "Ticks (T) are decimal or 0x-prefixed hexadecimal system ticks. A record's tick is its own\n"
    "tick argument when it has a real one (not 0, not 0xFFFFFFFF), else the store's tick when\n"
    "it was written (\"at\"); 0 when the store had no tick yet.\n"
    "Exit status: 0 success, 1 usage error, 2 damage or failure.\n";

const char* const kInfoUsage =
    "Usage: mdstore info PATH\n"
    "Prints the segments (number, bytes, records, tick range), the tick range of the whole\n"
    "store, the number of records of each operation, the start-up records telling whether the\n"
    "run before ended cleanly or not, the shutdown records, and every damaged or torn place.\n"
    "Exit status: 0 when the store was read (damage is listed, see verify), 2 when it cannot\n"
    "be read, 1 on usage errors.\n";

const char* const kCatUsage =
    "Usage: mdstore cat [--json] [--from T] [--to T] PATH\n"
    "Prints one line per record, oldest first; --from and --to keep the records whose tick lies\n"
    "in [from, to] (both ends included).\n"
    "\n"
    "Readable form: AT OP name=value ... (nested fields as item.name=value).\n"
    "\n"
    "--json: one JSON object per line and record, keys in this order:\n"
    "  \"op\"    the store operation's name as the process calls it (\"ReportStateData\",\n"
    "          \"ReportGps\", \"WriteFullState\", ...)\n"
    "  \"at\"    the store's tick when the record was written (4294967295 before any tick)\n"
    "  then every argument of the call under its own name, in call order: \"tick\" is the\n"
    "  operation's own tick, \"flag\" its report flag (true live, false initial value); items\n"
    "  are nested objects with all their fields (\"item\": {\"latDegrees\": ...}); a MAC is an\n"
    "  array of six numbers; numbers are decimal, texts JSON strings (bytes outside printable\n"
    "  ASCII as \\u00XX).\n"
    "  WriteFullState (a snapshot: at every segment start, at open, at the start of a copy and\n"
    "  when the process asks) has \"force\", \"cause\" (\"call\", \"segment\", \"open\", "
    "\"copy\")\n"
    "  and \"state\": an array of the records holding the current values, each an object\n"
    "  with its \"op\" and arguments.\n"
    "  ReportShutdownDataAtStartup has \"previousRunFound\", \"clean\" (the run before ended\n"
    "  with ReportShutdownData) and \"lastTick\" (the \"at\" of its last record).\n"
    "Example:\n"
    "  {\"op\":\"ReportStateData\",\"at\":5000,\"tag\":56,\"flag\":true,\"tick\":4998}\n"
    "\n"
    "Damage is reported on standard error and reading goes on after it. Exit status: 0 when\n"
    "the store was read, 2 when it cannot be read, 1 on usage errors.\n";

const char* const kCopyUsage =
    "Usage: mdstore copy SRC DEST [--from T] [--to T]\n"
    "Copies the records of the store (or file) SRC whose tick lies in [from, to] into the new\n"
    "file DEST, which opens with the full state as of `from` (a WriteFullState record with\n"
    "cause \"copy\"). DEST is a one-segment metadata file that every verb reads. The same\n"
    "code serves the process's metadata-to-file request. --from defaults to 0, --to to\n"
    "4294967295. Progress goes to standard error while a long copy runs.\n"
    "Refused (exit status 2, nothing written) when DEST exists or is a symbolic link, its\n"
    "directory is missing, from > to, or SRC cannot be read. Damage in SRC is skipped and\n"
    "reported.\n";

const char* const kVerifyUsage =
    "Usage: mdstore verify PATH\n"
    "Checks every segment header and record frame (CRC-32C) and that every record decodes as\n"
    "its type, that no segment is missing between the first and the last, and that no bytes\n"
    "follow the last good record. Prints each problem and a summary.\n"
    "Exit status: 0 when all is intact, 2 on any damage or when PATH cannot be read, 1 on\n"
    "usage errors.\n";
