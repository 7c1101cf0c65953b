// Reading a store for the verbs that print records (cat, export): every record is dated by
// the anchors before it and filtered by the verb's options before the verb sees it.
#pragma once

#include <string>
#include <vector>

#include "JournalReader.h"
#include "Options.h"
#include "TimeAnchors.h"

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

// A copy of a record a verb keeps back to handle later (the reader's buffer moves on).
struct HeldRecord {
    explicit HeldRecord(const mdj::RecordView& record)
        : op(record.op), stamp(record.stamp), body(record.body, record.body + record.size) {}
    mdj::RecordView View() const {
        mdj::RecordView record;
        record.op = op;
        record.stamp = stamp;
        record.body = body.data();
        record.size = static_cast<std::uint32_t>(body.size());
        return record;
    }

    std::uint8_t op;
    std::uint32_t stamp;
    std::vector<unsigned char> body;
};

void ReportTrouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                   std::size_t length);
// "no metadata files at PATH"; returns 2.
int Unreadable(const std::string& path);
