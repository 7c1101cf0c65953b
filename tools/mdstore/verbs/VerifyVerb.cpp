// mdstore verify: every segment read through; damage named and the verdict in the exit status.
#include <cstdio>

#include "JournalReader.h"
#include "RecordSchema.h"
#include "Verbs.h"
#include "reading/Options.h"
#include "reading/RecordStream.h"
#include "reading/TextEscape.h"

namespace {

class VerifySink : public mdj::JournalSink {
public:
    void BeginSegment(const mdj::SegmentFile&, std::size_t size) override {
        ++segments;
        bytes += size;
    }
    bool Record(const mdj::SegmentFile&, const mdj::RecordView&) override {
        ++records;
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        ++problems;
        std::printf("DAMAGE %s: %s at offset %zu (%zu bytes)\n",
                    textout::Printable(file.path).c_str(), mdj::ProblemName(problem), offset,
                    length);
    }
    // Not the store's, so not its damage: named, and left out of the verdict.
    void Foreign(const mdj::ForeignFile& file) override {
        std::printf("foreign file %s: %s\n", textout::Printable(file.file.path).c_str(),
                    file.why.c_str());
    }
    unsigned long long segments = 0;
    unsigned long long bytes = 0;
    unsigned long long records = 0;
    unsigned long long problems = 0;
};

}  // namespace

int VerifyVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, 0, 1, kVerifyUsage, options);
    if (early >= 0) {
        return early;
    }
    VerifySink sink;
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        return Unreadable(options.paths[0]);
    }
    if (sink.problems != 0) {
        std::printf("DAMAGED: %llu problems in %llu segments (%llu good records)\n", sink.problems,
                    sink.segments, sink.records);
        return 2;
    }
    std::printf("OK: %llu records in %llu segments, %llu bytes\n", sink.records, sink.segments,
                sink.bytes);
    return 0;
}
