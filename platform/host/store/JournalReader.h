// Reads the records of a store (its base path) or of one copied file, oldest first, and tells
// what is wrong where.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "JournalFormat.h"
#include "SegmentFiles.h"
#include "SegmentWindow.h"
#include "StoreScan.h"

namespace mdj {

enum class Problem {
    kBadHeader,        // segment header damaged or of another version
    kWrongNumber,      // header names another segment than the file name
    kMissingSegments,  // a gap in the numbering between two segments
    kDamage,           // bytes that are no record, with good records after them
    kTorn,             // bytes after the last good record of a segment
    kMalformed,        // a whole frame whose body does not decode as its type
    kUnreadable,       // the file cannot be read (from `offset` on, when it failed part way)
};
const char* ProblemName(Problem problem);

class JournalSink {
public:
    virtual ~JournalSink() = default;
    virtual void BeginSegment(const SegmentFile& file, std::size_t bytes) {
        (void)file;
        (void)bytes;
    }
    // A record whose frame and body check out. Return false to stop reading.
    virtual bool Record(const SegmentFile& file, const RecordView& record) = 0;
    // `offset`/`length` locate the bytes concerned (0 for whole-segment problems).
    virtual void Trouble(const SegmentFile& file, Problem problem, std::size_t offset,
                         std::size_t length) = 0;
    // A file that looks like a segment but is not the store's; it is not read. Not damage.
    virtual void Foreign(const ForeignFile& file) { (void)file; }
};

// What to read for `path`: the store's own segments when it is a base path (`store` true),
// else the file itself (a copied range). False when there is nothing to read.
struct JournalFiles {
    bool store = false;
    std::vector<SegmentFile> segments;
    std::vector<ForeignFile> foreign;
};
bool ResolveJournal(const std::string& path, JournalFiles& files);

// Hands the records `scanner` finds to `sink`, and what is wrong to its Trouble; false when
// the sink asked to stop.
bool ScanRecords(const SegmentFile& file, SegmentScanner& scanner, JournalSink& sink);

// Reads one segment (`store`: it is one of a store's, so its number is checked) through a
// window of `window` bytes held in `data`, and hands it on; false when the sink asked to stop.
bool ReadSegment(const SegmentFile& file, bool store, std::vector<unsigned char>& data,
                 JournalSink& sink, std::size_t window = SegmentWindow::kDefaultBytes);

// False when `path` is neither a store with segments nor a readable file.
bool ReadJournal(const std::string& path, JournalSink& sink);

}  // namespace mdj
