#include "JournalReader.h"

#include <vector>

#include "RecordSchema.h"
#include "SegmentWindow.h"

namespace mdj {

const char* ProblemName(Problem problem) {
    switch (problem) {
        case Problem::kBadHeader:
            return "damaged segment header";
        case Problem::kWrongNumber:
            return "segment header names another segment";
        case Problem::kMissingSegments:
            return "segments missing before this one";
        case Problem::kDamage:
            return "damaged bytes";
        case Problem::kTorn:
            return "torn or damaged end";
        case Problem::kMalformed:
            return "record does not decode as its type";
        case Problem::kUnreadable:
            return "cannot be read";
    }
    return "unknown problem";
}

bool ResolveJournal(const std::string& path, JournalFiles& files) {
    files = JournalFiles();
    if (IsRegularFile(path)) {
        SegmentFile file;
        file.path = path;
        files.segments.push_back(file);
        return true;
    }
    StoreListing listing;
    if (!ScanStore(path, listing)) {
        return false;
    }
    files.store = true;
    files.segments.swap(listing.segments);
    files.foreign.swap(listing.foreign);
    return !files.segments.empty() || !files.foreign.empty();
}

bool ScanRecords(const SegmentFile& file, SegmentScanner& scanner, JournalSink& sink) {
    for (SegmentScanner::Event event = scanner.Next(); event.kind != SegmentScanner::kEnd;
         event = scanner.Next()) {
        switch (event.kind) {
            case SegmentScanner::kRecord:
                if (!WalkRecord(event.record.op, event.record.body, event.record.size, nullptr)) {
                    sink.Trouble(file, Problem::kMalformed, event.record.offset,
                                 event.record.frameSize());
                } else if (!sink.Record(file, event.record)) {
                    return false;
                }
                break;
            case SegmentScanner::kDamage:
                sink.Trouble(file, Problem::kDamage, event.offset, event.length);
                break;
            case SegmentScanner::kTorn:
                sink.Trouble(file, Problem::kTorn, event.offset, event.length);
                break;
            case SegmentScanner::kEnd:
                break;
        }
    }
    return true;
}

bool ReadSegment(const SegmentFile& file, bool store, std::vector<unsigned char>& data,
                 JournalSink& sink, std::size_t window) {
    SegmentWindow bytes(data, window);
    if (!bytes.Open(file.path)) {
        sink.Trouble(file, Problem::kUnreadable, 0, 0);
        return true;
    }
    sink.BeginSegment(file, bytes.Size());
    SegmentScanner scanner(bytes);
    if (!scanner.HeaderOk() && bytes.Size() >= kSegmentHeaderSize) {
        sink.Trouble(file, Problem::kBadHeader, 0, kSegmentHeaderSize);
    } else if (store && scanner.HeaderOk() && scanner.Segment() != file.number) {
        sink.Trouble(file, Problem::kWrongNumber, 0, kSegmentHeaderSize);
    }
    const bool goOn = ScanRecords(file, scanner, sink);
    if (goOn && bytes.Failed()) {
        // Read up to where reading failed; the rest of the file is unreadable.
        sink.Trouble(file, Problem::kUnreadable, bytes.Size(), 0);
    }
    return goOn;
}

bool ReadJournal(const std::string& path, JournalSink& sink) {
    JournalFiles files;
    if (!ResolveJournal(path, files)) {
        return false;
    }
    for (const ForeignFile& foreign : files.foreign) {
        sink.Foreign(foreign);
    }
    std::vector<unsigned char> data;
    for (const SegmentFile& file : files.segments) {
        if (!ReadSegment(file, files.store, data, sink)) {
            break;
        }
    }
    return true;
}

}  // namespace mdj
