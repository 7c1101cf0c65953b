// mdstore diff: two stores compared as drives, record by record.
#include <cstdio>
#include <deque>
#include <string>

#include "Verbs.h"
#include "reading/DriveRecords.h"
#include "reading/Options.h"

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

void Show(const char* side, const DriveRecord& record) {
    std::printf("  %s record %zu: %s\n", side, record.number, record.Text().c_str());
}

// A drive's records as they are read, with the few after the current one that a resync looks
// at: the drives are compared without holding them.
class Ahead {
public:
    bool Open(const std::string& path) { return reader_.Open(path); }
    // The record `k` places after the current one; null past the end.
    const DriveRecord* At(std::size_t k) {
        while (held_.size() <= k && !ended_) {
            held_.emplace_back();
            if (!reader_.Next(held_.back())) {
                held_.pop_back();
                ended_ = true;
            }
        }
        return k < held_.size() ? &held_[k] : nullptr;
    }
    void Pop() {
        held_.pop_front();
        ++passed_;
    }
    std::size_t Passed() const { return passed_; }

private:
    DriveReader reader_;
    std::deque<DriveRecord> held_;  // (a deque keeps them in place as it grows)
    bool ended_ = false;
    std::size_t passed_ = 0;
};

// How many records of `x` from its current one on must be skipped for it to go on alike with
// `y` (two records in a row equal); 0 when none within a few.
std::size_t Resync(Ahead& x, Ahead& y) {
    for (std::size_t skip = 1; skip <= kWindow && x.At(skip) != nullptr && y.At(0) != nullptr;
         ++skip) {
        const DriveRecord* afterX = x.At(skip + 1);
        const DriveRecord* afterY = y.At(1);
        if (*x.At(skip) == *y.At(0) &&
            (afterX == nullptr || afterY == nullptr || *afterX == *afterY)) {
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
    Ahead drives[2];
    for (int i = 0; i < 2; ++i) {
        if (!drives[i].Open(options.paths[i])) {
            std::fprintf(stderr, "mdstore: nothing readable at %s\n", options.paths[i].c_str());
            return 2;
        }
    }
    Ahead& a = drives[0];
    Ahead& b = drives[1];
    std::size_t differ = 0;
    while (a.At(0) != nullptr || b.At(0) != nullptr) {
        if (a.At(0) != nullptr && b.At(0) != nullptr && *a.At(0) == *b.At(0)) {
            a.Pop();
            b.Pop();
            continue;
        }
        // A record missing on one side shows as that one record, not as every later one.
        const std::size_t skipA = Resync(a, b);
        const std::size_t skipB = skipA == 0 ? Resync(b, a) : 0;
        const bool onlyA = skipA > 0 || b.At(0) == nullptr;
        const bool onlyB = skipB > 0 || a.At(0) == nullptr;
        if (++differ <= kShown) {
            std::printf("%s:\n", onlyA ? "only in A" : onlyB ? "only in B" : "records differ");
            if (!onlyB) {
                Show("A", *a.At(0));
            }
            if (!onlyA) {
                Show("B", *b.At(0));
            }
        }
        if (!onlyB) {
            a.Pop();
        }
        if (!onlyA) {
            b.Pop();
        }
    }
    if (differ == 0) {
        std::printf("identical\n");
        return 0;
    }
    std::printf("%zu differences (A has %zu drive records, B %zu)\n", differ, a.Passed(),
                b.Passed());
    return 1;
}
