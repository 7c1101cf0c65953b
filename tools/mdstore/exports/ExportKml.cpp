// mdstore export --format kml: KML 2.2 for Google Earth. Each bookmark is a Placemark at the last
// fix before it, stamped with its UTC; the track is one Placemark holding a gx:Track (Google's
// extension), its `when`s first and then its `gx:coord`s, as the extension's schema orders
// them. A gx:Track pairs each position with a time, so a fix without a UTC (no anchor before
// it) is left out of the track. Bookmarks, times and positions are three readings of the store.
#include <string>

#include "exports/ExportFormat.h"
#include "reading/TimeAnchors.h"

namespace {

class Kml : public ExportFormat {
public:
    int Passes() const override { return 3; }

    void BeginPass(int pass) override {
        if (pass == 0) {
            Write(
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<kml xmlns=\"http://www.opengis.net/kml/2.2\" "
                "xmlns:gx=\"http://www.google.com/kml/ext/2.2\">\n<Document>\n  <name>" +
                XmlText(name_) + "</name>\n");
        } else if (pass == 1) {
            Write("  <Placemark>\n    <name>track</name>\n    <gx:Track>\n");
        }
    }

    void Take(int pass, const ExportRecord& point) override {
        if (pass == 0 && point.bookmark) {
            Write("  <Placemark><name>bookmark " + std::to_string(point.tick) + "</name>" +
                  (point.utcMs != nullptr
                       ? "<TimeStamp><when>" + timeanchor::FormatUtc(*point.utcMs) +
                             "</when></TimeStamp>"
                       : std::string()) +
                  "<Point><coordinates>" + ExportNumber(point.position.longitude) + "," +
                  ExportNumber(point.position.latitude) + "</coordinates></Point></Placemark>\n");
        } else if (point.fix && point.utcMs != nullptr && pass == 1) {
            Write("      <when>" + timeanchor::FormatUtc(*point.utcMs) + "</when>\n");
        } else if (point.fix && point.utcMs != nullptr && pass == 2) {
            Write("      <gx:coord>" + ExportNumber(point.position.longitude) + " " +
                  ExportNumber(point.position.latitude) + " " +
                  std::to_string(point.position.altitude) + "</gx:coord>\n");
        }
    }

    void End() override { Write("    </gx:Track>\n  </Placemark>\n</Document>\n</kml>\n"); }
};

}  // namespace

std::unique_ptr<ExportFormat> KmlExport() {
    return std::unique_ptr<ExportFormat>(new Kml);
}
