// mdstore export: the store for other programs, in one of the formats of the table below. Each
// format writes as the store is read (ExportFormat.h), so memory stays the same whatever the
// store's size.
#include <cstdio>
#include <memory>
#include <string>

#include "Verbs.h"
#include "exports/ExportFormat.h"
#include "exports/McapExport.h"
#include "reading/RecordStream.h"

namespace {

struct FormatEntry {
    const char* name;
    std::unique_ptr<ExportFormat> (*make)();
};

const FormatEntry kFormats[] = {
    {"gpx", GpxExport},
    {"geojson", GeoJsonExport},
    {"csv", CsvExport},
    {"kml", KmlExport},
};

// One reading of the store: every record the options keep, dated and placed, to the format.
class ExportSink : public DatedSink {
public:
    ExportSink(const Options& options, ExportFormat& format, int pass)
        : DatedSink(options), format_(format), pass_(pass) {}

    // Damage is told once, on the first reading.
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        if (pass_ == 0) {
            DatedSink::Trouble(file, problem, offset, length);
        }
    }

protected:
    void Take(const mdj::RecordView& record, const long long* utcMs) override {
        ExportRecord point;
        point.record = &record;
        point.utcMs = utcMs;
        point.tick = mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        point.fix = meaning::GpsPosition(record, point.position);
        if (point.fix) {
            lastFix_ = point.position;
            anyFix_ = true;
        } else if (record.op == mdj::kOpReportBookmark && anyFix_) {
            point.bookmark = true;
            point.position = lastFix_;
        }
        format_.Take(pass_, point);
    }

private:
    ExportFormat& format_;
    const int pass_;
    bool anyFix_ = false;
    meaning::Position lastFix_;
};

}  // namespace

int ExportVerb(int argc, char** argv) {
    Options options;
    const int early =
        ParseOptions(argc, argv, kOptRange | kOptKind | kOptExport, 1, kExportUsage, options);
    if (early >= 0) {
        return early;
    }
    if (options.format == "mcap") {
        return ExportMcap(options);  // reads the store through its own sink: see McapExport.h
    }
    std::unique_ptr<ExportFormat> format;
    for (const FormatEntry& entry : kFormats) {
        format = options.format == entry.name ? entry.make() : std::move(format);
    }
    if (format == nullptr) {
        return UsageError(argv[0], "needs --format gpx, geojson, csv, kml or mcap");
    }
    mdj::JournalFiles files;
    if (!mdj::ResolveJournal(options.paths[0], files)) {
        return Unreadable(options.paths[0]);
    }
    const bool toStdout = options.output == "-";
    std::FILE* out = toStdout ? stdout : std::fopen(options.output.c_str(), "wb");
    if (out == nullptr) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", options.output.c_str());
        return 2;
    }
    format->Begin(out, options);
    bool read = true;
    for (int pass = 0; pass < format->Passes(); ++pass) {
        ExportSink sink(options, *format, pass);
        format->BeginPass(pass);
        read = mdj::ReadJournal(options.paths[0], sink) && read;
        format->EndPass(pass);
    }
    format->End();
    const bool written = std::ferror(out) == 0;
    const bool closed = toStdout ? std::fflush(out) == 0 : std::fclose(out) == 0;
    if (!read) {
        return Unreadable(options.paths[0]);
    }
    return written && closed ? 0 : 2;
}
