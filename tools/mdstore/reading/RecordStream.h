// Reading a store for the verbs that print records (cat, export): every record is dated by
// the anchors before it and filtered by the verb's options before the verb sees it.
#pragma once

#include <string>

#include "JournalReader.h"
#include "reading/Options.h"
#include "reading/TimeAnchors.h"

class DatedSink : public mdj::JournalSink {
public:
    explicit DatedSink(const Options& options) : options_(options) {}
    bool Record(const mdj::SegmentFile& file, const mdj::RecordView& record) override;
    // Damage goes to standard error, after what was printed before it.
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override;

protected:
    // A record the options keep; `utcMs` is its time when an anchor dates it, else null.
    virtual void Take(const mdj::RecordView& record, const long long* utcMs) = 0;

    const Options& options_;
    timeanchor::TimeAnchors anchors_;
};

void ReportTrouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                   std::size_t length);
// "no metadata files at PATH"; returns 2.
int Unreadable(const std::string& path);
