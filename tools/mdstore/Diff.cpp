// mdstore diff: two stores compared as drives, record by record.
#include <algorithm>
#include <cstdio>

#include "DriveRecords.h"
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

void Show(const char* side, const std::vector<DriveRecord>& records, std::size_t index) {
    if (index < records.size()) {
        std::printf("  %s record %zu: %s\n", side, records[index].number,
                    records[index].Text().c_str());
    } else {
        std::printf("  %s (ends after %zu records)\n", side, records.size());
    }
}

}  // namespace

int DiffVerb(const std::vector<std::string>& args) {
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::fputs(kDiffUsage, stdout);
        return 0;
    }
    if (args.size() != 2) {
        std::fputs(kDiffUsage, stderr);
        return 1;
    }
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
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        if (i < a.size() && i < b.size() && a[i] == b[i]) {
            continue;
        }
        if (++differ <= kShown) {
            std::printf("drive record %zu differs:\n", i + 1);
            Show("A", a, i);
            Show("B", b, i);
        }
    }
    if (differ == 0) {
        std::printf("identical\n");
        return 0;
    }
    std::printf("%zu of %zu drive records differ (A has %zu, B %zu)\n", differ,
                std::max(a.size(), b.size()), a.size(), b.size());
    return 1;
}
