// mdstore report opened in a real browser: the page renders its drawings and needs nothing
// outside itself.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <cstdlib>
#include <string>

#include "DataStore.h"
#include "Subprocess.h"
#include "TestEnv.h"

TEST(Report, RendersInABrowserFromTheFileAlone) {
    // The browser runs natively beside the build under test (a shell, never the emulator).
    if (std::system("command -v chromium >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    TestEnv env;
    ASSERT_EQ(::mkdir((env.Media() + "/metadata").c_str(), 0755), 0);
    {
        // A drive north of the equator with a glitch far away, brakes, a microphone, a camera
        // and two bookmarks.
        DataStoreNormal store(env.MetadataPath());
        ASSERT_TRUE(store.Open());
        store.TimerTick(1000);
        store.ReportStateData(e_Tag_RecordingStarted, true, 1000);
        for (unsigned i = 0; i < 10; ++i) {
            GpsStatusItem gps;
            gps.latDegrees = i == 5 ? 10 : 59;  // the glitch
            gps.latMinutes = 20;
            gps.latMinuteFraction = 100 * i;
            gps.latHemisphere = 1;
            gps.lonDegrees = 18;
            gps.lonMinutes = 3;
            gps.lonHemisphere = 1;
            store.ReportGps(gps, 1000 + 1000 * i, true);
            store.ReportSpeed(1, static_cast<unsigned short>(10 * i), true, 1000 + 1000 * i,
                              e_Tag_None);
        }
        store.ReportStateData(e_Tag_BrakesOn, true, 3000);
        store.ReportStateData(e_Tag_BrakesOff, true, 5000);
        store.ReportMicState(e_Mic_1, true, true, 2000);
        store.ReportCameraState(e_Camera_2, e_CameraState_Recording, true, 1500);
        store.ReportBookmark(4000);
        store.ReportBookmark(8000);
        store.TimerTick(10000);
        store.ReportShutdownData();
        store.Close();
    }
    const std::string page = env.Path("drive.html");
    const ProgramResult made = RunMdstore({"report", "-o", page, env.MetadataPath()}, env.Root());
    ASSERT_EQ(made.exitCode, 0) << made.err;

    const std::string html = ReadFileText(page);
    for (const char* outside : {"http:", "https:", "//", "src=", "href=", "url(", "@import"}) {
        EXPECT_EQ(html.find(outside), std::string::npos) << "the page refers outside: " << outside;
    }
    const std::string command =
        "chromium --headless --no-sandbox --disable-gpu --user-data-dir=" + env.Path("browser") +
        " --dump-dom file://" + page + " 2>/dev/null";
    std::string dom;
    ASSERT_EQ(Shell(command, dom), 0) << dom;

    // What the browser built: the map with the nine positions of the drive (the glitch left
    // out and named), the lanes with their spans, both bookmarks in lane and map, the speed.
    EXPECT_NE(dom.find("<svg id=\"map\""), std::string::npos);
    EXPECT_EQ(Count(dom, "class=\"fix\""), 9u);  // every drawn position: its dot and time
    EXPECT_NE(dom.find("1 more positions, over 50 km away"), std::string::npos);
    EXPECT_NE(dom.find("class=\"track\""), std::string::npos);
    for (const char* lane : {"recording", "brakes", "microphone 1", "camera 2"}) {
        const std::size_t at = dom.find("data-lane=\"" + std::string(lane) + "\"");
        ASSERT_NE(at, std::string::npos) << lane;
        EXPECT_LT(dom.find("class=\"span\"", at), dom.find("</g>", at)) << lane;
    }
    // From the brakes' on to their off (seconds, or UTC once the store holds the clock).
    const std::size_t brakes = dom.find("<title>brakes on from ");
    ASSERT_NE(brakes, std::string::npos);
    const std::string title = dom.substr(brakes, dom.find("</title>", brakes) - brakes);
    EXPECT_NE(title.find("(tick 3000) to "), std::string::npos) << title;
    EXPECT_NE(title.find("(tick 5000)"), std::string::npos) << title;
    EXPECT_EQ(Count(dom, "class=\"mark\""), 2u);
    EXPECT_EQ(Count(dom, "<g class=\"bookmark\""), 2u);
    EXPECT_NE(dom.find("<polyline class=\"speed-gps\""), std::string::npos);
    EXPECT_NE(dom.find("<pre id=\"summary\">"), std::string::npos);
}
