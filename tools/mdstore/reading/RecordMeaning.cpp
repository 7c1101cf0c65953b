#include "reading/RecordMeaning.h"

#include <cstdio>

#include "RecordSchema.h"
#include "reading/RecordFields.h"
#include "reading/TextEscape.h"
#include "reading/TimeAnchors.h"

namespace meaning {

namespace {

struct Named {
    std::uint32_t value;
    const char* name;
};

template <unsigned N>
const char* Lookup(const Named (&table)[N], std::uint32_t value) {
    for (const Named& entry : table) {
        if (entry.value == value) {
            return entry.name;
        }
    }
    return "unknown";
}

const Named kTags[] = {
    {0, "none"},
    {32, "filler"},
    {52, "lights on"},
    {53, "lights off"},
    {54, "siren on"},
    {55, "siren off"},
    {56, "brakes on"},
    {57, "brakes off"},
    {58, "covert mode entered"},
    {59, "covert mode left"},
    {60, "aux on"},
    {61, "aux off"},
    {62, "door open"},
    {63, "door closed"},
    {64, "process started"},
    {66, "crash detected"},
    {67, "crash cleared"},
    {68, "ignition on"},
    {69, "ignition off"},
    {70, "recording started"},
    {71, "recording stopped"},
};
const Named kCameraStates[] = {
    {0, "off"}, {1, "recording"}, {2, "streaming"}, {3, "idle"}, {4, "fault"}};
const Named kStreamStates[] = {{0, "stopped"}, {1, "running"}, {2, "paused"}, {3, "error"}};
const Named kSources[] = {{1, "gps"}, {2, "radar"}};
const Named kDirections[] = {{0, "none"}, {1, "approaching"}, {2, "receding"}};
const Named kComponents[] = {{0, "unknown"}, {1, "kernel"}, {2, "build"}, {3, "fpga"}};
const Named kReasons[] = {{0, "segment"}, {1, "periodic"}, {2, "clock step"}};

std::string Degrees(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

void Add(std::vector<DecodedField>& out, const char* key, const std::string& text,
         bool number = false) {
    out.push_back(DecodedField{key, text, number});
}

void ReadPosition(const RecordFields& f, Position& out) {
    out.latitude =
        DecimalDegrees(f.Number("item.latDegrees"), f.Number("item.latMinutes"),
                       f.Number("item.latMinuteFraction"), f.Number("item.latHemisphere") != 1);
    out.longitude =
        DecimalDegrees(f.Number("item.lonDegrees"), f.Number("item.lonMinutes"),
                       f.Number("item.lonMinuteFraction"), f.Number("item.lonHemisphere") != 1);
    out.altitude = f.Number("item.altitude");
    out.speed = f.Number("item.speed") / 10.0;
}

void AddPosition(const RecordFields& f, std::vector<DecodedField>& out) {
    const bool north = f.Number("item.latHemisphere") == 1;
    const bool east = f.Number("item.lonHemisphere") == 1;
    Add(out, "latHemisphereName", north ? "N" : "S");
    Add(out, "lonHemisphereName", east ? "E" : "W");
    Position position;
    ReadPosition(f, position);
    Add(out, "latitude", Degrees(position.latitude), true);
    Add(out, "longitude", Degrees(position.longitude), true);
    char speed[32];
    std::snprintf(speed, sizeof speed, "%.1f", position.speed);
    Add(out, "gpsSpeed", speed, true);
    const long long seconds = f.Number("item.utcTime");
    if (timeanchor::PlausibleUtcSeconds(seconds)) {
        Add(out, "gpsUtc", timeanchor::FormatUtc(seconds * 1000));
    }
}

}  // namespace

std::string ValidUtf8(const std::string& text) {
    return textout::ValidUtf8(text);
}

const char* TagName(std::uint32_t tag) {
    return Lookup(kTags, tag);
}
const char* CameraStateName(std::uint32_t state) {
    return Lookup(kCameraStates, state);
}
const char* StreamStateName(std::uint32_t state) {
    return Lookup(kStreamStates, state);
}
const char* SpeedSourceName(std::uint32_t source) {
    return Lookup(kSources, source);
}
const char* RadarDirectionName(std::uint32_t direction) {
    return Lookup(kDirections, direction);
}
const char* ComponentName(std::uint32_t component) {
    return Lookup(kComponents, component);
}
const char* AnchorReasonName(std::uint32_t reason) {
    return Lookup(kReasons, reason);
}

std::string Ipv4Text(std::uint32_t address) {
    char text[20];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF,
                  (address >> 8) & 0xFF, address & 0xFF);
    return text;
}

double DecimalDegrees(long long degrees, long long minutes, long long fraction, bool negative) {
    const double value = degrees + (minutes + fraction / 10000.0) / 60.0;
    return negative && value != 0 ? -value : value;
}

bool GpsPosition(const mdj::RecordView& record, Position& out) {
    RecordFields fields;
    if (record.op != mdj::kOpReportGps || !fields.Read(record)) {
        return false;
    }
    ReadPosition(fields, out);
    return true;
}

bool Decode(const mdj::RecordView& record, std::vector<DecodedField>& out) {
    if (record.op == mdj::kOpWriteFullState || record.op == mdj::kOpReportShutdownData) {
        return mdj::WalkRecord(record.op, record.body, record.size, nullptr);
    }
    RecordFields f;
    if (!f.Read(record)) {
        return false;
    }
    const auto number = [&](const char* name) {
        return static_cast<std::uint32_t>(f.Number(name));
    };
    switch (record.op) {
        case mdj::kOpReportStringData:
        case mdj::kOpReportStateData:
            Add(out, "tagName", TagName(number("tag")));
            break;
        case mdj::kOpReportVersion:
            Add(out, "componentName", ComponentName(number("component")));
            break;
        case mdj::kOpReportValidSpeed:
        case mdj::kOpReportSpeed:
            Add(out, "sourceName", SpeedSourceName(number("source")));
            break;
        case mdj::kOpReportRadar:
            Add(out, "directionName", RadarDirectionName(number("direction")));
            break;
        case mdj::kOpReportGps:
            AddPosition(f, out);
            break;
        case mdj::kOpReportCameraState:
            Add(out, "stateName", CameraStateName(number("state")));
            break;
        case mdj::kOpReportVideoStreamState:
            Add(out, "stateName", StreamStateName(number("state")));
            break;
        case mdj::kOpReportLvsState:
            Add(out, "addressText", Ipv4Text(number("address")));
            break;
        case mdj::kOpTimeAnchor:
            Add(out, "reasonName", AnchorReasonName(number("reason")));
            break;
        default:
            break;
    }
    return true;
}

std::string Phrase(const mdj::RecordView& record) {
    RecordFields f;
    if (!f.Read(record)) {
        return record.op == mdj::kOpReportShutdownData ? "clean shutdown" : "";
    }
    const auto number = [&](const char* name) {
        return static_cast<std::uint32_t>(f.Number(name));
    };
    const auto on = [&](const char* name, const char* yes, const char* no) {
        return std::string(f.Number(name) != 0 ? yes : no);
    };
    std::string text;
    switch (record.op) {
        case mdj::kOpReportStateData:
            return TagName(number("tag"));
        case mdj::kOpReportStringData:
            return std::string(TagName(number("tag"))) + ": " + ValidUtf8(f.Text("text"));
        case mdj::kOpReportBookmark:
            return "bookmark";
        case mdj::kOpReportGpsState:
            return on("valid", "GPS fix", "no GPS fix");
        case mdj::kOpReportGps: {
            Position p;
            ReadPosition(f, p);
            char line[96];
            std::snprintf(line, sizeof line, "%.6f %c %.6f %c",
                          p.latitude < 0 ? -p.latitude : p.latitude, p.latitude < 0 ? 'S' : 'N',
                          p.longitude < 0 ? -p.longitude : p.longitude,
                          p.longitude < 0 ? 'W' : 'E');
            return line;
        }
        case mdj::kOpReportValidSpeed:
            return std::string(SpeedSourceName(number("source"))) + " speed " +
                   on("valid", "valid", "invalid");
        case mdj::kOpReportSpeed:
            return std::string(SpeedSourceName(number("source"))) + " speed " +
                   std::to_string(number("speed"));
        case mdj::kOpReportRadarState:
            return "radar " + on("valid", "valid", "invalid");
        case mdj::kOpReportRadar:
            return "radar " + std::to_string(number("speedA")) + "/" +
                   std::to_string(number("speedB")) + "/" + std::to_string(number("speedC")) + " " +
                   RadarDirectionName(number("direction"));
        case mdj::kOpReportMicPresent:
            return "microphone " + std::to_string(number("mic")) +
                   on("present", " present", " absent");
        case mdj::kOpReportMicState:
            return "microphone " + std::to_string(number("mic")) + on("active", " active", " idle");
        case mdj::kOpReportTemp:
            return "temperature " + std::to_string(number("sensor")) + ": " +
                   std::to_string(f.Number("value"));
        case mdj::kOpReportCameraState:
            return "camera " + std::to_string(number("port")) + " " +
                   CameraStateName(number("state"));
        case mdj::kOpReportVideoStreamState:
            return "stream " + std::to_string(number("stream")) + " " +
                   StreamStateName(number("state"));
        case mdj::kOpReportLvsState:
            return "live stream " + std::to_string(number("stream")) +
                   on("enabled", " on", " off") + " to " + Ipv4Text(number("address")) + ":" +
                   std::to_string(number("port"));
        case mdj::kOpReportShutdownDataAtStartup:
            return !f.Number("previousRunFound") ? "first run"
                                                 : on("clean", "started after a clean shutdown",
                                                      "started after an unclean shutdown");
        case mdj::kOpTimeAnchor:
            return "time anchor (" + std::string(AnchorReasonName(number("reason"))) + ")";
        default:
            break;
    }
    // Identity and configuration records: their texts say it.
    for (const auto& entry : f.Texts()) {
        if (!entry.second.empty()) {
            text += (text.empty() ? "" : ", ") + ValidUtf8(entry.second);
        }
    }
    return text;
}

}  // namespace meaning
