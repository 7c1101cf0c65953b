// mdstore export --format csv: one row per record, written as it is read.
#include <string>

#include "exports/ExportFormat.h"
#include "reading/RecordPrinter.h"
#include "reading/TimeAnchors.h"

namespace {

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

class Csv : public ExportFormat {
public:
    void BeginPass(int) override { Write("at,tick,utc,op,meaning,latitude,longitude,fields\r\n"); }

    void Take(int, const ExportRecord& point) override {
        const mdj::RecordView& record = *point.record;
        std::string fields;
        RecordText(record, nullptr, fields);
        fields.erase(0, fields.find(' ') + 1);  // the at and the name have columns of their own
        const std::size_t args = fields.find(' ');
        fields = args == std::string::npos ? std::string() : fields.substr(args + 1);
        const bool fix = record.op == mdj::kOpReportGps;
        Write(std::to_string(record.stamp) + ',' + std::to_string(point.tick) + ',' +
              (point.utcMs != nullptr ? timeanchor::FormatUtc(*point.utcMs) : std::string()) + ',' +
              mdj::OpName(record.op) + ',' + CsvField(meaning::Phrase(record)) + ',' +
              (fix ? ExportNumber(point.position.latitude) : std::string()) + ',' +
              (fix ? ExportNumber(point.position.longitude) : std::string()) + ',' +
              CsvField(fields) + "\r\n");
    }
};

}  // namespace

std::unique_ptr<ExportFormat> CsvExport() {
    return std::unique_ptr<ExportFormat>(new Csv);
}
