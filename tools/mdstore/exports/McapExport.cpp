// The records of a store as MCAP channels: every record on /metadata/<Op> as cat --json prints
// it, the GPS fixes of the GPX export on /gps/fix (foxglove.LocationFix) and what the records
// mean on /metadata/log (foxglove.Log). Log time is the record's UTC, or its tick where no
// anchor dates it; publish time is always its tick.
#include "exports/McapExport.h"

#include <cstdio>
#include <string>
#include <vector>

#include "ProjectVersion.h"
#include "exports/McapSchemas.h"
#include "exports/McapWriter.h"
#include "reading/DriveRecords.h"
#include "reading/RecordFields.h"
#include "reading/RecordMeaning.h"
#include "reading/RecordPrinter.h"
#include "reading/RecordStream.h"

namespace {

const std::uint64_t kNsPerMs = 1000000;

enum LogLevel { kInfo = 2, kWarning = 3 };

// Readings that come every second or so: they are plots and the map, not the drive's story.
bool IsReading(std::uint8_t op) {
    return op == mdj::kOpReportGps || op == mdj::kOpReportSpeed || op == mdj::kOpReportRadar ||
           op == mdj::kOpReportTemp || op == mdj::kOpTimeAnchor;
}

// What a reader of the drive should not miss: a crash, an unclean start, a lost fix, a camera
// fault, a failed stream.
bool IsWarning(const mdj::RecordView& record) {
    meaning::RecordFields f;
    if (!f.Read(record)) {
        return false;
    }
    switch (record.op) {
        case mdj::kOpReportStateData:
            return f.Number("tag") == 66;  // crash detected
        case mdj::kOpReportShutdownDataAtStartup:
            return f.Number("previousRunFound") != 0 && f.Number("clean") == 0;
        case mdj::kOpReportGpsState:
            return f.Number("valid") == 0;
        case mdj::kOpReportCameraState:
            return f.Number("state") == 4;  // fault
        case mdj::kOpReportVideoStreamState:
            return f.Number("state") == 3;  // error
        default:
            return false;
    }
}

std::string Timestamp(std::uint64_t ns) {
    return "{\"sec\":" + std::to_string(ns / 1000000000u) +
           ",\"nsec\":" + std::to_string(ns % 1000000000u) + "}";
}

std::string Quoted(const std::string& text) {
    std::string out;
    AppendJsonString(out, text.data(), text.size());
    return out;
}

class McapSink : public DatedSink {
public:
    McapSink(const Options& options, mcap::Writer& writer) : DatedSink(options), out_(writer) {}

    void BeginSegment(const mdj::SegmentFile& file, std::size_t) override {
        segment_ = file.path.substr(file.path.rfind('/') + 1);
    }
    bool Record(const mdj::SegmentFile& file, const mdj::RecordView& record) override {
        NoteIdentity(record);
        return DatedSink::Record(file, record);
    }
    // Which time base the log times use and whose store this was, for the file's metadata.
    mcap::StringMap Description() const {
        mcap::StringMap values{
            {"timeBase", undated_ == 0 ? "utc"
                         : dated_ == 0 ? "tick"
                                       : "utc, the tick before the first time anchor"},
            {"recordsAtUtc", std::to_string(dated_)},
            {"recordsAtTick", std::to_string(undated_)},
            {"store", options_.paths[0]},
            {"version", std::string("mdstore ") + PROJECT_VERSION_TEXT}};
        if (!serial_.empty()) {
            values.emplace_back("serial", serial_);
        }
        if (!unit_.empty()) {
            values.emplace_back("unitNumber", unit_);
        }
        return values;
    }

    // Writes what is still held back, when no record of the store had a time.
    void Release() { ReleaseHeld(0); }

protected:
    // A record written before the store had any tick has no time of its own: it takes the
    // time of the record before it, or of the first record with one when it comes first
    // (up to kMaxHeld such records are held back for it).
    void Take(const mdj::RecordView& record, const long long* utcMs) override {
        const std::uint64_t tick =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (utcMs == nullptr && tick == 0) {
            if (!timed_ && held_.size() < kMaxHeld) {
                held_.push_back(
                    {record.op, record.stamp, {record.body, record.body + record.size}});
                return;
            }
            ReleaseHeld(lastLogTime_);  // too many: in order, at the time there is
            Write(record, utcMs, lastLogTime_);
            return;
        }
        const std::uint64_t logTime =
            utcMs != nullptr ? static_cast<std::uint64_t>(*utcMs > 0 ? *utcMs : 0) * kNsPerMs
                             : tick * kNsPerMs;
        ++(utcMs != nullptr ? dated_ : undated_);
        ReleaseHeld(logTime);
        Write(record, utcMs, logTime);
    }

private:
    static const std::size_t kMaxHeld = 4096;

    void ReleaseHeld(std::uint64_t logTime) {
        timed_ = true;
        for (const DriveRecord& held : held_) {
            Write(held.View(), nullptr, logTime);
        }
        held_.clear();
    }
    void Write(const mdj::RecordView& record, const long long* utcMs, std::uint64_t logTime) {
        const std::uint64_t publish =
            kNsPerMs * mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        lastLogTime_ = logTime;
        std::string json;
        RecordJson(record, utcMs, json);
        out_.AddMessage(KindChannel(record.op), logTime, publish, json);
        meaning::Position fix;
        if (meaning::GpsPosition(record, fix)) {
            AddFix(fix, logTime, publish);
        }
        const std::string phrase = IsReading(record.op) ? "" : meaning::Phrase(record);
        if (!phrase.empty()) {
            AddLog(record, phrase, logTime, publish);
        }
    }
    std::uint16_t KindChannel(std::uint8_t op) {
        if (kinds_[op] == 0) {
            const std::string name = mdj::OpName(op);
            const std::uint16_t schema =
                out_.AddSchema("mdstore." + name, "jsonschema", mcapexport::RecordSchemaJson(op));
            kinds_[op] = out_.AddChannel(schema, "/metadata/" + name, "json");
        }
        return kinds_[op];
    }
    void AddFix(const meaning::Position& fix, std::uint64_t logTime, std::uint64_t publish) {
        if (fixes_ == 0) {
            fixes_ = out_.AddChannel(out_.AddSchema("foxglove.LocationFix", "jsonschema",
                                                    mcapexport::LocationFixSchemaJson()),
                                     "/gps/fix", "json");
        }
        char degrees[96];
        std::snprintf(degrees, sizeof degrees, "\"latitude\":%.6f,\"longitude\":%.6f,",
                      fix.latitude, fix.longitude);
        out_.AddMessage(fixes_, logTime, publish,
                        "{\"timestamp\":" + Timestamp(logTime) + ",\"frame_id\":\"gps\"," +
                            degrees + "\"altitude\":" + std::to_string(fix.altitude) +
                            ",\"position_covariance\":[0,0,0,0,0,0,0,0,0],"
                            "\"position_covariance_type\":0}");
    }
    void AddLog(const mdj::RecordView& record, const std::string& phrase, std::uint64_t logTime,
                std::uint64_t publish) {
        if (log_ == 0) {
            log_ = out_.AddChannel(
                out_.AddSchema("foxglove.Log", "jsonschema", mcapexport::LogSchemaJson()),
                "/metadata/log", "json");
        }
        out_.AddMessage(log_, logTime, publish,
                        "{\"timestamp\":" + Timestamp(logTime) +
                            ",\"level\":" + std::to_string(IsWarning(record) ? kWarning : kInfo) +
                            ",\"message\":" + Quoted(phrase) +
                            ",\"name\":" + Quoted(mdj::OpName(record.op)) +
                            ",\"file\":" + Quoted(segment_) + ",\"line\":0}");
    }
    void NoteIdentity(const mdj::RecordView& record) {
        if (record.op != mdj::kOpReportSystemSerialNum && record.op != mdj::kOpReportSystemInfo) {
            return;
        }
        meaning::RecordFields f;
        if (f.Read(record)) {
            std::string& into = record.op == mdj::kOpReportSystemInfo ? unit_ : serial_;
            into = meaning::ValidUtf8(
                f.Text(record.op == mdj::kOpReportSystemInfo ? "item.unitNumber" : "serial"));
        }
    }

    mcap::Writer& out_;
    std::uint16_t kinds_[mdj::kOpCount] = {};
    std::uint16_t fixes_ = 0;
    std::uint16_t log_ = 0;
    std::string segment_;
    std::string serial_;
    std::string unit_;
    std::uint64_t dated_ = 0;
    std::uint64_t undated_ = 0;
    std::uint64_t lastLogTime_ = 0;
    bool timed_ = false;
    std::vector<DriveRecord> held_;  // the records before the first with a time
};

}  // namespace

int ExportMcap(const Options& options) {
    if (options.compression == "zstd" && !mcap::HaveZstd()) {
        return UsageError("export", "this mdstore was built without zstd: --compression none");
    }
    const mcap::Compression compression = options.compression == "none" || !mcap::HaveZstd()
                                              ? mcap::Compression::kNone
                                              : mcap::Compression::kZstd;
    const bool toStdout = options.output == "-";
    std::FILE* out = toStdout ? stdout : std::fopen(options.output.c_str(), "wb");
    if (out == nullptr) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", options.output.c_str());
        return 2;
    }
    mcap::Writer writer(out, compression);
    writer.Open("", std::string("mdstore ") + PROJECT_VERSION_TEXT);
    McapSink sink(options, writer);
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        if (!toStdout) {
            std::fclose(out);
            std::remove(options.output.c_str());
        }
        return Unreadable(options.paths[0]);
    }
    sink.Release();
    const bool written = writer.AddMetadata("mdstore", sink.Description()) && writer.Close();
    const bool closed = toStdout || std::fclose(out) == 0;
    if (!written || !closed) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", options.output.c_str());
        return 2;
    }
    return 0;
}
