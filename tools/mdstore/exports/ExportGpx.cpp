// mdstore export --format gpx: GPX 1.1, each bookmark a waypoint at the last fix before it, then
// one track of the fixes. Waypoints come first in a GPX file, so the first reading writes them
// and the second the track.
#include <string>

#include "exports/ExportFormat.h"
#include "reading/TimeAnchors.h"

namespace {

std::string Attributes(const ExportRecord& point) {
    return "lat=\"" + ExportNumber(point.position.latitude) + "\" lon=\"" +
           ExportNumber(point.position.longitude) + "\"";
}

std::string Time(const ExportRecord& point) {
    return point.utcMs != nullptr ? "<time>" + timeanchor::FormatUtc(*point.utcMs) + "</time>"
                                  : std::string();
}

class Gpx : public ExportFormat {
public:
    int Passes() const override { return 2; }

    void BeginPass(int pass) override {
        if (pass == 0) {
            Write(
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<gpx version=\"1.1\" creator=\"mdstore\" "
                "xmlns=\"http://www.topografix.com/GPX/1/1\">\n");
        } else {
            Write("  <trk><name>" + XmlText(name_) + "</name><trkseg>\n");
        }
    }

    void Take(int pass, const ExportRecord& point) override {
        if (pass == 0 && point.bookmark) {
            Write("  <wpt " + Attributes(point) + ">" + Time(point) + "<name>bookmark " +
                  std::to_string(point.tick) + "</name></wpt>\n");
        } else if (pass == 1 && point.fix) {
            Write("    <trkpt " + Attributes(point) + "><ele>" +
                  std::to_string(point.position.altitude) + "</ele>" + Time(point) + "</trkpt>\n");
        }
    }

    void End() override { Write("  </trkseg></trk>\n</gpx>\n"); }
};

}  // namespace

std::unique_ptr<ExportFormat> GpxExport() {
    return std::unique_ptr<ExportFormat>(new Gpx);
}
