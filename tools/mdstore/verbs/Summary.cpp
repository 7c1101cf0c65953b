#include "verbs/Summary.h"

#include <cstdio>
#include <cstring>

#include "RecordSchema.h"
#include "reading/FieldBag.h"

namespace summary {

const char* const kInputNames[kInputCount] = {"lights", "siren", "brakes",
                                              "aux",    "door",  "ignition"};

const char* SourceName(unsigned source) {
    return source == 1 ? "gps" : source == 2 ? "radar" : "other";
}

void Range::Add(long long value) {
    if (count == 0 || value < min) {
        min = value;
    }
    if (count == 0 || value > max) {
        max = value;
    }
    ++count;
}

long long Coordinate::Signed() const {
    const long long magnitude = (static_cast<long long>(degrees) * 60 + minutes) * 10000 + fraction;
    return hemisphere == 'S' || hemisphere == 'W' ? -magnitude : magnitude;
}

std::string Coordinate::Text() const {
    char text[64];
    std::snprintf(text, sizeof text, "%u deg %02u.%04u min %c", degrees, minutes, fraction,
                  hemisphere);
    return text;
}

void CoordinateRange::Add(const Coordinate& value) {
    if (!any || value.Signed() < min.Signed()) {
        min = value;
    }
    if (!any || value.Signed() > max.Signed()) {
        max = value;
    }
    any = true;
}

double StoreSummary::DurationSeconds() const {
    return anyAt ? (lastAt - firstAt) / 1000.0 : 0.0;
}

int InputOfTag(long long tag, bool& on) {
    static const long long kOnTags[kInputCount] = {52, 54, 56, 60, 62, 68};
    for (unsigned i = 0; i < kInputCount; ++i) {
        if (tag == kOnTags[i] || tag == kOnTags[i] + 1) {
            on = tag == kOnTags[i];
            return static_cast<int>(i);
        }
    }
    return -1;
}

namespace {

void Count(OnOff& pair, bool on) {
    ++(on ? pair.on : pair.off);
}

class SummarySink : public mdj::JournalSink {
public:
    explicit SummarySink(StoreSummary& out) : out_(out) {}

    void BeginSegment(const mdj::SegmentFile& file, std::size_t bytes) override {
        Segment segment;
        segment.path = file.path;
        segment.number = file.number;
        segment.bytes = bytes;
        out_.segments.push_back(segment);
        out_.bytes += bytes;
    }

    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        if (!out_.segments.empty()) {
            ++out_.segments.back().records;
        }
        ++out_.records;
        ++out_.perOp[mdj::OpName(record.op)];
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (time != 0) {
            out_.firstTick = out_.anyTick && out_.firstTick < time ? out_.firstTick : time;
            out_.lastTick = out_.anyTick && out_.lastTick > time ? out_.lastTick : time;
            out_.anyTick = true;
        }
        if (record.stamp != 0xFFFFFFFFu) {
            out_.firstAt = out_.anyAt ? out_.firstAt : record.stamp;
            out_.lastAt = record.stamp;
            out_.anyAt = true;
        }
        out_.lastRecordShutdown = record.op == mdj::kOpReportShutdownData;
        if (record.op == mdj::kOpReportShutdownData) {
            ++out_.shutdowns;
            return true;
        }
        if (record.op == mdj::kOpWriteFullState) {
            return true;
        }
        fields_.Clear();
        if (!mdj::WalkRecord(record.op, record.body, record.size, &fields_)) {
            return true;  // the reader hands over only records that decode
        }
        Take(record.op);
        return true;
    }

    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        char place[512];
        std::snprintf(place, sizeof place, "%s: %s at offset %zu", file.path.c_str(),
                      mdj::ProblemName(problem), offset);
        out_.damage.push_back(Damage{place, length});
        out_.damageBytes += length;
    }

private:
    long long F(const char* name) const { return fields_.Value(name); }
    bool Flag(const char* name) const { return F(name) != 0; }

    Coordinate Position(const char* prefix, int hemisphereOne, char one, char other) const {
        const std::string p = std::string("item.") + prefix;
        Coordinate c;
        c.degrees = static_cast<std::uint32_t>(F((p + "Degrees").c_str()));
        c.minutes = static_cast<std::uint32_t>(F((p + "Minutes").c_str()));
        c.fraction = static_cast<std::uint32_t>(F((p + "MinuteFraction").c_str()));
        c.hemisphere = F((p + "Hemisphere").c_str()) == hemisphereOne ? one : other;
        return c;
    }

    void TakeStateData() {
        const long long tag = F("tag");
        bool on = false;
        const int input = InputOfTag(tag, on);
        if (input >= 0) {
            if (Flag("flag")) {
                Count(out_.inputs[input], on);
            }
            const int level = on ? 1 : 0;
            if (inputLevel_[input] >= 0 && inputLevel_[input] != level) {
                ++out_.inputToggles[input];
            }
            inputLevel_[input] = level;
        } else if (tag == 70 || tag == 71) {
            Count(out_.recordings, tag == 70);
        } else if (tag == 58 || tag == 59) {
            Count(out_.covert, tag == 58);
        } else if (tag == 66 || tag == 67) {
            Count(out_.crash, tag == 66);
        }
    }

    void Take(std::uint8_t op) {
        switch (op) {
            case mdj::kOpReportShutdownDataAtStartup:
                out_.startup.seen = true;
                out_.startup.previousRunFound = Flag("previousRunFound");
                out_.startup.clean = Flag("clean");
                out_.startup.lastTick = static_cast<std::uint32_t>(F("lastTick"));
                break;
            case mdj::kOpReportStateData:
                TakeStateData();
                break;
            case mdj::kOpReportBookmark:
                ++out_.bookmarks;
                out_.bookmarkTicks.Add(F("tick"));
                break;
            case mdj::kOpReportGpsState:
                Count(out_.gpsStates, Flag("valid"));
                break;
            case mdj::kOpReportGps:
                ++out_.gpsPositions;
                out_.latitude.Add(Position("lat", 1, 'N', 'S'));
                out_.longitude.Add(Position("lon", 1, 'E', 'W'));
                break;
            case mdj::kOpReportValidSpeed:
                if (!Flag("valid")) {
                    ++out_.invalidSpeeds[static_cast<unsigned>(F("source"))];
                }
                break;
            case mdj::kOpReportSpeed:
                out_.speeds[static_cast<unsigned>(F("source"))].Add(F("speed"));
                break;
            case mdj::kOpReportRadarState:
                Count(out_.radarStates, Flag("valid"));
                break;
            case mdj::kOpReportRadar:
                ++out_.radarReadings;
                out_.radarSpeeds[0].Add(F("speedA"));
                out_.radarSpeeds[1].Add(F("speedB"));
                out_.radarSpeeds[2].Add(F("speedC"));
                break;
            case mdj::kOpReportMicPresent:
                Count(out_.micPresent[static_cast<unsigned>(F("mic"))], Flag("present"));
                break;
            case mdj::kOpReportMicState:
                Count(out_.micActive[static_cast<unsigned>(F("mic"))], Flag("active"));
                break;
            case mdj::kOpReportTemp:
                out_.temperatures[static_cast<unsigned>(F("sensor"))].Add(F("value"));
                break;
            case mdj::kOpReportCameraState:
                ++out_.cameraStates[static_cast<unsigned>(F("port"))]
                                   [static_cast<unsigned>(F("state"))];
                break;
            case mdj::kOpReportVideoStreamState:
                ++out_.streamStates[static_cast<unsigned>(F("stream"))]
                                   [static_cast<unsigned>(F("state"))];
                break;
            case mdj::kOpReportStreamQualityItem:
                ++out_.streamQuality;
                break;
            case mdj::kOpReportLvsState:
                Count(out_.lvsEnabled[static_cast<unsigned>(F("stream"))], Flag("enabled"));
                break;
            case mdj::kOpReportMac:
            case mdj::kOpReportSystemSerialNum:
            case mdj::kOpReportVersion:
            case mdj::kOpReportConfiguration:
            case mdj::kOpReportVehicleInfo:
            case mdj::kOpReportSystemInfo:
            case mdj::kOpReportDepartmentInfo:
            case mdj::kOpReportOfficerInfo:
            case mdj::kOpReportVideoRecordingSettings:
                ++out_.configuration[mdj::OpName(op)];
                break;
            default:
                break;
        }
    }

    StoreSummary& out_;
    FieldBag fields_;
    int inputLevel_[kInputCount] = {-1, -1, -1, -1, -1, -1};  // -1: not reported yet
};

}  // namespace

bool Summarize(const std::string& path, StoreSummary& out) {
    out = StoreSummary();
    out.path = path;
    SummarySink sink(out);
    return mdj::ReadJournal(path, sink);
}

}  // namespace summary
