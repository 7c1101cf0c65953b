// mdstore summary against figures the test works out itself from the records it writes: a
// drive of pseudo-random reports (inputs, states, GPS on both sides of the equator and of the
// prime meridian, speeds, radar, bookmarks) with a running tally beside it.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

// Smallest, largest and how many of a series, as summary prints them.
struct Span {
    long long count = 0, min = 0, max = 0;
    void Add(long long value) {
        min = count == 0 || value < min ? value : min;
        max = count == 0 || value > max ? value : max;
        ++count;
    }
    std::string Text() const { return std::to_string(min) + ".." + std::to_string(max); }
};

// One coordinate of a fix and where it lies on its axis (south and west below).
struct Coordinate {
    unsigned degrees, minutes, fraction;
    char hemisphere;
    long long Place() const {
        const long long size = (degrees * 60LL + minutes) * 10000 + fraction;
        return hemisphere == 'S' || hemisphere == 'W' ? -size : size;
    }
    std::string Text() const {
        char text[48];
        std::snprintf(text, sizeof text, "%u deg %02u.%04u min %c", degrees, minutes, fraction,
                      hemisphere);
        return text;
    }
};

struct Extent {
    Coordinate low{}, high{};
    bool any = false;
    void Add(const Coordinate& c) {
        low = !any || c.Place() < low.Place() ? c : low;
        high = !any || c.Place() > high.Place() ? c : high;
        any = true;
    }
};

// The tally: every figure summary gives, kept as the drive is written.
struct Tally {
    std::map<std::string, long long> ops;
    long long inputOn[6] = {}, inputOff[6] = {}, toggled[6] = {},
              level[6] = {-1, -1, -1, -1, -1, -1};
    long long started = 0, stopped = 0, entered = 0, left = 0, detected = 0, cleared = 0;
    long long fix = 0, noFix = 0, radarValid = 0, radarInvalid = 0, invalid[3] = {};
    Span speed[3], radar[3], bookmarks;
    Extent latitude, longitude;
};

const char* const kInputs[6] = {"lights", "siren", "brakes", "aux", "door", "ignition"};
const e_Tag kInputOn[6] = {e_Tag_LightsOn, e_Tag_SirenOn,  e_Tag_BrakesOn,
                           e_Tag_AuxOn,    e_Tag_DoorOpen, e_Tag_IgnitionOn};
const char* const kSources[3] = {"", "gps", "radar"};

// Writes one pseudo-random report for `draw` at `tick` and counts it.
void Report(DataStore& store, unsigned draw, unsigned tick, Tally& t) {
    const unsigned pick = draw >> 4;
    const bool live = (draw & 3) != 0;
    switch (draw % 9) {
        case 0: {  // an input, its initial level (flag false) now and then
            const unsigned input = pick % 6;
            const bool on = pick / 6 % 2 == 0;
            store.ReportStateData(static_cast<e_Tag>(kInputOn[input] + (on ? 0 : 1)), live, tick);
            ++t.ops["ReportStateData"];
            (on ? t.inputOn : t.inputOff)[input] += live;
            t.toggled[input] += t.level[input] >= 0 && t.level[input] != on;
            t.level[input] = on;
            break;
        }
        case 1: {  // recording, covert mode, crash
            const e_Tag tags[6] = {e_Tag_RecordingStarted,  e_Tag_RecordingStopped,
                                   e_Tag_CovertModeEntered, e_Tag_CovertModeLeft,
                                   e_Tag_CrashDetected,     e_Tag_CrashCleared};
            long long* const counts[6] = {&t.started, &t.stopped,  &t.entered,
                                          &t.left,    &t.detected, &t.cleared};
            store.ReportStateData(tags[pick % 6], true, tick);
            ++t.ops["ReportStateData"];
            ++*counts[pick % 6];
            break;
        }
        case 2: {  // a fix anywhere on earth
            GpsStatusItem gps;
            gps.latDegrees = pick % 90;
            gps.latMinutes = pick / 90 % 60;
            gps.latMinuteFraction = draw % 10000;
            gps.latHemisphere = pick % 3 == 0 ? 1 : 2;  // 1 north, anything else south
            gps.lonDegrees = pick / 7 % 180;
            gps.lonMinutes = pick / 11 % 60;
            gps.lonMinuteFraction = draw / 7 % 10000;
            gps.lonHemisphere = pick % 5 < 2 ? 1 : 0;  // 1 east, anything else west
            store.ReportGps(gps, tick, live);
            ++t.ops["ReportGps"];
            t.latitude.Add({gps.latDegrees, gps.latMinutes, gps.latMinuteFraction,
                            gps.latHemisphere == 1 ? 'N' : 'S'});
            t.longitude.Add({gps.lonDegrees, gps.lonMinutes, gps.lonMinuteFraction,
                             gps.lonHemisphere == 1 ? 'E' : 'W'});
            break;
        }
        case 3:  // a speed of one source
            store.ReportSpeed(1 + pick % 2, pick % 320, live, tick, e_Tag_None);
            ++t.ops["ReportSpeed"];
            t.speed[1 + pick % 2].Add(pick % 320);
            break;
        case 4: {  // a radar reading
            const unsigned short speeds[3] = {static_cast<unsigned short>(pick % 200),
                                              static_cast<unsigned short>(pick / 3 % 250),
                                              static_cast<unsigned short>(pick / 5 % 90)};
            store.ReportRadar(1, speeds[0], speeds[1], speeds[2], e_RADAR_DIRECTION_Approaching,
                              live, tick, e_Tag_None);
            ++t.ops["ReportRadar"];
            for (unsigned i = 0; i < 3; ++i) {
                t.radar[i].Add(speeds[i]);
            }
            break;
        }
        case 5:
            store.ReportBookmark(tick);
            ++t.ops["ReportBookmark"];
            t.bookmarks.Add(tick);
            break;
        case 6:  // the GPS fix and the radar come and go
            store.ReportGpsState(pick % 2 == 0, live);
            store.ReportRadarState(1, pick % 3 == 0, live);
            ++t.ops["ReportGpsState"];
            ++t.ops["ReportRadarState"];
            ++(pick % 2 == 0 ? t.fix : t.noFix);
            ++(pick % 3 == 0 ? t.radarValid : t.radarInvalid);
            break;
        case 7:
            store.ReportValidSpeed(1 + pick % 2, pick % 4 == 0);
            ++t.ops["ReportValidSpeed"];
            t.invalid[1 + pick % 2] += pick % 4 != 0;
            break;
        default:  // recorded, but no figure of summary's
            store.ReportTemp(e_Temp_3, static_cast<short>(pick % 120) - 40, live, tick);
            ++t.ops["ReportTemp"];
    }
}

// What the tally says summary --json must hold (flattened keys) and lines its text must hold.
void Expect(Tally& t, std::map<std::string, std::string>& want, std::vector<std::string>& lines) {
    std::istringstream keys(
        "firstAt lastAt gps.states.valid gps.states.invalid gps.positions radar.states.valid "
        "radar.states.invalid radar.readings recordings.started recordings.stopped "
        "covertMode.entered covertMode.left crash.detected crash.cleared bookmarks.count "
        "bookmarks.min bookmarks.max shutdowns");
    want = {{"gps.latitudeMin.text", t.latitude.low.Text()},
            {"gps.latitudeMax.text", t.latitude.high.Text()},
            {"gps.longitudeMin.text", t.longitude.low.Text()},
            {"gps.longitudeMax.text", t.longitude.high.Text()},
            {"cleanShutdown", "true"}};
    for (long long value :
         {1000LL, 1000LL + 10 * 899, t.fix, t.noFix, t.ops["ReportGps"], t.radarValid,
          t.radarInvalid, t.ops["ReportRadar"], t.started, t.stopped, t.entered, t.left, t.detected,
          t.cleared, t.bookmarks.count, t.bookmarks.min, t.bookmarks.max, 1LL}) {
        std::string key;
        keys >> key;
        want[key] = std::to_string(value);
    }
    lines = {"gps:            fix " + std::to_string(t.fix) + ", no fix " +
                 std::to_string(t.noFix) + ", positions " + std::to_string(t.ops["ReportGps"]),
             "  latitude     " + t.latitude.low.Text() + " .. " + t.latitude.high.Text(),
             "  longitude    " + t.longitude.low.Text() + " .. " + t.longitude.high.Text(),
             "  speedA " + t.radar[0].Text() + ", speedB " + t.radar[1].Text() + ", speedC " +
                 t.radar[2].Text(),
             "bookmarks:      " + std::to_string(t.bookmarks.count) + " (ticks " +
                 t.bookmarks.Text() + ")",
             "recordings:     " + std::to_string(t.started) + " started, " +
                 std::to_string(t.stopped) + " stopped"};
    for (const auto& op : t.ops) {
        want["perOp." + op.first] = std::to_string(op.second);
        char line[64];
        std::snprintf(line, sizeof line, "  %-30s %lld", op.first.c_str(), op.second);
        lines.push_back(line);
    }
    for (unsigned i = 0; i < 6; ++i) {
        const std::string input = std::string("inputs.") + kInputs[i];
        want[input + ".toggled"] = std::to_string(t.toggled[i]);
        want[input + ".on"] = std::to_string(t.inputOn[i]);
        want[input + ".off"] = std::to_string(t.inputOff[i]);
        char line[96];
        std::snprintf(line, sizeof line, "  %-12s %lld toggled, %lld / %lld", kInputs[i],
                      t.toggled[i], t.inputOn[i], t.inputOff[i]);
        lines.push_back(line);
    }
    for (unsigned source = 1; source <= 2; ++source) {
        const std::string name = std::string("speed.") + kSources[source];
        want[name + ".count"] = std::to_string(t.speed[source].count);
        want[name + ".min"] = std::to_string(t.speed[source].min);
        want[name + ".max"] = std::to_string(t.speed[source].max);
        want[std::string("invalidSpeed.") + kSources[source]] = std::to_string(t.invalid[source]);
        char line[96];
        std::snprintf(line, sizeof line, "  %-12s %lld readings, %s", kSources[source],
                      t.speed[source].count, t.speed[source].Text().c_str());
        lines.push_back(line);
    }
    for (unsigned i = 0; i < 3; ++i) {
        const std::string speed = std::string("radar.speed") + "ABC"[i];
        want[speed + ".min"] = std::to_string(t.radar[i].min);
        want[speed + ".max"] = std::to_string(t.radar[i].max);
    }
}

}  // namespace

TEST(StoreSummary, EveryFigureMatchesATallyOfTheRecordsWritten) {
    StoreDir dir;
    Tally t;
    {
        DataStoreNormal store(dir.base);
        ASSERT_TRUE(store.Open());
        unsigned seed = 23;
        for (unsigned i = 0; i < 900; ++i) {
            seed = seed * 1103515245u + 12345u;
            store.TimerTick(1000 + 10 * i);
            Report(store, seed >> 8, 1000 + 10 * i, t);
        }
        store.ReportShutdownData();
        store.Close();
    }
    const ProgramResult json = RunMdstore({"summary", "--json", dir.base}, dir.env.Root());
    ASSERT_EQ(0, json.exitCode) << json.err;
    std::map<std::string, std::string> s;
    ASSERT_TRUE(ParseJsonObjectLine(json.out.substr(0, json.out.find('\n')), s)) << json.out;
    const ProgramResult text = RunMdstore({"summary", dir.base}, dir.env.Root());
    ASSERT_EQ(0, text.exitCode) << text.err;

    std::map<std::string, std::string> want;
    std::vector<std::string> lines;
    Expect(t, want, lines);
    for (const auto& figure : want) {
        EXPECT_EQ(figure.second, s[figure.first]) << figure.first;
    }
    for (const std::string& line : lines) {
        EXPECT_NE(std::string::npos, text.out.find(line + "\n")) << line << "\n" << text.out;
    }

    // Nothing to read: exit status 2.
    EXPECT_EQ(2, RunMdstore({"summary", dir.env.Path("absent/metadata")}, dir.env.Root()).exitCode);
}
