// mdstore export --format geojson: a FeatureCollection of the track (a LineString, a Point when
// there is one fix) with the fixes' times, then each bookmark as a Point. The coordinates, the
// times parallel to them and the bookmarks are three readings of the store, each written as it
// comes.
#include <string>

#include "exports/ExportFormat.h"
#include "reading/RecordPrinter.h"
#include "reading/TimeAnchors.h"

namespace {

std::string Coordinates(const ExportRecord& point) {
    return "[" + ExportNumber(point.position.longitude) + "," +
           ExportNumber(point.position.latitude) + "]";
}

std::string Time(const ExportRecord& point) {
    return point.utcMs != nullptr ? "\"" + timeanchor::FormatUtc(*point.utcMs) + "\""
                                  : std::string("null");
}

class GeoJson : public ExportFormat {
public:
    int Passes() const override { return 3; }

    void BeginPass(int pass) override {
        written_ = 0;
        if (pass == 0) {
            Write("{\"type\":\"FeatureCollection\",\"features\":[");
        }
    }

    void Take(int pass, const ExportRecord& point) override {
        if (pass == 0 && point.fix) {
            Coordinate(Coordinates(point));
        } else if (pass == 1 && point.fix) {
            Write((written_++ == 0 ? "" : ",") + Time(point));
        } else if (pass == 2 && point.bookmark) {
            Write(std::string(fixes_ == 0 && written_ == 0 ? "" : ",") +
                  "{\"type\":\"Feature\",\"geometry\":{\"type\":\"Point\",\"coordinates\":" +
                  Coordinates(point) + "},\"properties\":{\"name\":\"bookmark\",\"tick\":" +
                  std::to_string(point.tick) + ",\"utc\":" + Time(point) + "}}");
            ++written_;
        }
    }

    void EndPass(int pass) override {
        if (fixes_ == 0) {
            return;
        }
        if (pass == 0) {
            std::string name;
            AppendJsonString(name, name_.data(), name_.size());
            Write((fixes_ == 1 ? "{\"type\":\"Feature\",\"geometry\":{\"type\":\"Point\","
                                 "\"coordinates\":" +
                                     first_
                               : std::string("]")) +
                  "},\"properties\":{\"name\":" + name + ",\"times\":[");
        } else if (pass == 1) {
            Write("]}}");
        }
    }

    void End() override { Write("]}\n"); }

private:
    // The first fix waits for the second: one fix is a Point, more a LineString.
    void Coordinate(const std::string& coordinates) {
        if (fixes_ == 0) {
            first_ = coordinates;
        } else {
            Write((fixes_ == 1 ? "{\"type\":\"Feature\",\"geometry\":{\"type\":\"LineString\","
                                 "\"coordinates\":[" +
                                     first_
                               : std::string()) +
                  "," + coordinates);
        }
        ++fixes_;
    }

    unsigned long long fixes_ = 0;
    unsigned long long written_ = 0;  // of this pass
    std::string first_;
};

}  // namespace

std::unique_ptr<ExportFormat> GeoJsonExport() {
    return std::unique_ptr<ExportFormat>(new GeoJson);
}
