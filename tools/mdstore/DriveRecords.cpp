#include "DriveRecords.h"

#include "BigEndian.h"
#include "JournalReader.h"
#include "PlatformTypes.h"
#include "RecordPrinter.h"
#include "RecordSchema.h"

namespace {

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
    // The report operations, without the process's own "started" mark. Anything numbered
    // outside them (snapshots, start-up, types added later) and the store's own time anchors
    // are not part of a drive.
    static bool OfTheDrive(const mdj::RecordView& record) {
        if (record.op < mdj::kOpReportStringData || record.op >= mdj::kOpCount ||
            record.op == mdj::kOpTimeAnchor) {
            return false;
        }
        return record.op != mdj::kOpReportStateData || record.size < 4 ||
               mdj::GetBe32(record.body) != e_Tag_ProcessStarted;
    }

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
