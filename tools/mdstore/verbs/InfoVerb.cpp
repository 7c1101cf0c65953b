// mdstore info: what a store holds, segment by segment, and what is damaged or foreign in it.
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "JournalReader.h"
#include "RecordSchema.h"
#include "Verbs.h"
#include "reading/Options.h"
#include "reading/RecordStream.h"
#include "reading/TextEscape.h"
#include "reading/TimeAnchors.h"

namespace {

struct SegmentInfo {
    std::string path;
    std::uint32_t number = 0;
    std::size_t bytes = 0;
    unsigned long long records = 0;
    std::uint32_t firstAt = 0xFFFFFFFFu;
    std::uint32_t lastAt = 0xFFFFFFFFu;
};

class InfoSink : public mdj::JournalSink {
public:
    void BeginSegment(const mdj::SegmentFile& file, std::size_t bytes) override {
        SegmentInfo info;
        info.path = file.path;
        info.number = file.number;
        info.bytes = bytes;
        segments.push_back(info);
    }
    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        anchors.Note(record);
        long long utcMs = 0;
        if (anchors.RecordUtc(record, utcMs)) {
            firstUtc = anyUtc && firstUtc < utcMs ? firstUtc : utcMs;
            lastUtc = anyUtc && lastUtc > utcMs ? lastUtc : utcMs;
            anyUtc = true;
        }
        SegmentInfo& segment = segments.back();
        ++segment.records;
        if (segment.records == 1) {
            segment.firstAt = record.stamp;
        }
        segment.lastAt = record.stamp;
        ++perOp[mdj::OpName(record.op)];
        ++records;
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (time != 0xFFFFFFFFu) {
            minTick = time < minTick ? time : minTick;
            maxTick = time > maxTick ? time : maxTick;
            anyTick = true;
        }
        if (record.op == mdj::kOpReportShutdownDataAtStartup && record.size >= 2) {
            if (record.body[0] == 0) {
                ++firstRuns;
            } else if (record.body[1] != 0) {
                ++cleanBefore;
            } else {
                ++uncleanBefore;
            }
        }
        if (record.op == mdj::kOpReportShutdownData) {
            ++shutdowns;
        }
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        char line[512];
        std::snprintf(line, sizeof line, "  %s: %s at offset %zu (%zu bytes)",
                      textout::Printable(file.path).c_str(), mdj::ProblemName(problem), offset,
                      length);
        troubles.push_back(line);
        troubleBytes += length;
    }
    void Foreign(const mdj::ForeignFile& file) override {
        foreign.push_back("  foreign file " + textout::Printable(file.file.path) + ": " + file.why);
    }

    std::vector<SegmentInfo> segments;
    timeanchor::TimeAnchors anchors;
    bool anyUtc = false;
    long long firstUtc = 0;
    long long lastUtc = 0;
    std::map<std::string, unsigned long long> perOp;
    unsigned long long records = 0;
    std::uint32_t minTick = 0xFFFFFFFFu;
    std::uint32_t maxTick = 0;
    bool anyTick = false;
    unsigned long long cleanBefore = 0;
    unsigned long long uncleanBefore = 0;
    unsigned long long firstRuns = 0;
    unsigned long long shutdowns = 0;
    std::vector<std::string> troubles;
    unsigned long long troubleBytes = 0;
    std::vector<std::string> foreign;
};

}  // namespace

int InfoVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, 0, 1, kInfoUsage, options);
    if (early >= 0) {
        return early;
    }
    InfoSink info;
    if (!mdj::ReadJournal(options.paths[0], info)) {
        return Unreadable(options.paths[0]);
    }
    unsigned long long bytes = 0;
    for (const SegmentInfo& segment : info.segments) {
        bytes += segment.bytes;
    }
    std::printf("store: %s\n", textout::Printable(options.paths[0]).c_str());
    std::printf("segments: %zu, %llu bytes\n", info.segments.size(), bytes);
    for (const SegmentInfo& segment : info.segments) {
        std::printf("  %s: %zu bytes, %llu records, at %u..%u\n",
                    textout::Printable(segment.path).c_str(), segment.bytes, segment.records,
                    segment.firstAt, segment.lastAt);
    }
    if (info.anyTick) {
        std::printf("ticks: %u..%u\n", info.minTick, info.maxTick);
    } else {
        std::printf("ticks: none\n");
    }
    if (info.anyUtc) {
        std::printf("time: %s..%s\n", timeanchor::FormatUtc(info.firstUtc).c_str(),
                    timeanchor::FormatUtc(info.lastUtc).c_str());
    } else {
        std::printf("time: unknown (no time anchor)\n");
    }
    std::printf("records: %llu\n", info.records);
    for (const auto& entry : info.perOp) {
        std::printf("  %s: %llu\n", entry.first.c_str(), entry.second);
    }
    std::printf("shutdowns: %llu clean (ReportShutdownData)\n", info.shutdowns);
    std::printf("start-ups: %llu after a clean shutdown, %llu after an unclean one, %llu first\n",
                info.cleanBefore, info.uncleanBefore, info.firstRuns);
    std::printf("damage: %zu places, %llu bytes\n", info.troubles.size(), info.troubleBytes);
    for (const std::string& line : info.troubles) {
        std::printf("%s\n", line.c_str());
    }
    // Files that look like segments but are not the store's: not damage.
    std::printf("foreign files: %zu\n", info.foreign.size());
    for (const std::string& line : info.foreign) {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}
