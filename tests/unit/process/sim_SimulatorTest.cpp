// The simulated metadata generator, driven with scripted draws through the real store and the
// real shared block.
#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "ManagerHarness.h"
#include "ProcessState.h"
#include "SimulatorDrawFile.h"
#include "SimulatorDrawLog.h"
#include "TestEnv.h"

namespace {

// Raw draws handed out in order; the simulator must use exactly those scripted per call.
std::deque<int> gDraws;
int ScriptedDraw(void*) {
    if (gDraws.empty()) {
        ADD_FAILURE() << "the simulator drew more often than scripted";
        return 0;
    }
    const int value = gDraws.front();
    gDraws.pop_front();
    return value;
}

// One call of the simulator, each draw given as the face its die should show.
void Simulate(ManagerHarness& h, const std::deque<int>& faces) {
    gDraws.clear();
    for (int face : faces) {
        gDraws.push_back(face - 1);
    }
    h.manager->SetSimulatorDraw(ScriptedDraw);
    h.manager->SimulateData();
    EXPECT_TRUE(gDraws.empty()) << "the simulator drew less often than scripted";
}

// A full call. input d30: 1..6 toggle an input; gps d100: 1..39 fix, 81..90 move, 91..100
// lose the fix and move; mic d100: 1..19 toggle a microphone; bookmark: above 90 a bookmark;
// radar d100: the band table.
void Full(ManagerHarness& h, int gps, int input = 30, int mic = 100, int bookmark = 1,
          int radar = 30) {
    Simulate(h, {input, gps, mic, bookmark, radar});
}

// The records of the simulation, without the store's snapshots and the harness's closing one.
std::vector<StoreRecord> Reports(ManagerHarness& h) {
    std::vector<StoreRecord> reports;
    for (const StoreRecord& r : h.Records()) {
        if (r.Op() != "WriteFullState" && r.Op() != "ReportShutdownData") {
            reports.push_back(r);
        }
    }
    return reports;
}

}  // namespace

// The first full call, then a lost fix, a move without one and the fix again.
TEST(Simulator, FullCallsReportEveryStepAndFillTheSharedRecord) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    ScopedEnv tick("HOST_SYSTICK_FILE", h.env.WriteFile("tick", "4242"));
    // Brakes on, a fix without movement, microphone 1 on, a bookmark, a radar reading that
    // steps every counter.
    Full(h, 39, 2, 5, 91, 61);
    ExpectFields({{0x04, 1, 1},   {0x08, 1, 'N'}, {0x0C, 4, 10}, {0x10, 2, 20}, {0x14, 4, 0},
                  {0x18, 1, 'E'}, {0x1C, 4, 15},  {0x20, 2, 0},  {0x24, 4, 0},  {0x28, 2, 100},
                  {0x2A, 2, 5},   {0x2C, 4, 1},   {0x30, 4, 2},  {0x34, 4, 0},  {0x38, 4, 5},
                  {0x3C, 4, 21},  {0x40, 2, 100}, {0x4C, 2, 1},  {0x4E, 2, 1},  {0x50, 2, 1},
                  {0x52, 2, 1},   {0x54, 2, 1}});
    Full(h, 91);  // the fix is lost
    ExpectFields({{0x2C, 4, 0}, {0x30, 4, 0}, {0x38, 4, 0}, {0x3C, 4, -32}, {0x28, 2, 0}});
    ExpectFields({{0x40, 2, 0}, {0x14, 4, 0}, {0x34, 4, 0x07FFFFFF}});
    Full(h, 85);  // moving without a fix still reports none
    Full(h, 1);   // the fix is back after two movements; the lon minutes slot has the fraction
    ExpectFields(
        {{0x2C, 4, 1}, {0x34, 4, 0}, {0x14, 4, 20}, {0x24, 4, 20}, {0x20, 2, 20}, {0x40, 2, 110}});
    const std::vector<StoreRecord> r = Reports(h);
    // The first call: inputs in their order with the tick, then GPS, microphones 0..3, the
    // bookmark, and the radar reading (C, A, D) without the tick.
    const std::vector<std::string> all =
        Brief(r, {},
              {"tag", "flag", "valid", "source", "speed", "mic", "present", "active", "radar",
               "speedA", "speedB", "speedC", "tick"});
    ASSERT_GE(all.size(), 20u);
    EXPECT_EQ(
        "StateData 53 true 4242, StateData 56 true 4242, StateData 55 true 4242, "
        "StateData 61 true 4242, StateData 63 true 4242, StateData 69 true 4242, "
        "GpsState true true, Gps true 4242, Speed 0 true 1 100 4242, MicPresent true 0 true 4242, "
        "MicState true 0 false 4242, MicPresent true 1 true 4242, MicState true 1 true 4242, "
        "MicPresent true 2 true 4242, MicState true 2 false 4242, MicPresent true 3 true 4242, "
        "MicState true 3 false 4242, Bookmark 4242, RadarState true true 1, "
        "Radar 0 true 1 1 1 1 0",
        Joined(std::vector<std::string>(all.begin(), all.begin() + 20)));
    EXPECT_EQ(
        "GpsState true, Gps, Speed 1 100, GpsState false, ValidSpeed false 1, GpsState false, "
        "ValidSpeed false 1, GpsState true, Gps, Speed 1 110",
        Joined(Brief(r, {"ReportGpsState", "ReportGps", "ReportSpeed", "ReportValidSpeed"},
                     {"valid", "source", "speed"})));
}

// 240 movements with the fix kept, and a radar draw that steps every counter each call.
TEST(Simulator, SpeedAndRadarRampsTurnAndPositionCarries) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Full(h, 1, 30, 100, 1, 61);
    for (int move = 1; move <= 240; ++move) {
        Full(h, 90, 30, 100, 1, 61);  // move, keeping the fix
    }
    const std::vector<StoreRecord> r = Reports(h);
    const std::vector<StoreRecord> speeds = WithOp(r, "ReportSpeed");
    const std::vector<StoreRecord> gps = WithOp(r, "ReportGps");
    const std::vector<StoreRecord> radar = WithOp(r, "ReportRadar");
    ASSERT_EQ(241u, speeds.size());
    ASSERT_EQ(241u, gps.size());
    ASSERT_EQ(241u, radar.size());
    // speeds[k] and gps[k] are after k movements.
    const int ramp[][2] = {{0, 100}, {40, 300}, {41, 305},  {42, 300}, {101, 5},
                           {102, 0}, {103, 5},  {163, 305}, {224, 0},  {240, 80}};
    for (const auto& at : ramp) {
        EXPECT_EQ(at[1], speeds[at[0]].Int("speed")) << at[0];
    }
    // radar[k] is after k + 1 steps; counter A is the reading's second speed: 151, then
    // falling after 152 steps, and 61 after 241.
    const int counter[][2] = {{149, 150}, {150, 151}, {151, 150}, {152, 149}, {240, 61}};
    for (const auto& at : counter) {
        EXPECT_EQ(at[1], radar[at[0]].Int("speedB")) << at[0];
        EXPECT_EQ(at[1], radar[at[0]].Int("speedA")) << at[0];
    }
    // Latitude and longitude as degrees, minutes and fraction each.
    const std::vector<std::string> positions =
        Brief(gps, {},
              {"item.latDegrees", "item.latMinutes", "item.latMinuteFraction", "item.lonDegrees",
               "item.lonMinutes", "item.lonMinuteFraction"});
    const std::pair<int, const char*> carries[] = {
        {0, "10 20 0 15 25 0"},     {5, "10 20 50 15 25 50"}, {6, "10 21 0 15 26 0"},
        {209, "10 54 50 15 59 50"}, {210, "10 55 0 16 0 0"},  {239, "10 59 50 16 4 50"},
        {240, "11 0 0 16 5 0"}};
    for (const auto& at : carries) {
        EXPECT_EQ(std::string("Gps ") + at.second, positions[at.first]) << at.first;
    }
    ExpectFields({{0x0C, 4, 11}, {0x10, 2, 0}, {0x1C, 4, 16}, {0x28, 2, 80}});
}

// Radar only: a draw in each band, at the edges that tell the bands apart, then the bands
// that leave the radar as it is. Each call reports the radar alone, two records.
TEST(Simulator, RadarOnlyFollowsTheBandTable) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    gRadarOnlyMode = true;
    struct Step {
        int d100;
        bool active;
        long long status, a, b, c, d;
    };
    const Step steps[] = {
        {4, false, 128, 0, 0, 0, 0},  {20, true, 8, 0, 0, 0, 0},    {21, true, 8, 0, 1, 0, 1},
        {40, true, 8, 0, 2, 0, 2},    {41, true, 8, 0, 3, 1, 3},    {60, true, 8, 1, 4, 2, 4},
        {61, true, 1, 2, 5, 3, 5},    {100, true, 1, 3, 6, 4, 6},   {1, false, 128, 3, 6, 4, 6},
        {30, false, 128, 3, 7, 4, 7}, {55, false, 128, 4, 8, 5, 8}, {70, true, 1, 5, 9, 6, 9},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.d100);
        Simulate(h, {step.d100});
        ExpectFields({{0x4C, 2, step.status}});
        if (step.active) {
            ExpectFields(
                {{0x4E, 2, step.b}, {0x50, 2, step.c}, {0x52, 2, step.a}, {0x54, 2, step.d}});
        }
    }
    gRadarOnlyMode = false;

    std::vector<std::string> expected;
    for (const Step& s : steps) {
        expected.push_back(std::string("RadarState ") + (s.active ? "true" : "false"));
        expected.push_back(s.active ? "Radar " + std::to_string(s.c) + " " + std::to_string(s.a) +
                                          " " + std::to_string(s.d)
                                    : "ValidSpeed 2 false");
    }
    EXPECT_EQ(expected, Brief(Reports(h), {}, {"source", "speedA", "speedB", "speedC", "valid"}));
}

// A bench's list of draws is taken line by line, comments and blank lines skipped; at a line
// that is no draw, and at the end of the list, the simulator goes back to the clock and says so.
TEST(Simulator, DrawFileGivesItsDrawsThenTheClock) {
    TestEnv env;
    LogCapture log(env.Path("log"), 0xFFFFFFFFu);
    SimulatorDrawFile missing;
    EXPECT_FALSE(missing.Open(env.Path("none").c_str()));
    EXPECT_EQ(1u, log.Count("cannot read"));
    const struct {
        const char* text;
        std::vector<int> draws;
        const char* said;
    } kLists[] = {
        {"# the draws of a drive kept for the bench, one a line\n5\n\n32767",
         {5, 32767},
         "ended after 2 draws"},
        {"7\n-1\n9\n", {7}, "line 2 is no draw ('-1')"},
        {"7\n1\x1b[2J\x85\n", {7}, "line 2 is no draw ('1?[2J?')"},
        {"7\n123456789012345678901234567890123\n",
         {7},
         "line 2 is no draw ('12345678901234567890123...')"},
    };
    for (const auto& list : kLists) {
        SimulatorDrawFile file;
        ASSERT_TRUE(file.Open(env.WriteFile("draws", list.text).c_str()));
        for (int draw : list.draws) {
            EXPECT_EQ(draw, SimulatorDrawFile::Next(&file)) << list.text;
        }
        SimulatorDrawFile::Next(&file);  // the clock's
        EXPECT_EQ(1u, log.Count(list.said)) << log.Text();
    }
}

// The draws log: a pass is written whole once the next begins, or at the end. A log that cannot
// be written (a full disk) is said once, and the simulator goes on drawing.
TEST(Simulator, DrawLogWritesWholePassesAndOutlivesAFullDisk) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    LogCapture log(h.env.Path("log"), 0xFFFFFFFFu);
    ScopedEnv tick("HOST_SYSTICK_FILE", h.env.WriteFile("tick", "4242"));
    gRadarOnlyMode = true;
    for (const std::string& path : {h.env.Path("draws.log"), std::string("/dev/full")}) {
        SimulatorDrawLog drawLog;
        drawLog.Start(path.c_str(), true, ScriptedDraw, nullptr);
        gDraws = {7, 61, 3};
        h.manager->SetSimulatorDraw(SimulatorDrawLog::Next, &drawLog);
        h.manager->SetSimulatorPassMark(SimulatorDrawLog::Pass, &drawLog);
        for (int pass = 0; pass < 3; ++pass) {
            h.manager->SimulateData();
        }
        h.manager->SetSimulatorPassMark(nullptr, nullptr);
        EXPECT_TRUE(gDraws.empty()) << path;
        if (path != "/dev/full") {
            EXPECT_EQ("# simulator -s -r\n# pass 4242\n7\n# pass 4242\n61\n", ReadFileText(path));
        }
    }
    gRadarOnlyMode = false;
    EXPECT_EQ(1u, log.Count("cannot write /dev/full")) << log.Text();
    EXPECT_EQ(6u, WithOp(Reports(h), "ReportRadarState").size());
}
