#include "reading/DriveRecords.h"

#include "BigEndian.h"
#include "JournalReader.h"
#include "PlatformTypes.h"
#include "RecordSchema.h"
#include "reading/RecordPrinter.h"

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
