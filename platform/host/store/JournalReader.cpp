#include "JournalReader.h"

#include <vector>

#include "RecordSchema.h"

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

bool ReadJournal(const std::string& path, JournalSink& sink) {
    std::vector<SegmentFile> files;
    if (!ResolveSegments(path, files)) {
        return false;
    }
    const bool store = files.size() > 1 || files[0].path != path;
    std::vector<unsigned char> data;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const SegmentFile& file = files[i];
        if (!ReadWholeFile(file.path, data)) {
            sink.Trouble(file, Problem::kUnreadable, 0, 0);
            continue;
        }
        sink.BeginSegment(file, data.size());
        if (store && i > 0 && file.number != files[i - 1].number + 1) {
            sink.Trouble(file, Problem::kMissingSegments, 0, 0);
        }
        SegmentScanner scanner(data.data(), data.size());
        if (!scanner.HeaderOk() && data.size() >= kSegmentHeaderSize) {
            sink.Trouble(file, Problem::kBadHeader, 0, kSegmentHeaderSize);
        } else if (store && scanner.HeaderOk() && scanner.Segment() != file.number) {
            sink.Trouble(file, Problem::kWrongNumber, 0, kSegmentHeaderSize);
        }
        for (SegmentScanner::Event event = scanner.Next(); event.kind != SegmentScanner::kEnd;
             event = scanner.Next()) {
            switch (event.kind) {
                case SegmentScanner::kRecord:
                    if (!WalkRecord(event.record.op, event.record.body, event.record.size,
                                    nullptr)) {
                        sink.Trouble(file, Problem::kMalformed, event.record.offset,
                                     event.record.frameSize());
                    } else if (!sink.Record(file, event.record)) {
                        return true;
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
    }
    return true;
}

}  // namespace mdj
