#include <cstdio>

#include "reading/RecordPrinter.h"
#include "verbs/Summary.h"

namespace summary {

namespace {

void String(std::string& out, const std::string& text) {
    AppendJsonString(out, text.data(), text.size());
}

// Writes "key": with the comma that separates it from the member before.
class Object {
public:
    explicit Object(std::string& out) : out_(out) { out_ += '{'; }
    ~Object() { out_ += '}'; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    std::string& Key(const std::string& key) {
        if (!first_) {
            out_ += ',';
        }
        first_ = false;
        String(out_, key);
        out_ += ':';
        return out_;
    }
    void Number(const std::string& key, long long value) { Key(key) += std::to_string(value); }
    void Unsigned(const std::string& key, unsigned long long value) {
        Key(key) += std::to_string(value);
    }
    void Bool(const std::string& key, bool value) { Key(key) += value ? "true" : "false"; }
    void Text(const std::string& key, const std::string& value) { String(Key(key), value); }
    void OnOffPair(const std::string& key, const OnOff& value, const char* on, const char* off) {
        Key(key);
        Object pair(out_);
        pair.Unsigned(on, value.on);
        pair.Unsigned(off, value.off);
    }
    void RangeOf(const std::string& key, const Range& value) {
        Key(key);
        Object range(out_);
        range.Unsigned("count", value.count);
        if (value.count != 0) {
            range.Number("min", value.min);
            range.Number("max", value.max);
        }
    }
    void CoordinateOf(const std::string& key, const Coordinate& value) {
        Key(key);
        Object coordinate(out_);
        coordinate.Unsigned("degrees", value.degrees);
        coordinate.Unsigned("minutes", value.minutes);
        coordinate.Unsigned("fraction", value.fraction);
        coordinate.Text("hemisphere", std::string(1, value.hemisphere));
        coordinate.Text("text", value.Text());
    }
    void States(const std::string& key,
                const std::map<unsigned, std::map<unsigned, unsigned long long>>& states) {
        Key(key);
        Object all(out_);
        for (const auto& entry : states) {
            all.Key(std::to_string(entry.first));
            Object counts(out_);
            for (const auto& state : entry.second) {
                counts.Unsigned(std::to_string(state.first), state.second);
            }
        }
    }

    // An array of one object per element, each filled by `fill(object, element)`.
    template <typename T, typename Fill>
    void Objects(const std::string& key, const std::vector<T>& elements, Fill fill) {
        Key(key) += '[';
        for (std::size_t i = 0; i < elements.size(); ++i) {
            out_ += i == 0 ? "" : ",";
            Object element(out_);
            fill(element, elements[i]);
        }
        out_ += ']';
    }

private:
    std::string& out_;
    bool first_ = true;
};

// The store itself: where it is, its segments, its ticks and what it holds per operation.
void StoreJson(const StoreSummary& s, Object& top, std::string& out) {
    top.Text("store", s.path);
    top.Unsigned("bytes", s.bytes);
    top.Objects("segments", s.segments, [](Object& segment, const Segment& each) {
        segment.Text("path", each.path);
        segment.Unsigned("number", each.number);
        segment.Unsigned("bytes", each.bytes);
        segment.Unsigned("records", each.records);
    });
    if (s.anyTick) {
        top.Unsigned("firstTick", s.firstTick);
        top.Unsigned("lastTick", s.lastTick);
    }
    if (s.anyAt) {
        top.Unsigned("firstAt", s.firstAt);
        top.Unsigned("lastAt", s.lastAt);
    }
    top.Key("seconds") += std::to_string(s.DurationSeconds());
    top.Unsigned("records", s.records);
    {
        top.Key("perOp");
        Object perOp(out);
        for (const auto& op : s.perOp) {
            perOp.Unsigned(op.first, op.second);
        }
    }
}

// Where the vehicle was and how fast it went: GPS, speeds and radar.
void MotionJson(const StoreSummary& s, Object& top, std::string& out) {
    {
        top.Key("gps");
        Object gps(out);
        gps.OnOffPair("states", s.gpsStates, "valid", "invalid");
        gps.Unsigned("positions", s.gpsPositions);
        if (s.latitude.any) {
            gps.CoordinateOf("latitudeMin", s.latitude.min);
            gps.CoordinateOf("latitudeMax", s.latitude.max);
            gps.CoordinateOf("longitudeMin", s.longitude.min);
            gps.CoordinateOf("longitudeMax", s.longitude.max);
        }
    }
    {
        top.Key("speed");
        Object speed(out);
        for (const auto& source : s.speeds) {
            speed.RangeOf(SourceName(source.first), source.second);
        }
    }
    {
        top.Key("invalidSpeed");
        Object invalid(out);
        for (const auto& source : s.invalidSpeeds) {
            invalid.Unsigned(SourceName(source.first), source.second);
        }
    }
    {
        top.Key("radar");
        Object radar(out);
        radar.OnOffPair("states", s.radarStates, "valid", "invalid");
        radar.Unsigned("readings", s.radarReadings);
        radar.RangeOf("speedA", s.radarSpeeds[0]);
        radar.RangeOf("speedB", s.radarSpeeds[1]);
        radar.RangeOf("speedC", s.radarSpeeds[2]);
    }
}

// What the vehicle and its crew did: inputs, recordings, covert mode, crash and bookmarks.
void VehicleJson(const StoreSummary& s, Object& top, std::string& out) {
    {
        top.Key("inputs");
        Object inputs(out);
        for (unsigned i = 0; i < kInputCount; ++i) {
            inputs.Key(kInputNames[i]);
            Object input(out);
            input.Unsigned("toggled", s.inputToggles[i]);
            input.Unsigned("on", s.inputs[i].on);
            input.Unsigned("off", s.inputs[i].off);
        }
    }
    top.OnOffPair("recordings", s.recordings, "started", "stopped");
    top.OnOffPair("covertMode", s.covert, "entered", "left");
    top.OnOffPair("crash", s.crash, "detected", "cleared");
    top.RangeOf("bookmarks", s.bookmarkTicks);
}

// The devices around the recorder: microphones, temperatures, cameras, streams, configuration.
void DevicesJson(const StoreSummary& s, Object& top, std::string& out) {
    {
        top.Key("microphones");
        Object mics(out);
        for (const auto& mic : s.micPresent) {
            mics.Key(std::to_string(mic.first));
            Object one(out);
            one.OnOffPair("present", mic.second, "yes", "no");
            const auto active = s.micActive.find(mic.first);
            one.OnOffPair("active", active == s.micActive.end() ? OnOff() : active->second, "yes",
                          "no");
        }
    }
    {
        top.Key("temperatures");
        Object temperatures(out);
        for (const auto& sensor : s.temperatures) {
            temperatures.RangeOf(std::to_string(sensor.first), sensor.second);
        }
    }
    top.States("cameras", s.cameraStates);
    top.States("streams", s.streamStates);
    top.Unsigned("streamQuality", s.streamQuality);
    {
        top.Key("liveStreaming");
        Object lvs(out);
        for (const auto& stream : s.lvsEnabled) {
            lvs.OnOffPair(std::to_string(stream.first), stream.second, "enabled", "disabled");
        }
    }
    {
        top.Key("configuration");
        Object configuration(out);
        for (const auto& record : s.configuration) {
            configuration.Unsigned(record.first, record.second);
        }
    }
}

// How the runs ended and what of the store is damaged.
void EndingJson(const StoreSummary& s, Object& top, std::string& out) {
    top.Bool("cleanShutdown", s.lastRecordShutdown);
    top.Unsigned("shutdowns", s.shutdowns);
    if (s.startup.seen) {
        top.Key("startup");
        Object startup(out);
        startup.Bool("previousRunFound", s.startup.previousRunFound);
        startup.Bool("clean", s.startup.clean);
        startup.Unsigned("lastTick", s.startup.lastTick);
    }
    top.Objects("damage", s.damage, [](Object& damage, const Damage& each) {
        damage.Text("place", each.place);
        damage.Unsigned("bytes", each.bytes);
    });
}

}  // namespace

void PrintJson(const StoreSummary& s, std::string& out) {
    Object top(out);
    StoreJson(s, top, out);
    MotionJson(s, top, out);
    VehicleJson(s, top, out);
    DevicesJson(s, top, out);
    EndingJson(s, top, out);
}

}  // namespace summary
