// mdstore summary: the store at a glance, counted from the records the process wrote.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

GpsStatusItem Position(unsigned short latDegrees, unsigned short latMinutes, int latHemisphere,
                       unsigned short lonDegrees, unsigned short lonMinutes, int lonHemisphere) {
    GpsStatusItem gps;
    gps.latDegrees = latDegrees;
    gps.latMinutes = latMinutes;
    gps.latMinuteFraction = 2500;
    gps.latHemisphere = latHemisphere;
    gps.lonDegrees = lonDegrees;
    gps.lonMinutes = lonMinutes;
    gps.lonHemisphere = lonHemisphere;
    gps.fixStatus = 1;
    return gps;
}

// A short drive: inputs toggled, a GPS track across the equator, speeds, radar, bookmarks.
void WriteDrive(const std::string& base) {
    DataStoreNormal store(base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(1000);
    store.ReportShutdownDataAtStartup();
    store.ReportStateData(e_Tag_LightsOff, false, 1000);  // the initial level
    store.ReportStateData(e_Tag_LightsOn, true, 1100);
    store.ReportStateData(e_Tag_LightsOff, true, 1200);
    store.ReportStateData(e_Tag_BrakesOff, true, 1250);  // reported again, not toggled
    store.ReportStateData(e_Tag_BrakesOff, true, 1260);
    store.ReportStateData(e_Tag_RecordingStarted, true, 1300);
    store.TimerTick(2000);
    store.ReportGpsState(true, true);
    store.ReportGps(Position(1, 5, 1, 18, 4, 1), 2000, true);
    store.ReportSpeed(1, 30, true, 2000, e_Tag_None);
    store.ReportGps(Position(0, 40, 0, 17, 59, 0), 2100, true);
    store.ReportSpeed(1, 80, true, 2100, e_Tag_None);
    store.ReportRadarState(1, true, true);
    store.ReportRadar(1, 40, 50, 60, e_RADAR_DIRECTION_None, true, 0, e_Tag_None);
    store.ReportValidSpeed(2, false);
    store.ReportBookmark(2200);
    store.ReportBookmark(2700);
    store.TimerTick(3500);
    store.ReportShutdownData();
    store.Close();
}

}  // namespace

TEST(StoreSummary, CountsWhatABenchEngineerLooksFor) {
    StoreDir dir;
    WriteDrive(dir.base);
    const std::string mdstore = ProgramPath("mdstore");

    const ProgramResult json =
        RunProgram({mdstore, "summary", "--json", dir.base}, {}, dir.env.Root());
    ASSERT_EQ(0, json.exitCode) << json.err;
    std::map<std::string, std::string> s;
    ASSERT_TRUE(ParseJsonObjectLine(json.out.substr(0, json.out.find('\n')), s)) << json.out;
    EXPECT_EQ("2", s["perOp.ReportBookmark"]);
    EXPECT_EQ("2200", s["bookmarks.min"]);
    EXPECT_EQ("2700", s["bookmarks.max"]);
    // Lights: off at start, on, off again: toggled twice; brakes never changed.
    EXPECT_EQ("2", s["inputs.lights.toggled"]);
    EXPECT_EQ("1", s["inputs.lights.on"]);
    EXPECT_EQ("1", s["inputs.lights.off"]);
    EXPECT_EQ("0", s["inputs.brakes.toggled"]);
    EXPECT_EQ("2", s["inputs.brakes.off"]);
    EXPECT_EQ("1", s["recordings.started"]);
    // The track crosses the equator and the prime meridian: south and west count below.
    EXPECT_EQ("0 deg 40.2500 min S", s["gps.latitudeMin.text"]);
    EXPECT_EQ("1 deg 05.2500 min N", s["gps.latitudeMax.text"]);
    EXPECT_EQ("17 deg 59.0000 min W", s["gps.longitudeMin.text"]);
    EXPECT_EQ("18 deg 04.0000 min E", s["gps.longitudeMax.text"]);
    EXPECT_EQ("30", s["speed.gps.min"]);
    EXPECT_EQ("80", s["speed.gps.max"]);
    EXPECT_EQ("1", s["invalidSpeed.radar"]);
    EXPECT_EQ("1", s["radar.readings"]);
    EXPECT_EQ("40", s["radar.speedA.min"]);
    EXPECT_EQ("60", s["radar.speedC.max"]);
    EXPECT_EQ("true", s["cleanShutdown"]);
    EXPECT_EQ("1000", s["firstAt"]);
    EXPECT_EQ("3500", s["lastAt"]);

    // The text form says the same at a glance.
    const ProgramResult text = RunProgram({mdstore, "summary", dir.base}, {}, dir.env.Root());
    ASSERT_EQ(0, text.exitCode) << text.err;
    for (const char* line :
         {"recorded:       2.5 s (store ticks 1000..3500)\n", "  lights       2 toggled, 1 / 1\n",
          "bookmarks:      2 (ticks 2200..2700)\n",
          "  latitude     0 deg 40.2500 min S .. 1 deg 05.2500 min N\n",
          "shutdown:       clean, the last record is ReportShutdownData"}) {
        EXPECT_NE(std::string::npos, text.out.find(line)) << line << "\n" << text.out;
    }

    // Nothing to read: exit status 2.
    EXPECT_EQ(2,
              RunProgram({mdstore, "summary", dir.env.Path("absent/metadata")}, {}, dir.env.Root())
                  .exitCode);
}
