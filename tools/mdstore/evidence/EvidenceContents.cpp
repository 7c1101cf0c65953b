#include "evidence/EvidenceContents.h"

#include <fcntl.h>
#include <unistd.h>

#include "BigEndian.h"
#include "JournalReader.h"
#include "RecordSchema.h"
#include "StoreScan.h"
#include "reading/RecordFields.h"
#include "reading/TimeAnchors.h"

namespace evidence {

namespace {

class ContentsSink : public mdj::JournalSink {
public:
    explicit ContentsSink(Contents& out) : out_(out) {}

    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        anchors_.Note(record);
        ++out_.records;
        ++out_.perKind[mdj::OpName(record.op)];
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (time != 0xFFFFFFFFu) {
            out_.firstTick = time < out_.firstTick ? time : out_.firstTick;
            out_.lastTick = time > out_.lastTick ? time : out_.lastTick;
            out_.anyTick = true;
        }
        long long utcMs = 0;
        if (anchors_.RecordUtc(record, utcMs)) {
            out_.firstUtc = out_.anyUtc && out_.firstUtc < utcMs ? out_.firstUtc : utcMs;
            out_.lastUtc = out_.anyUtc && out_.lastUtc > utcMs ? out_.lastUtc : utcMs;
            out_.anyUtc = true;
        }
        if (record.op == mdj::kOpWriteFullState) {
            NoteSnapshot(record);
        } else {
            NoteUnit(record);
        }
        return true;
    }
    void Trouble(const mdj::SegmentFile&, mdj::Problem, std::size_t, std::size_t) override {
        ++out_.problems;
    }

private:
    // The unit's identity as the latest serial and system information records give it.
    void NoteUnit(const mdj::RecordView& record) {
        if (record.op != mdj::kOpReportSystemSerialNum && record.op != mdj::kOpReportSystemInfo) {
            return;
        }
        meaning::RecordFields fields;
        if (!fields.Read(record)) {
            return;
        }
        if (record.op == mdj::kOpReportSystemSerialNum) {
            out_.serial = fields.Text("serial");
        } else {
            out_.unitNumber = fields.Text("item.unitNumber");
        }
    }

    // A snapshot (force, cause, count, then type/length/body entries) holds the state records
    // as of its place, the serial and system information among them.
    void NoteSnapshot(const mdj::RecordView& record) {
        mdj::BodyReader in(record.body, record.size);
        std::uint8_t force = 0;
        std::uint8_t cause = 0;
        std::uint16_t count = 0;
        if (!in.U8(force) || !in.U8(cause) || !in.U16(count)) {
            return;
        }
        for (unsigned i = 0; i < count; ++i) {
            mdj::RecordView entry;
            std::uint16_t length = 0;
            if (!in.U8(entry.op) || !in.U16(length) || !in.Bytes(entry.body, length)) {
                return;
            }
            entry.size = length;
            entry.stamp = record.stamp;
            NoteUnit(entry);
        }
    }

    Contents& out_;
    timeanchor::TimeAnchors anchors_;
};

// The identity and number in the header of the metadata file at `path`.
bool ReadHeader(const std::string& path, mdj::SegmentHeader& header) {
    const int fd = mdj::OpenRegularFile(path, O_RDONLY);
    if (fd < 0) {
        return false;
    }
    unsigned char bytes[mdj::kSegmentHeaderSize];
    const bool read = ::read(fd, bytes, sizeof bytes) == static_cast<ssize_t>(sizeof bytes);
    close(fd);
    return read && mdj::ParseSegmentHeader(bytes, sizeof bytes, header);
}

}  // namespace

bool ReadContents(const std::string& path, Contents& contents) {
    contents = Contents();
    ContentsSink sink(contents);
    return mdj::ReadJournal(path, sink);
}

bool ReadSource(const std::string& path, Source& source) {
    source = Source();
    source.path = path;
    mdj::JournalFiles files;
    if (!mdj::ResolveJournal(path, files)) {
        return false;
    }
    if (files.store) {
        mdj::StoreListing listing;
        if (!mdj::ScanStore(path, listing)) {
            return false;
        }
        source.identity = listing.identity;
        for (const mdj::SegmentFile& segment : listing.segments) {
            source.segments.push_back(segment.number);
        }
        return true;
    }
    mdj::SegmentHeader header;
    if (files.segments.empty() || !ReadHeader(files.segments[0].path, header)) {
        return false;
    }
    source.identity = header.identity;
    source.segments.push_back(header.number);
    return true;
}

}  // namespace evidence
