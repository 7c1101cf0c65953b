// mdstore traffic: a store turned back into the vehicle's side of the session that made it,
// as a linxpeer capture. Each record is inverted through the handler that writes it: the
// values reported at subscription become the served items, every later record the notice or
// request that produces it, in store order and at its own tick.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "SegmentFiles.h"
#include "Verbs.h"
#include "reading/DriveRecords.h"
#include "reading/Options.h"
#include "traffic/Inverter.h"
#include "traffic/PassRecords.h"

const char* const kTrafficUsage =
    "Usage: mdstore traffic [--draws LOG] STORE [CAPTURE]\n"
    "Turns the drive a store holds back into the traffic that made it, as a linxpeer capture\n"
    "(standard output, or CAPTURE): the state manager's handshake, every server's items with\n"
    "the values reported at subscription, then every change as the notice or request that\n"
    "produces it, in order, at its own tick. Play it with linxpeer --replay CAPTURE against a\n"
    "fresh MetadataMgr (HOST_SYSTICK_FILE set for both, so the process's clock follows the\n"
    "drive). Records no traffic can produce are written as # lines and counted on standard\n"
    "error. A simulated drive (MetadataMgr -s) comes with the simulator's draws log\n"
    "(SIMULATOR_DRAWS_LOG): draws.log in the store's directory, or --draws LOG. With it the\n"
    "simulator's records are left out of the traffic, which drives the process loop pass by\n"
    "loop pass: replay it into MetadataMgr -s (the capture's '# simulator' line says with\n"
    "which options) with SIMULATOR_DRAWS=LOG. Without a log the drive is traffic alone, and\n"
    "the records of a simulator would differ in the replay (said on standard error). The\n"
    "payloads are in this machine's byte order: make the capture where it is replayed.\n"
    "Exit status: 0 written, 1 bad usage, 2 the store cannot be read or holds more than one\n"
    "run, or the draws log is cut short, of another run or not this drive's.\n";

namespace {

// The process runs the store at `path` holds; -1 when nothing there is readable.
int CountRuns(const std::string& path) {
    DriveReader reader;
    if (!reader.Open(path)) {
        return -1;
    }
    DriveRecord record;
    while (reader.Next(record)) {
    }
    return reader.Runs();
}

// The simulator's draws log of the store at `store`: `named`, else the one in the store's
// directory. False when there is none; says so on standard error when none was named.
bool FindDrawsLog(const std::string& store, const std::string& named, std::string& path) {
    path = named.empty() ? mdj::DirectoryOf(store) + "/" + kDrawsLogName : named;
    if (named.empty() && ::access(path.c_str(), F_OK) != 0) {
        std::fprintf(stderr,
                     "mdstore: no simulator draws log at %s: the drive is turned into traffic "
                     "alone; if MetadataMgr simulated it (-s), the simulator's records will "
                     "differ in a replay\n",
                     path.c_str());
        return false;
    }
    return true;
}

// The draws log checked against the store; false (with the reason on standard error) when it
// does not fit.
bool OpenDrawsLog(const std::string& store, const std::string& path, DrawsLog& log) {
    std::string error;
    if (!log.Open(path, error) || !CheckPassRecords(store, log, error)) {
        std::fprintf(stderr, "mdstore: %s\n", error.c_str());
        return false;
    }
    log.Rewind();
    std::fprintf(stderr,
                 "mdstore: a simulated drive of %lu loop passes: replay it into MetadataMgr %s "
                 "with SIMULATOR_DRAWS=%s\n",
                 log.Passes(), log.RadarOnly() ? "-s -r" : "-s", path.c_str());
    return true;
}

}  // namespace

int TrafficVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptDraws, 1, kTrafficUsage, options, 1);
    if (early >= 0) {
        return early;
    }
    // The store is read three times: for its runs, for the passes of the draws log, and for
    // the traffic; each reading holds only the records at hand.
    const std::vector<std::string>& args = options.paths;
    const int runs = CountRuns(args[0]);
    if (runs < 0) {
        std::fprintf(stderr, "mdstore: nothing readable at %s\n", args[0].c_str());
        return 2;
    }
    if (runs > 1) {
        std::fprintf(stderr,
                     "mdstore: %s holds %d runs of the process; copy one out first (mdstore copy "
                     "--from --to)\n",
                     args[0].c_str(), runs);
        return 2;
    }
    DrawsLog log;
    std::string logPath;
    const bool simulated = FindDrawsLog(args[0], options.draws, logPath);
    if (simulated && !OpenDrawsLog(args[0], logPath, log)) {
        return 2;
    }
    std::FILE* out = args.size() == 2 ? std::fopen(args[1].c_str(), "w") : stdout;
    if (out == nullptr) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", args[1].c_str());
        return 2;
    }
    const unsigned int one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    std::fprintf(out, "linxpeer-capture 1 %s\n", first == 1 ? "little" : "big");
    traffic::CaptureWriter writer(out);
    DriveReader reader;
    reader.Open(args[0]);
    RecWindow recs(reader);
    const int lost = traffic::Inverter(recs, simulated ? &log : nullptr, writer).Run();
    if (lost > 0) {
        std::fprintf(stderr, "mdstore: %d records no traffic reproduces exactly (# lines)\n", lost);
    }
    return (out == stdout ? std::fflush(out) : std::fclose(out)) == 0 ? 0 : 2;
}
