// The drive report's page: one HTML file with its style inline and its drawings as inline SVG,
// so it opens anywhere without a network, a script or a font of its own.
#include "report/ReportHtml.h"

namespace report {

namespace {

const char* const kStyle =
    "body{font:14px/1.4 sans-serif;color:#212121;margin:16px;max-width:1100px}"
    "h1{font-size:22px;margin:0 0 4px}h2{font-size:17px;margin:22px 0 6px}"
    ".sub{color:#555;margin:0 0 12px}"
    ".facts{display:flex;flex-wrap:wrap;gap:8px;margin:10px 0}"
    ".fact{border:1px solid #ccc;border-radius:4px;padding:6px 10px;min-width:120px}"
    ".fact b{display:block;font-size:18px}.fact.warn{border-color:#c62828;color:#c62828}"
    "svg{display:block;font-size:11px}svg text{fill:#424242}"
    ".land{fill:#f4f1e8}.grid line{stroke:#d7d2c4;stroke-width:1}"
    ".track{fill:none;stroke-width:4;stroke-linecap:round;stroke-linejoin:round}"
    ".fix{fill:#fff;stroke:#424242;stroke-width:1}"
    ".start circle{fill:#2e7d32}.end circle{fill:#c62828}.bookmark circle{fill:#ef6c00}"
    ".start text,.end text,.bookmark text{fill:#fff;font-weight:bold}"
    ".bookmark line{stroke:#ef6c00;stroke-width:2}"
    ".scale line{stroke:#212121;stroke-width:3}"
    ".row0{fill:#fafafa}.row1{fill:#eeeeee}.lane-name{font-size:12px;fill:#212121}"
    ".lane-name.empty,.none{fill:#9e9e9e;color:#9e9e9e}"
    ".mark{fill:#ef6c00}.bookmark-line{stroke:#ef6c00;stroke-dasharray:4 3}"
    ".speed-gps,.speed-radar,.speed-other{fill:none;stroke-width:1.8}"
    ".speed-gps{stroke:#1565c0}.speed-radar{stroke:#ef6c00}.speed-other{stroke:#6d4c41}"
    ".speed-gps-key{fill:#1565c0}.speed-radar-key{fill:#ef6c00}.speed-other-key{fill:#6d4c41}"
    ".key span{display:inline-block;width:12px;height:12px;margin:0 4px 0 12px;"
    "vertical-align:-1px}.slow{color:#1a3fbf}.fast{color:#bf1a1a}"
    "pre{background:#f5f5f5;padding:8px;font-size:12px;overflow-x:auto}";

void Fact(std::string& out, const char* label, const std::string& value, bool warn = false) {
    Append(out, "<div class=\"fact%s\">%s<b>%s</b></div>", warn ? " warn" : "", label,
           Escape(value).c_str());
}

std::string Highest(const summary::StoreSummary& s, unsigned source) {
    const auto speed = s.speeds.find(source);
    return speed == s.speeds.end() || speed->second.count == 0 ? "none"
                                                               : std::to_string(speed->second.max);
}

void AppendFacts(const summary::StoreSummary& s, const Drive& drive, std::string& out) {
    char text[64];
    out += "<div class=\"facts\">";
    std::snprintf(text, sizeof text, "%.1f s",
                  drive.anyTime ? (drive.last - drive.first) / 1000.0 : 0.0);
    Fact(out, "time span", text);
    Fact(out, "records", std::to_string(s.records));
    Fact(out, "GPS positions", std::to_string(s.gpsPositions));
    Fact(out, "highest GPS speed", Highest(s, 1));
    Fact(out, "highest radar speed", Highest(s, 2));
    Fact(out, "bookmarks", std::to_string(s.bookmarks));
    std::snprintf(text, sizeof text, "%llu / %llu", s.recordings.on, s.recordings.off);
    Fact(out, "recordings started / stopped", text);
    Fact(out, "covert mode entered", std::to_string(s.covert.on), s.covert.on != 0);
    Fact(out, "crash detected", std::to_string(s.crash.on), s.crash.on != 0);
    Fact(out, "shutdown", s.lastRecordShutdown ? "clean" : "unclean", !s.lastRecordShutdown);
    Fact(out, "damage", s.damage.empty() ? "none" : std::to_string(s.damage.size()) + " places",
         !s.damage.empty());
    out += "</div>\n";
}

void AppendKey(std::string& out) {
    out +=
        "<p class=\"key\">"
        "<span style=\"background:#c62828\"></span>recording"
        "<span style=\"background:#6a1b9a\"></span>covert mode"
        "<span style=\"background:#1565c0\"></span>input on"
        "<span style=\"background:#000\"></span>crash detected"
        "<span style=\"background:#a5d6a7\"></span>microphone present"
        "<span style=\"background:#1b5e20\"></span>microphone active"
        "<span style=\"background:#ef6c00\"></span>bookmark"
        "<br>Cameras: one colour per state number"
        "<span style=\"background:#2e7d32\"></span>1"
        "<span style=\"background:#00897b\"></span>2"
        "<span style=\"background:#f9a825\"></span>3"
        "<span style=\"background:#6d4c41\"></span>4"
        "<span style=\"background:#5e35b1\"></span>5"
        "<span style=\"background:#9e9e9e\"></span>others. Point at a bar for its times.</p>\n";
}

}  // namespace

void AppendPage(const summary::StoreSummary& s, const Drive& drive, const AxisClock& clock,
                std::string& out) {
    out += "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">";
    Append(out, "<title>Drive report: %s</title><style>%s</style></head><body>\n",
           Escape(s.path).c_str(), kStyle);
    Append(out, "<h1>Drive report</h1><p class=\"sub\">%s", Escape(s.path).c_str());
    if (drive.anyTime) {
        Append(out, " &mdash; from %s to %s",
               Escape(LongTime(clock, drive.first, drive.first)).c_str(),
               Escape(LongTime(clock, drive.first, drive.last)).c_str());
    }
    out += "</p>\n";
    AppendFacts(s, drive, out);
    out += "<h2>GPS track</h2>\n";
    AppendMap(drive, clock, out);
    if (!drive.anyTime) {
        out += "<p class=\"none\">No record carries a tick: nothing to draw over time.</p>\n";
    } else {
        out += "<h2>Timeline</h2>\n";
        AppendTimeline(drive, clock, out);
        AppendKey(out);
        out += "<h2>Speed</h2>\n";
        AppendSpeedPlot(drive, clock, out);
    }
    std::string text;
    summary::PrintText(s, text);
    Append(out, "<h2>Summary</h2>\n<pre id=\"summary\">%s</pre>\n</body></html>\n",
           Escape(text).c_str());
}

}  // namespace report
