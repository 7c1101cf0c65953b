// mdstore diff: two stores compared as drives, record by record.
#include <cstdio>

#include "DriveRecords.h"
#include "Options.h"
#include "Verbs.h"

const char* const kDiffUsage =
    "Usage: mdstore diff A B\n"
    "Compares the drives two stores hold, record by record: operation, values, flags and the\n"
    "records' own ticks. Left out: the store's \"at\" ticks, snapshots, the start-up and shutdown\n"
    "records of each run (previous run, MAC, serial number, versions, configuration, process\n"
    "started) and record types mdstore does not know.\n"
    "Prints \"identical\", or the first differences (at most 10) and how many records differ.\n"
    "Exit status: 0 identical, 1 different or bad usage, 2 a store cannot be read.\n";

namespace {

const std::size_t kShown = 10;

const std::size_t kWindow = 16;

void Show(const char* side, const std::vector<DriveRecord>& records, std::size_t index) {
    std::printf("  %s record %zu: %s\n", side, records[index].number,
                records[index].Text().c_str());
}

// How many records of `x` from `i` on must be skipped for it to go on alike with `y` from
// `j` (two records in a row equal); 0 when none within a few.
std::size_t Resync(const std::vector<DriveRecord>& x, std::size_t i,
                   const std::vector<DriveRecord>& y, std::size_t j) {
    for (std::size_t skip = 1; skip <= kWindow && i + skip < x.size() && j < y.size(); ++skip) {
        if (x[i + skip] == y[j] &&
            (i + skip + 1 >= x.size() || j + 1 >= y.size() || x[i + skip + 1] == y[j + 1])) {
            return skip;
        }
    }
    return 0;
}

}  // namespace

int DiffVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, 0, 2, kDiffUsage, options);
    if (early >= 0) {
        return early;
    }
    const std::vector<std::string>& args = options.paths;
    std::vector<DriveRecord> drives[2];
    for (int i = 0; i < 2; ++i) {
        int runs = 0;
        std::string error;
        if (!ReadDrive(args[i], drives[i], runs, error)) {
            std::fprintf(stderr, "mdstore: %s\n", error.c_str());
            return 2;
        }
    }
    const std::vector<DriveRecord>& a = drives[0];
    const std::vector<DriveRecord>& b = drives[1];
    std::size_t differ = 0;
    for (std::size_t i = 0, j = 0; i < a.size() || j < b.size();) {
        if (i < a.size() && j < b.size() && a[i] == b[j]) {
            ++i;
            ++j;
            continue;
        }
        // A record missing on one side shows as that one record, not as every later one.
        const std::size_t skipA = Resync(a, i, b, j);
        const std::size_t skipB = skipA == 0 ? Resync(b, j, a, i) : 0;
        const bool onlyA = skipA > 0 || j >= b.size();
        const bool onlyB = skipB > 0 || i >= a.size();
        if (++differ <= kShown) {
            std::printf("%s:\n", onlyA ? "only in A" : onlyB ? "only in B" : "records differ");
            if (!onlyB) {
                Show("A", a, i);
            }
            if (!onlyA) {
                Show("B", b, j);
            }
        }
        i += onlyB ? 0 : 1;
        j += onlyA ? 0 : 1;
    }
    if (differ == 0) {
        std::printf("identical\n");
        return 0;
    }
    std::printf("%zu differences (A has %zu drive records, B %zu)\n", differ, a.size(), b.size());
    return 1;
}
