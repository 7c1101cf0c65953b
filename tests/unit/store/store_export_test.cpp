// What mdstore hands to other programs and people: the drive as GPX, GeoJSON and KML, and the
// records of a live store as they land.
#include <gtest/gtest.h>

#include <signal.h>
#include <cstdlib>

#include "DataStore.h"
#include "PendingWrites.h"
#include "StoreFill.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

struct DriveFix {
    unsigned short degrees[2], minutes[2];
    unsigned fraction[2];
    int hemisphere[2];
    double latitude, longitude;
};
const DriveFix kDrive[] = {
    {{59, 18}, {19, 4}, {5000, 2500}, {1, 1}, 59.325, 18.070833},
    {{59, 18}, {20, 4}, {0, 2500}, {1, 1}, 59.333333, 18.070833},
    {{33, 151}, {52, 12}, {0, 0}, {0, 1}, -33.866667, 151.2},
};

// The numbers of every `<open>a b</close>` (or "a,b") in `xml`, from `from` on.
std::vector<std::pair<double, double>> KmlPairs(const std::string& xml, const std::string& open,
                                                std::size_t from = 0) {
    std::vector<std::pair<double, double>> pairs;
    for (std::size_t at = xml.find(open, from); at != std::string::npos;
         at = xml.find(open, at + 1)) {
        char* end = nullptr;
        const double longitude = std::strtod(xml.c_str() + at + open.size(), &end);
        pairs.emplace_back(std::strtod(end + 1, nullptr), longitude);
    }
    return pairs;
}

}  // namespace

TEST(StoreExport, GpxGeoJsonAndKmlHoldTheDrivesFixesAndBookmarks) {
    StoreDir dir;
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    for (unsigned i = 0; i < std::size(kDrive); ++i) {
        store.TimerTick(1000 * (i + 1));
        const DriveFix& f = kDrive[i];
        store.ReportGps(Fix(f.degrees[0], f.minutes[0], f.fraction[0], f.hemisphere[0],
                            f.degrees[1], f.minutes[1], f.fraction[1], f.hemisphere[1]),
                        1000 * (i + 1), true);
        if (i == 1) {
            store.ReportBookmark(2500);
        }
    }
    store.Close();

    const std::string gpxPath = dir.env.Path("drive.gpx");
    const ProgramResult gpx =
        RunMdstore({"export", "--format=gpx", "-o", gpxPath, dir.base}, dir.env.Root());
    ASSERT_EQ(0, gpx.exitCode) << gpx.err;
    const std::string xml = ReadFileText(gpxPath);
    const auto track = GpxPoints(xml, "trkpt");
    ASSERT_EQ(std::size(kDrive), track.size()) << xml;
    const ProgramResult geo =
        RunMdstore({"export", "--format", "geojson", dir.base}, dir.env.Root());
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

    // KML: the GPX points as a gx:Track, a when for each coord, the bookmark where the waypoint is.
    const std::string copy = dir.env.Path("copy.mdj");
    ASSERT_EQ(0, RunMdstore({"copy", dir.base, copy}, dir.env.Root()).exitCode);
    const ProgramResult exported = RunMdstore({"export", "--format", "kml", copy}, dir.env.Root());
    ASSERT_EQ(0, exported.exitCode) << exported.err;
    const std::string& kml = exported.out;
    const std::size_t trackAt = kml.find("<gx:Track>");
    ASSERT_NE(std::string::npos, trackAt) << kml;
    EXPECT_EQ(track, KmlPairs(kml, "<gx:coord>", trackAt)) << kml;
    EXPECT_EQ(track.size(), Count(kml, "<when>", trackAt)) << kml;
    EXPECT_EQ(waypoints, KmlPairs(kml, "<Point><coordinates>")) << kml;
    EXPECT_EQ(1u, Count(kml, "<TimeStamp><when>20")) << kml;

    // Damage is told once, though these formats read the file more than once.
    std::string bytes = ReadFileText(copy);
    bytes[bytes.size() / 2] ^= 0x55;
    WriteBytes(copy, bytes);
    for (const char* format : {"gpx", "geojson", "kml"}) {
        const ProgramResult damaged =
            RunMdstore({"export", "--format", format, copy}, dir.env.Root());
        EXPECT_EQ(1u, Count(damaged.err, "\n")) << format << damaged.err;
    }
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
