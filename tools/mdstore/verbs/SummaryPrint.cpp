#include <cstdarg>
#include <cstdio>

#include "reading/TextEscape.h"
#include "verbs/Summary.h"

namespace summary {

namespace {

void Append(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Append(std::string& out, const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    out += line;
}

// "label:" padded so the values line up.
void Label(std::string& out, const char* label) {
    Append(out, "%-16s", (std::string(label) + ":").c_str());
}

// A section whose lines follow below it, or "none".
void Heading(std::string& out, const char* label, bool any) {
    if (any) {
        Append(out, "%s:\n", label);
    } else {
        Label(out, label);
        out += "none\n";
    }
}

std::string RangeText(const Range& range) {
    if (range.count == 0) {
        return "none";
    }
    char text[64];
    std::snprintf(text, sizeof text, "%lld..%lld", range.min, range.max);
    return text;
}

std::string StatesText(const std::map<unsigned, unsigned long long>& states) {
    std::string text;
    for (const auto& state : states) {
        Append(text, "%sstate %u x%llu", text.empty() ? "" : ", ", state.first, state.second);
    }
    return text;
}

// The files: where, how many bytes and records, the ticks they span.
void PrintFiles(const StoreSummary& s, std::string& out) {
    Label(out, "store");
    out += textout::Printable(s.path) + "\n";
    Label(out, "segments");
    Append(out, "%zu, %llu bytes\n", s.segments.size(), s.bytes);
    for (const Segment& segment : s.segments) {
        out += "  " + textout::Printable(segment.path);
        Append(out, "  %llu bytes, %llu records\n", segment.bytes, segment.records);
    }
    Label(out, "ticks");
    if (s.anyTick) {
        Append(out, "%u..%u (the records' own ticks)\n", s.firstTick, s.lastTick);
    } else {
        Append(out, "none\n");
    }
    Label(out, "recorded");
    if (s.anyAt) {
        Append(out, "%.1f s (store ticks %u..%u)\n", s.DurationSeconds(), s.firstAt, s.lastAt);
    } else {
        Append(out, "no store tick\n");
    }
    Label(out, "records");
    Append(out, "%llu\n", s.records);
    for (const auto& op : s.perOp) {
        Append(out, "  %-30s %llu\n", op.first.c_str(), op.second);
    }
}

// Where the car went and how fast: GPS, speeds, radar.
void PrintPosition(const StoreSummary& s, std::string& out) {
    Label(out, "gps");
    Append(out, "fix %llu, no fix %llu, positions %llu\n", s.gpsStates.on, s.gpsStates.off,
           s.gpsPositions);
    if (s.latitude.any) {
        Append(out, "  latitude     %s .. %s\n", s.latitude.min.Text().c_str(),
               s.latitude.max.Text().c_str());
        Append(out, "  longitude    %s .. %s\n", s.longitude.min.Text().c_str(),
               s.longitude.max.Text().c_str());
    }
    Heading(out, "speed", !(s.speeds.empty() && s.invalidSpeeds.empty()));
    for (const auto& speed : s.speeds) {
        Append(out, "  %-12s %llu readings, %s\n", SourceName(speed.first), speed.second.count,
               RangeText(speed.second).c_str());
    }
    for (const auto& invalid : s.invalidSpeeds) {
        Append(out, "  %-12s %llu marked invalid\n", SourceName(invalid.first), invalid.second);
    }
    Label(out, "radar");
    Append(out, "valid %llu, invalid %llu, readings %llu\n", s.radarStates.on, s.radarStates.off,
           s.radarReadings);
    if (s.radarReadings != 0) {
        Append(out, "  speedA %s, speedB %s, speedC %s\n", RangeText(s.radarSpeeds[0]).c_str(),
               RangeText(s.radarSpeeds[1]).c_str(), RangeText(s.radarSpeeds[2]).c_str());
    }
}

// What the driver and the car did: inputs, recordings, covert mode, crash, bookmarks.
void PrintEvents(const StoreSummary& s, std::string& out) {
    Label(out, "inputs");
    Append(out, "toggled, then live reports on / off\n");
    for (unsigned i = 0; i < kInputCount; ++i) {
        Append(out, "  %-12s %llu toggled, %llu / %llu\n", kInputNames[i], s.inputToggles[i],
               s.inputs[i].on, s.inputs[i].off);
    }
    Label(out, "recordings");
    Append(out, "%llu started, %llu stopped\n", s.recordings.on, s.recordings.off);
    Label(out, "covert mode");
    Append(out, "%llu entered, %llu left\n", s.covert.on, s.covert.off);
    Label(out, "crash");
    Append(out, "%llu detected, %llu cleared\n", s.crash.on, s.crash.off);
    Label(out, "bookmarks");
    Append(out, "%llu", s.bookmarks);
    if (s.bookmarks != 0) {
        Append(out, " (ticks %s)", RangeText(s.bookmarkTicks).c_str());
    }
    out += '\n';
}

// The devices around the recorder: microphones, temperatures, cameras, streams, configuration.
void PrintDevices(const StoreSummary& s, std::string& out) {
    Heading(out, "microphones", !(s.micPresent.empty() && s.micActive.empty()));
    for (const auto& mic : s.micPresent) {
        const auto active = s.micActive.find(mic.first);
        const OnOff none;
        const OnOff& state = active == s.micActive.end() ? none : active->second;
        Append(out, "  mic %-8u present %llu / absent %llu, active %llu / idle %llu\n", mic.first,
               mic.second.on, mic.second.off, state.on, state.off);
    }
    Heading(out, "temperatures", !(s.temperatures.empty()));
    for (const auto& sensor : s.temperatures) {
        Append(out, "  sensor %-5u %s (%llu readings)\n", sensor.first,
               RangeText(sensor.second).c_str(), sensor.second.count);
    }
    Heading(out, "cameras", !(s.cameraStates.empty()));
    for (const auto& port : s.cameraStates) {
        Append(out, "  port %-7u %s\n", port.first, StatesText(port.second).c_str());
    }
    Heading(out, "streams", !(s.streamStates.empty()));
    for (const auto& stream : s.streamStates) {
        Append(out, "  stream %-5u %s\n", stream.first, StatesText(stream.second).c_str());
    }
    Label(out, "stream quality");
    Append(out, "%llu reports\n", s.streamQuality);
    Heading(out, "live streaming", !(s.lvsEnabled.empty()));
    for (const auto& lvs : s.lvsEnabled) {
        Append(out, "  stream %-5u enabled %llu, disabled %llu\n", lvs.first, lvs.second.on,
               lvs.second.off);
    }
    Heading(out, "configuration", !(s.configuration.empty()));
    for (const auto& record : s.configuration) {
        Append(out, "  %-30s %llu\n", record.first.c_str(), record.second);
    }
}

// How the runs ended and what is damaged.
void PrintEnding(const StoreSummary& s, std::string& out) {
    Label(out, "shutdown");
    Append(out, "%s (%llu ReportShutdownData)\n",
           s.lastRecordShutdown ? "clean, the last record is ReportShutdownData"
                                : "unclean, the last run did not end with ReportShutdownData",
           s.shutdowns);
    Label(out, "start-up");
    if (!s.startup.seen) {
        Append(out, "no ReportShutdownDataAtStartup\n");
    } else if (!s.startup.previousRunFound) {
        Append(out, "first run (no earlier segment)\n");
    } else {
        Append(out, "the run before ended %s, its last tick %u\n",
               s.startup.clean ? "cleanly" : "uncleanly", s.startup.lastTick);
    }
    Label(out, "damage");
    if (s.damage.empty()) {
        Append(out, "none\n");
    } else {
        Append(out, "%zu places, %llu bytes\n", s.damage.size(), s.damageBytes);
        for (const Damage& damage : s.damage) {
            out += "  " + textout::Printable(damage.place);
            Append(out, " (%llu bytes)\n", damage.bytes);
        }
    }
}

}  // namespace

void PrintText(const StoreSummary& s, std::string& out) {
    PrintFiles(s, out);
    PrintPosition(s, out);
    PrintEvents(s, out);
    PrintDevices(s, out);
    PrintEnding(s, out);
}

}  // namespace summary
