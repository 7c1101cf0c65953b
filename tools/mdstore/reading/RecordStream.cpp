#include "reading/RecordStream.h"

#include <cstdio>

#include "reading/TextEscape.h"

bool DatedSink::Record(const mdj::SegmentFile&, const mdj::RecordView& record) {
    anchors_.Note(record);
    long long utcMs = 0;
    const bool dated = anchors_.RecordUtc(record, utcMs);
    if (options_.Keeps(record, dated ? &utcMs : nullptr)) {
        Take(record, dated ? &utcMs : nullptr);
    }
    return true;
}

void DatedSink::Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                        std::size_t length) {
    std::fflush(stdout);
    ReportTrouble(file, problem, offset, length);
}

void ReportTrouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                   std::size_t length) {
    std::fprintf(stderr, "mdstore: %s: %s at offset %zu (%zu bytes)\n",
                 textout::Printable(file.path).c_str(), mdj::ProblemName(problem), offset, length);
}

int Unreadable(const std::string& path) {
    std::fprintf(stderr, "mdstore: no metadata files at %s\n", textout::Printable(path).c_str());
    return 2;
}
