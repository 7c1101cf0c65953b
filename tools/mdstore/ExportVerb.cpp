// mdstore export: the GPS track and bookmarks as GPX or GeoJSON, or every record as CSV.
#include <cstdio>
#include <string>
#include <vector>

#include "RecordMeaning.h"
#include "RecordPrinter.h"
#include "RecordStream.h"
#include "TextEscape.h"
#include "Verbs.h"

namespace {

struct Point {
    meaning::Position position;
    bool dated = false;
    long long utcMs = 0;
    std::uint32_t tick = 0;
};

std::string Number(double value, const char* format = "%.6f") {
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// A text cell. RFC 4180: a cell with a comma, quote or line break is quoted, quotes doubled.
// A spreadsheet takes a cell that starts with =, +, - or @ (or a tab or carriage return, which
// it strips before one) for a formula, and runs it: such a cell gets a leading ' and reads as
// the text it is. Numbers never come through here and stay numbers.
std::string CsvField(const std::string& text) {
    const bool formula =
        !text.empty() && std::string("=+-@\t\r").find(text[0]) != std::string::npos;
    const std::string cell = formula ? "'" + text : text;
    if (cell.find_first_of(",\"\r\n") == std::string::npos) {
        return cell;
    }
    std::string quoted = "\"";
    for (char c : cell) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

std::string XmlText(const std::string& text) {
    return textout::Xml(text);
}

class ExportSink : public DatedSink {
public:
    explicit ExportSink(const Options& options) : DatedSink(options) {}
    std::vector<Point> fixes;
    std::vector<Point> bookmarks;  // at the last fix before them
    std::string csv;

protected:
    void Take(const mdj::RecordView& record, const long long* utcMs) override {
        Point point;
        point.dated = utcMs != nullptr;
        point.utcMs = utcMs != nullptr ? *utcMs : 0;
        point.tick = mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (meaning::GpsPosition(record, point.position)) {
            fixes.push_back(point);
        } else if (record.op == mdj::kOpReportBookmark && !fixes.empty()) {
            point.position = fixes.back().position;
            bookmarks.push_back(point);
        }
        if (options_.format == "csv") {
            AddCsvRow(record, point);
        }
    }

private:
    void AddCsvRow(const mdj::RecordView& record, const Point& point) {
        std::string fields;
        RecordText(record, nullptr, fields);
        fields.erase(0, fields.find(' ') + 1);  // the at and the name have columns of their own
        const std::size_t args = fields.find(' ');
        fields = args == std::string::npos ? std::string() : fields.substr(args + 1);
        const bool fix = record.op == mdj::kOpReportGps;
        csv += std::to_string(record.stamp) + ',' + std::to_string(point.tick) + ',' +
               (point.dated ? timeanchor::FormatUtc(point.utcMs) : std::string()) + ',' +
               mdj::OpName(record.op) + ',' + CsvField(meaning::Phrase(record)) + ',' +
               (fix ? Number(point.position.latitude) : std::string()) + ',' +
               (fix ? Number(point.position.longitude) : std::string()) + ',' + CsvField(fields) +
               "\r\n";
    }
};

std::string Gpx(const ExportSink& sink, const std::string& name) {
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<gpx version=\"1.1\" creator=\"mdstore\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n";
    const auto attributes = [](const Point& p) {
        return "lat=\"" + Number(p.position.latitude) + "\" lon=\"" + Number(p.position.longitude) +
               "\"";
    };
    const auto time = [](const Point& p) {
        return p.dated ? "<time>" + timeanchor::FormatUtc(p.utcMs) + "</time>" : std::string();
    };
    for (const Point& bookmark : sink.bookmarks) {
        out += "  <wpt " + attributes(bookmark) + ">" + time(bookmark) + "<name>bookmark " +
               std::to_string(bookmark.tick) + "</name></wpt>\n";
    }
    out += "  <trk><name>" + XmlText(name) + "</name><trkseg>\n";
    for (const Point& fix : sink.fixes) {
        out += "    <trkpt " + attributes(fix) + "><ele>" + std::to_string(fix.position.altitude) +
               "</ele>" + time(fix) + "</trkpt>\n";
    }
    return out + "  </trkseg></trk>\n</gpx>\n";
}

std::string GeoJson(const ExportSink& sink, const std::string& name) {
    const auto coordinates = [](const Point& p) {
        return "[" + Number(p.position.longitude) + "," + Number(p.position.latitude) + "]";
    };
    const auto time = [](const Point& p) {
        return p.dated ? "\"" + timeanchor::FormatUtc(p.utcMs) + "\"" : std::string("null");
    };
    std::string out = "{\"type\":\"FeatureCollection\",\"features\":[";
    std::string line;
    std::string times;
    for (const Point& fix : sink.fixes) {
        line += (line.empty() ? "" : ",") + coordinates(fix);
        times += (times.empty() ? "" : ",") + time(fix);
    }
    std::string quotedName;
    AppendJsonString(quotedName, name.data(), name.size());
    bool first = true;
    if (!sink.fixes.empty()) {
        out += "{\"type\":\"Feature\",\"geometry\":{\"type\":";
        out += sink.fixes.size() == 1 ? "\"Point\",\"coordinates\":" + line
                                      : "\"LineString\",\"coordinates\":[" + line + "]";
        out += "},\"properties\":{\"name\":" + quotedName + ",\"times\":[" + times + "]}}";
        first = false;
    }
    for (const Point& bookmark : sink.bookmarks) {
        out += std::string(first ? "" : ",") +
               "{\"type\":\"Feature\",\"geometry\":{\"type\":\"Point\",\"coordinates\":" +
               coordinates(bookmark) +
               "},\"properties\":{\"name\":\"bookmark\",\"tick\":" + std::to_string(bookmark.tick) +
               ",\"utc\":" + time(bookmark) + "}}";
        first = false;
    }
    return out + "]}\n";
}

}  // namespace

int ExportVerb(int argc, char** argv) {
    Options options;
    const int early =
        ParseOptions(argc, argv, kOptRange | kOptKind | kOptExport, 1, kExportUsage, options);
    if (early >= 0) {
        return early;
    }
    if (options.format.empty()) {
        return UsageError(argv[0], "needs --format gpx, geojson or csv");
    }
    ExportSink sink(options);
    if (options.format == "csv") {
        sink.csv = "at,tick,utc,op,meaning,latitude,longitude,fields\r\n";
    }
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        return Unreadable(options.paths[0]);
    }
    const std::string text = options.format == "gpx"       ? Gpx(sink, options.paths[0])
                             : options.format == "geojson" ? GeoJson(sink, options.paths[0])
                                                           : sink.csv;
    const bool toStdout = options.output == "-";
    std::FILE* out = toStdout ? stdout : std::fopen(options.output.c_str(), "wb");
    if (out == nullptr) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", options.output.c_str());
        return 2;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), out) == text.size();
    const bool closed = toStdout ? std::fflush(out) == 0 : std::fclose(out) == 0;
    return written && closed ? 0 : 2;
}
