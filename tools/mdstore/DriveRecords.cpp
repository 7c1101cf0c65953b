#include "DriveRecords.h"

#include "BigEndian.h"
#include "JournalReader.h"
#include "PlatformTypes.h"
#include "RecordPrinter.h"
#include "RecordSchema.h"

namespace {

// The report operations, without the process's own "started" mark. Anything numbered outside
// them (snapshots, start-up, types added later) and the store's own time anchors are not part of
// a drive.
bool OfTheDrive(const mdj::RecordView& record) {
    if (record.op < mdj::kOpReportStringData || record.op >= mdj::kOpCount ||
        record.op == mdj::kOpTimeAnchor) {
        return false;
    }
    return record.op != mdj::kOpReportStateData || record.size < 4 ||
           mdj::GetBe32(record.body) != e_Tag_ProcessStarted;
}

class Collector : public mdj::JournalSink {
public:
    Collector(std::vector<DriveRecord>& records, int& runs) : records_(records), runs_(runs) {}

    bool Record(const mdj::SegmentFile& /*file*/, const mdj::RecordView& record) override {
        ++count_;
        runs_ += record.op == mdj::kOpReportShutdownDataAtStartup ? 1 : 0;
        if (!OfTheDrive(record)) {
            return true;
        }
        DriveRecord kept;
        kept.op = record.op;
        kept.stamp = record.stamp;
        kept.body.assign(record.body, record.body + record.size);
        kept.number = count_;
        records_.push_back(kept);
        return true;
    }
    void Trouble(const mdj::SegmentFile& /*file*/, mdj::Problem /*problem*/, std::size_t /*offset*/,
                 std::size_t /*length*/) override {}

private:
    std::vector<DriveRecord>& records_;
    int& runs_;
    std::size_t count_ = 0;
};

}  // namespace
mdj::RecordView DriveRecord::View() const {
    mdj::RecordView view;
    view.op = op;
    view.stamp = stamp;
    view.body = body.data();
    view.size = static_cast<std::uint32_t>(body.size());
    return view;
}

std::string DriveRecord::Text() const {
    std::string text;
    RecordText(View(), nullptr, text);
    return text;
}

bool ReadDrive(const std::string& path, std::vector<DriveRecord>& records, int& runs,
               std::string& error) {
    records.clear();
    runs = 0;
    Collector collector(records, runs);
    if (!mdj::ReadJournal(path, collector)) {
        error = "nothing readable at " + path;
        return false;
    }
    return true;
}

bool DriveReader::Open(const std::string& path) {
    return mdj::ResolveJournal(path, files_);
}

// As mdj::ReadJournal reads them: every segment in turn, whatever its header says, each record
// that decodes as its type.
bool DriveReader::Next(DriveRecord& record) {
    for (;;) {
        while (scanner_ != nullptr) {
            const mdj::SegmentScanner::Event event = scanner_->Next();
            if (event.kind == mdj::SegmentScanner::kEnd) {
                scanner_.reset();
            } else if (event.kind == mdj::SegmentScanner::kRecord &&
                       mdj::WalkRecord(event.record.op, event.record.body, event.record.size,
                                       nullptr)) {
                ++count_;
                runs_ += event.record.op == mdj::kOpReportShutdownDataAtStartup ? 1 : 0;
                if (OfTheDrive(event.record)) {
                    record.op = event.record.op;
                    record.stamp = event.record.stamp;
                    record.body.assign(event.record.body, event.record.body + event.record.size);
                    record.number = count_;
                    return true;
                }
            }
        }
        if (segment_ == files_.segments.size()) {
            data_.clear();
            data_.shrink_to_fit();
            return false;
        }
        if (window_.Open(files_.segments[segment_++].path)) {
            scanner_.reset(new mdj::SegmentScanner(window_));
        }
    }
}
