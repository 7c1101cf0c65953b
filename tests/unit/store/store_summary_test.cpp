// mdstore summary: the store at a glance, counted from the records the process wrote.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
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

}  // namespace

TEST(StoreSummary, CountsWhatABenchEngineerLooksFor) {
    StoreDir dir;
    {
        // A short drive: inputs toggled, a GPS track across the equator, speeds, radar, bookmarks.
        DataStoreNormal store(dir.base);
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
    const std::string mdstore = ProgramPath("mdstore");
    const ProgramResult json =
        RunProgram({mdstore, "summary", "--json", dir.base}, {}, dir.env.Root());
    ASSERT_EQ(0, json.exitCode) << json.err;
    std::map<std::string, std::string> s;
    ASSERT_TRUE(ParseJsonObjectLine(json.out.substr(0, json.out.find('\n')), s)) << json.out;
    // Lights: off at start, on, off again: toggled twice; brakes never changed. The track
    // crosses the equator and the prime meridian: south and west count below.
    std::istringstream expected(
        "perOp.ReportBookmark=2;bookmarks.min=2200;bookmarks.max=2700;inputs.lights.toggled=2;"
        "inputs.lights.on=1;inputs.lights.off=1;inputs.brakes.toggled=0;inputs.brakes.off=2;"
        "recordings.started=1;gps.latitudeMin.text=0 deg 40.2500 min S;"
        "gps.latitudeMax.text=1 deg 05.2500 min N;gps.longitudeMin.text=17 deg 59.0000 min W;"
        "gps.longitudeMax.text=18 deg 04.0000 min E;speed.gps.min=30;speed.gps.max=80;"
        "invalidSpeed.radar=1;radar.readings=1;radar.speedA.min=40;radar.speedC.max=60;"
        "cleanShutdown=true;firstAt=1000;lastAt=3500");
    for (std::string field; std::getline(expected, field, ';');) {
        const std::size_t equals = field.find('=');
        EXPECT_EQ(field.substr(equals + 1), s[field.substr(0, equals)]) << field;
    }

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
