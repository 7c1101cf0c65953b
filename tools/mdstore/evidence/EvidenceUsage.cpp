#include "Verbs.h"

const char* const kPackageUsage =
    "Usage: mdstore package [--from T] [--to T] [--since TIME] [--until TIME] [--kind OP]...\n"
    "                       --key KEY.pem -o DIR STORE\n"
    "Writes the records of a range of STORE (see copy) into the new directory DIR as an\n"
    "evidence package, with proof that nothing in it is changed afterwards:\n"
    "  drive.mdj       the range as copy writes it (a metadata file every verb reads)\n"
    "  drive.mcap, drive.gpx, drive.csv, drive.html\n"
    "                  made from drive.mdj by export and report\n"
    "  manifest.json   the source store's identity and segments, the range asked for and the\n"
    "                  range held (ticks and UTC), records per kind, the unit's serial and unit\n"
    "                  number where known, the tool's version, when the package was made, and\n"
    "                  each file's name, size and SHA-256\n"
    "  SHA256SUMS      every file but itself and the signature, as sha256sum -c checks it\n"
    "  SHA256SUMS.sig  the Ed25519 signature of SHA256SUMS with KEY.pem (mdstore keygen)\n"
    "DIR is written under a temporary name beside it and renamed into place when complete; a\n"
    "package that cannot be completed leaves nothing behind. An existing DIR is never\n"
    "overwritten. The receiver checks it as docs/evidence.md says, or with check-package.\n"
    "Exit status: 0 made, 2 when it cannot be made (nothing written), 1 on usage errors.\n";

const char* const kKeygenUsage =
    "Usage: mdstore keygen -o NAME\n"
    "Makes an Ed25519 key pair as PEM files the openssl command reads: NAME.pem, the private\n"
    "key (PKCS#8, mode 0600) that signs packages, and NAME.pub.pem, the public key to give to\n"
    "the receivers. Neither file may exist already.\n"
    "Exit status: 0 made, 2 when a file exists or cannot be written, 1 on usage errors.\n";

const char* const kCheckPackageUsage =
    "Usage: mdstore check-package --pubkey NAME.pub.pem DIR\n"
    "Checks the evidence package DIR: that SHA256SUMS.sig is the signature of SHA256SUMS by\n"
    "the key NAME.pub.pem, that DIR holds exactly the files SHA256SUMS lists, each with its\n"
    "SHA-256, and that the copy drive.mdj, read through, holds the range and the records per\n"
    "kind the manifest says. Prints the range, its time (UTC) and the records.\n"
    "Exit status: 0 when everything matches, 2 with one line naming what does not (a file\n"
    "changed, missing or added, a manifest that does not match the copy, another key), 1 on\n"
    "usage errors.\n";
