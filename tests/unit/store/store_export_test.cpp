// What mdstore hands to other programs and people: the drive as GPX and GeoJSON, and the
// records of a live store as they land.
#include <gtest/gtest.h>

#include <signal.h>
#include <cstdlib>

#include "DataStore.h"
#include "PendingWrites.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

struct Fix {
    unsigned short degrees[2], minutes[2];
    unsigned fraction[2];
    int hemisphere[2];
    double latitude, longitude;
};
const Fix kDrive[] = {
    {{59, 18}, {19, 4}, {5000, 2500}, {1, 1}, 59.325, 18.070833},
    {{59, 18}, {20, 4}, {0, 2500}, {1, 1}, 59.333333, 18.070833},
    {{33, 151}, {52, 12}, {0, 0}, {0, 1}, -33.866667, 151.2},
};

// lat/lon of every `<tag lat=".." lon="..">` in a GPX text.
std::vector<std::pair<double, double>> GpxPoints(const std::string& xml, const std::string& tag) {
    std::vector<std::pair<double, double>> points;
    const std::string open = "<" + tag + " lat=\"";
    for (std::size_t at = xml.find(open); at != std::string::npos; at = xml.find(open, at + 1)) {
        char* end = nullptr;
        const double latitude = std::strtod(xml.c_str() + at + open.size(), &end);
        EXPECT_EQ(0, std::string(end).find("\" lon=\""));
        points.emplace_back(latitude, std::strtod(end + 7, nullptr));
    }
    return points;
}

}  // namespace

TEST(StoreExport, GpxAndGeoJsonHoldTheDrivesFixesAndBookmarks) {
    StoreDir dir;
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    for (unsigned i = 0; i < std::size(kDrive); ++i) {
        store.TimerTick(1000 * (i + 1));
        GpsStatusItem gps;
        gps.latDegrees = kDrive[i].degrees[0];
        gps.lonDegrees = kDrive[i].degrees[1];
        gps.latMinutes = kDrive[i].minutes[0];
        gps.lonMinutes = kDrive[i].minutes[1];
        gps.latMinuteFraction = kDrive[i].fraction[0];
        gps.lonMinuteFraction = kDrive[i].fraction[1];
        gps.latHemisphere = kDrive[i].hemisphere[0];
        gps.lonHemisphere = kDrive[i].hemisphere[1];
        gps.fixStatus = 1;
        store.ReportGps(gps, 1000 * (i + 1), true);
        if (i == 1) {
            store.ReportBookmark(2500);
        }
    }
    store.Close();

    const std::string gpxPath = dir.env.Path("drive.gpx");
    const ProgramResult gpx =
        RunProgram({ProgramPath("mdstore"), "export", "--format=gpx", "-o", gpxPath, dir.base}, {},
                   dir.env.Root());
    ASSERT_EQ(0, gpx.exitCode) << gpx.err;
    const std::string xml = ReadFileText(gpxPath);
    const auto track = GpxPoints(xml, "trkpt");
    ASSERT_EQ(std::size(kDrive), track.size()) << xml;
    const ProgramResult geo = RunProgram(
        {ProgramPath("mdstore"), "export", "--format", "geojson", dir.base}, {}, dir.env.Root());
    ASSERT_EQ(0, geo.exitCode) << geo.err;
    std::map<std::string, std::string> json;
    ASSERT_TRUE(ParseJsonObjectLine(geo.out.substr(0, geo.out.find('\n')), json)) << geo.out;
    EXPECT_EQ("LineString", json["features.0.geometry.type"]);
    for (std::size_t i = 0; i < std::size(kDrive); ++i) {
        const std::string at = "features.0.geometry.coordinates." + std::to_string(i);
        EXPECT_NEAR(kDrive[i].latitude, track[i].first, 1e-6) << i;
        EXPECT_NEAR(kDrive[i].longitude, track[i].second, 1e-6) << i;
        EXPECT_NEAR(kDrive[i].longitude, std::atof(json[at + ".0"].c_str()), 1e-6) << i;
        EXPECT_NEAR(kDrive[i].latitude, std::atof(json[at + ".1"].c_str()), 1e-6) << i;
        EXPECT_EQ(24u, json["features.0.properties.times." + std::to_string(i)].size());
    }
    EXPECT_EQ(0u, xml.find("<?xml")) << xml;
    EXPECT_NE(std::string::npos, xml.find("<time>")) << xml;
    // The bookmark lies where the car was: at the fix before it.
    const auto waypoints = GpxPoints(xml, "wpt");
    ASSERT_EQ(1u, waypoints.size()) << xml;
    EXPECT_EQ(track[1], waypoints[0]);
    EXPECT_EQ("Point", json["features.1.geometry.type"]);
    EXPECT_EQ(json["features.0.geometry.coordinates.1.0"],
              json["features.1.geometry.coordinates.0"]);
    EXPECT_EQ("2500", json["features.1.properties.tick"]);
}

TEST(StoreExport, FollowPrintsRecordsWrittenAfterItStartedAcrossSegmentsUntilASignal) {
    StoreDir dir;
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(100);
    Subprocess follow({ProgramPath("mdstore"), "cat", "--json", "--follow=60", dir.base}, {},
                      dir.env.Root());
    ASSERT_TRUE(follow.Start());
    ASSERT_TRUE(follow.WaitForOut("TimeAnchor", 20000)) << follow.Err();
    store.ReportBookmark(4242);
    store.TimerTick(200);
    hostsystem::WritePending();  // the endpoint's turn before it waits
    EXPECT_TRUE(follow.WaitForOut("\"tick\":4242", 20000)) << follow.Out();
    // A new run of the store: a new segment.
    store.Close();
    ASSERT_TRUE(store.Open());
    store.ReportBookmark(4343);
    store.TimerTick(300);
    hostsystem::WritePending();
    EXPECT_TRUE(follow.WaitForOut("\"tick\":4343", 20000)) << follow.Out();
    follow.Signal(SIGTERM);
    const ProgramResult result = follow.Wait(20000);
    EXPECT_EQ(0, result.exitCode) << result.err;
    store.Close();
}
