// The simulated metadata generator, driven with scripted draws through the real store and the
// real shared block.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>

#include "HostInspect.h"
#include "ManagerHarness.h"
#include "ProcessState.h"

namespace {

// Raw draws handed out in order; the simulator must use exactly those scripted per call.
std::deque<int> gDraws;
int ScriptedDraw() {
    if (gDraws.empty()) {
        ADD_FAILURE() << "the simulator drew more often than scripted";
        return 0;
    }
    const int value = gDraws.front();
    gDraws.pop_front();
    return value;
}

// One full call, each die given as the value it should show.
struct Dice {
    int input = 30;    // d30: 1..6 toggle an input
    int gps = 50;      // d100: 1..39 fix, 81..90 move, 91..100 lose the fix and move
    int mic = 100;     // d100: 1..19 toggle a microphone
    int bookmark = 0;  // 0..99: above 89 a bookmark
    int radar = 30;    // d100, the band table
};

class Simulator {
public:
    explicit Simulator(ManagerHarness& h) : h_(h) {
        gDraws.clear();
        h_.manager->SetSimulatorDraw(ScriptedDraw);
        tickFile_ = h_.env.WriteFile("tick", "4242");
    }
    void Full(const Dice& dice) {
        gDraws = {dice.input - 1, dice.gps - 1, dice.mic - 1, dice.bookmark, dice.radar - 1};
        h_.manager->SimulateData();
        EXPECT_TRUE(gDraws.empty()) << "the simulator drew less often than scripted";
    }
    void RadarOnly(int radar) {
        gDraws = {radar - 1};
        h_.manager->SimulateData();
        EXPECT_TRUE(gDraws.empty());
    }
    const std::string& TickFile() const { return tickFile_; }

private:
    ManagerHarness& h_;
    std::string tickFile_;
};

// The records of the simulation: everything but the store's own snapshots and the closing
// record of the harness.
std::vector<StoreRecord> Reports(ManagerHarness& h) {
    std::vector<StoreRecord> reports;
    for (const StoreRecord& r : h.Records()) {
        if (r.Op() != "WriteFullState" && r.Op() != "ReportShutdownData") {
            reports.push_back(r);
        }
    }
    return reports;
}

std::vector<std::string> Ops(const std::vector<StoreRecord>& records) {
    std::vector<std::string> ops;
    for (const StoreRecord& r : records) {
        ops.push_back(r.Op());
    }
    return ops;
}

}  // namespace

TEST(Simulator, FirstFullCallReportsEveryStepAndFillsTheSharedRecord) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Simulator sim(h);
    ::setenv("HOST_SYSTICK_FILE", sim.TickFile().c_str(), 1);
    Dice dice;
    dice.input = 2;      // brakes on
    dice.gps = 39;       // fix, no movement
    dice.mic = 5;        // microphone 1 on
    dice.bookmark = 90;  // a bookmark
    dice.radar = 61;     // reading, every counter steps
    sim.Full(dice);
    ::unsetenv("HOST_SYSTICK_FILE");

    const SharedBlock shared;
    EXPECT_EQ(1, shared.At<unsigned char>(0x04));
    EXPECT_EQ('N', shared.At<char>(0x08));
    EXPECT_EQ(10u, shared.At<unsigned int>(0x0C));
    EXPECT_EQ(20, shared.At<unsigned short>(0x10));
    EXPECT_EQ(0u, shared.At<unsigned int>(0x14));
    EXPECT_EQ('E', shared.At<char>(0x18));
    EXPECT_EQ(15u, shared.At<unsigned int>(0x1C));
    EXPECT_EQ(0, shared.At<unsigned short>(0x20));
    EXPECT_EQ(0u, shared.At<unsigned int>(0x24));
    EXPECT_EQ(100, shared.At<unsigned short>(0x28));
    EXPECT_EQ(5, shared.At<unsigned short>(0x2A));
    EXPECT_EQ(1, shared.At<int>(0x2C));
    EXPECT_EQ(2, shared.At<int>(0x30));
    EXPECT_EQ(0, shared.At<int>(0x34));
    EXPECT_EQ(5, shared.At<int>(0x38));
    EXPECT_EQ(21, shared.At<int>(0x3C));
    EXPECT_EQ(100, shared.At<unsigned short>(0x40));
    EXPECT_EQ(1, shared.At<unsigned short>(0x4C));
    for (unsigned int offset : {0x4Eu, 0x50u, 0x52u, 0x54u}) {
        EXPECT_EQ(1, shared.At<unsigned short>(offset)) << offset;
    }

    const std::vector<StoreRecord> r = Reports(h);
    const std::vector<std::string> expected = {
        "ReportStateData", "ReportStateData",  "ReportStateData",  "ReportStateData",
        "ReportStateData", "ReportStateData",  "ReportGpsState",   "ReportGps",
        "ReportSpeed",     "ReportMicPresent", "ReportMicState",   "ReportMicPresent",
        "ReportMicState",  "ReportMicPresent", "ReportMicState",   "ReportMicPresent",
        "ReportMicState",  "ReportBookmark",   "ReportRadarState", "ReportRadar"};
    ASSERT_EQ(expected, Ops(r));
    const long long tags[] = {53, 56, 55, 61, 63, 69};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(tags[i], r[i].Int("tag"));
        EXPECT_EQ("true", r[i].Get("flag"));
        EXPECT_EQ(4242, r[i].Int("tick"));
    }
    EXPECT_EQ("true", r[6].Get("valid"));
    EXPECT_EQ(1, r[8].Int("source"));
    EXPECT_EQ(100, r[8].Int("speed"));
    EXPECT_EQ(4242, r[8].Int("tick"));
    for (int mic = 0; mic < 4; ++mic) {
        EXPECT_EQ(mic, r[9 + 2 * mic].Int("mic"));
        EXPECT_EQ("true", r[9 + 2 * mic].Get("present"));
        EXPECT_EQ(mic == 1 ? "true" : "false", r[10 + 2 * mic].Get("active"));
    }
    EXPECT_EQ(4242, r[17].Int("tick"));
    EXPECT_EQ("true", r[18].Get("valid"));
    // The radar reading goes out without the tick: C, A, D.
    EXPECT_EQ(1, r[19].Int("radar"));
    EXPECT_EQ(1, r[19].Int("speedA"));
    EXPECT_EQ(1, r[19].Int("speedB"));
    EXPECT_EQ(1, r[19].Int("speedC"));
    EXPECT_EQ(0, r[19].Int("tick"));
}

TEST(Simulator, LosingTheFixClearsTheSharedRecordAndMovingContinues) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Simulator sim(h);
    Dice fix;
    fix.gps = 1;
    sim.Full(fix);
    Dice lose;
    lose.gps = 91;
    sim.Full(lose);
    {
        const SharedBlock shared;
        EXPECT_EQ(0, shared.At<int>(0x2C));
        EXPECT_EQ(0, shared.At<int>(0x30));
        EXPECT_EQ(0x07FFFFFF, shared.At<int>(0x34));
        EXPECT_EQ(0, shared.At<int>(0x38));
        EXPECT_EQ(-32, shared.At<int>(0x3C));
        EXPECT_EQ(0, shared.At<unsigned short>(0x28));
        EXPECT_EQ(0, shared.At<unsigned short>(0x40));
        // The position is not written without a fix.
        EXPECT_EQ(0u, shared.At<unsigned int>(0x14));
    }
    // Moving without a fix still reports no fix.
    Dice drift;
    drift.gps = 85;
    sim.Full(drift);
    // The fix comes back after two movements.
    sim.Full(fix);
    const SharedBlock shared;
    EXPECT_EQ(1, shared.At<int>(0x2C));
    EXPECT_EQ(0, shared.At<int>(0x34));
    EXPECT_EQ(20u, shared.At<unsigned int>(0x14));
    EXPECT_EQ(20u, shared.At<unsigned int>(0x24));
    // The longitude minutes slot carries the fraction.
    EXPECT_EQ(20, shared.At<unsigned short>(0x20));
    EXPECT_EQ(110, shared.At<unsigned short>(0x40));

    const std::vector<StoreRecord> r = Reports(h);
    const std::vector<StoreRecord> states = WithOp(r, "ReportGpsState");
    ASSERT_EQ(4u, states.size());
    EXPECT_EQ("true", states[0].Get("valid"));
    EXPECT_EQ("false", states[1].Get("valid"));
    EXPECT_EQ("false", states[2].Get("valid"));
    EXPECT_EQ("true", states[3].Get("valid"));
    const std::vector<StoreRecord> speeds = WithOp(r, "ReportSpeed");
    ASSERT_EQ(2u, speeds.size());
    EXPECT_EQ(100, speeds[0].Int("speed"));
    EXPECT_EQ(110, speeds[1].Int("speed"));
    const std::vector<StoreRecord> invalid = WithOp(r, "ReportValidSpeed");
    int gpsInvalid = 0;
    for (const StoreRecord& record : invalid) {
        gpsInvalid += record.Int("source") == 1 ? 1 : 0;
    }
    EXPECT_EQ(2, gpsInvalid);
    EXPECT_EQ(2u, WithOp(r, "ReportGps").size());
}

TEST(Simulator, SpeedRampsBetweenZeroAndThreeHundredFiveAndPositionCarries) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Simulator sim(h);
    Dice dice;
    dice.gps = 1;
    sim.Full(dice);
    dice.gps = 90;  // move, keeping the fix
    for (int move = 1; move <= 240; ++move) {
        sim.Full(dice);
    }
    const std::vector<StoreRecord> r = Reports(h);
    const std::vector<StoreRecord> speeds = WithOp(r, "ReportSpeed");
    const std::vector<StoreRecord> gps = WithOp(r, "ReportGps");
    ASSERT_EQ(241u, speeds.size());
    ASSERT_EQ(241u, gps.size());
    // speeds[k] and gps[k] are after k movements.
    EXPECT_EQ(100, speeds[0].Int("speed"));
    EXPECT_EQ(300, speeds[40].Int("speed"));
    EXPECT_EQ(305, speeds[41].Int("speed"));
    EXPECT_EQ(300, speeds[42].Int("speed"));
    EXPECT_EQ(5, speeds[101].Int("speed"));
    EXPECT_EQ(0, speeds[102].Int("speed"));
    EXPECT_EQ(5, speeds[103].Int("speed"));
    EXPECT_EQ(305, speeds[163].Int("speed"));
    EXPECT_EQ(0, speeds[224].Int("speed"));
    EXPECT_EQ(80, speeds[240].Int("speed"));
    for (const StoreRecord& s : speeds) {
        ASSERT_GE(s.Int("speed"), 0);
        ASSERT_LE(s.Int("speed"), 305);
    }

    auto position = [&](int k, const char* side) {
        const std::string p = std::string("item.") + side;
        return std::to_string(gps[k].Int(p + "Degrees")) + "/" +
               std::to_string(gps[k].Int(p + "Minutes")) + "/" +
               std::to_string(gps[k].Int(p + "MinuteFraction"));
    };
    EXPECT_EQ("10/20/0", position(0, "lat"));
    EXPECT_EQ("10/20/50", position(5, "lat"));
    EXPECT_EQ("10/21/0", position(6, "lat"));
    EXPECT_EQ("10/59/50", position(239, "lat"));
    EXPECT_EQ("11/0/0", position(240, "lat"));
    EXPECT_EQ("15/25/0", position(0, "lon"));
    EXPECT_EQ("15/59/50", position(209, "lon"));
    EXPECT_EQ("16/0/0", position(210, "lon"));
    EXPECT_EQ("16/5/0", position(240, "lon"));

    const SharedBlock shared;
    EXPECT_EQ(11u, shared.At<unsigned int>(0x0C));
    EXPECT_EQ(0, shared.At<unsigned short>(0x10));
    EXPECT_EQ(16u, shared.At<unsigned int>(0x1C));
    EXPECT_EQ(80, shared.At<unsigned short>(0x28));
}

TEST(Simulator, RadarOnlyFollowsTheBandTable) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    gRadarOnlyMode = true;
    Simulator sim(h);
    struct Step {
        int d100;
        bool active;
        unsigned short status;
        int a, b, c, d;
    };
    const Step steps[] = {
        {1, false, 128, 0, 0, 0, 0},
        {4, false, 128, 0, 0, 0, 0},
        {5, true, 8, 0, 0, 0, 0},
        {20, true, 8, 0, 0, 0, 0},
        {21, true, 8, 0, 1, 0, 1},
        {24, true, 8, 0, 2, 0, 2},
        {25, true, 8, 0, 3, 0, 3},
        {40, true, 8, 0, 4, 0, 4},
        {41, true, 8, 0, 5, 1, 5},
        {50, true, 8, 0, 6, 2, 6},
        {51, true, 8, 1, 7, 3, 7},
        {60, true, 8, 2, 8, 4, 8},
        {61, true, 1, 3, 9, 5, 9},
        {100, true, 1, 4, 10, 6, 10},
        {2, false, 128, 4, 10, 6, 10},
        // Unchanged bands leave the radar off but still step.
        {30, false, 128, 4, 11, 6, 11},
        {55, false, 128, 5, 12, 7, 12},
        {70, true, 1, 6, 13, 8, 13},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.d100);
        sim.RadarOnly(step.d100);
        const SharedBlock shared;
        EXPECT_EQ(step.status, shared.At<unsigned short>(0x4C));
        if (step.active) {
            EXPECT_EQ(step.b, shared.At<unsigned short>(0x4E));
            EXPECT_EQ(step.c, shared.At<unsigned short>(0x50));
            EXPECT_EQ(step.a, shared.At<unsigned short>(0x52));
            EXPECT_EQ(step.d, shared.At<unsigned short>(0x54));
        }
    }
    gRadarOnlyMode = false;

    // Radar alone: two reports per call, nothing else.
    const std::vector<StoreRecord> r = Reports(h);
    ASSERT_EQ(2 * (sizeof steps / sizeof steps[0]), r.size());
    for (std::size_t i = 0; i < sizeof steps / sizeof steps[0]; ++i) {
        SCOPED_TRACE(steps[i].d100);
        const StoreRecord& state = r[2 * i];
        const StoreRecord& next = r[2 * i + 1];
        EXPECT_EQ("ReportRadarState", state.Op());
        EXPECT_EQ(steps[i].active ? "true" : "false", state.Get("valid"));
        if (steps[i].active) {
            EXPECT_EQ("ReportRadar", next.Op());
            EXPECT_EQ(steps[i].c, next.Int("speedA"));
            EXPECT_EQ(steps[i].a, next.Int("speedB"));
            EXPECT_EQ(steps[i].d, next.Int("speedC"));
        } else {
            EXPECT_EQ("ReportValidSpeed", next.Op());
            EXPECT_EQ(2, next.Int("source"));
            EXPECT_EQ("false", next.Get("valid"));
        }
    }
}

TEST(Simulator, RadarCounterTurnsAtOneHundredFiftyOne) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    gRadarOnlyMode = true;
    Simulator sim(h);
    sim.RadarOnly(61);  // radar on, the first step
    for (int step = 2; step <= 153; ++step) {
        sim.RadarOnly(51);
    }
    gRadarOnlyMode = false;
    const std::vector<StoreRecord> radar = WithOp(Reports(h), "ReportRadar");
    ASSERT_EQ(153u, radar.size());
    // Counter A is the reading's second speed; radar[k] is after k + 1 steps.
    EXPECT_EQ(150, radar[149].Int("speedB"));
    EXPECT_EQ(151, radar[150].Int("speedB"));
    EXPECT_EQ(150, radar[151].Int("speedB"));  // 152 steps: 150 and falling
    EXPECT_EQ(149, radar[152].Int("speedB"));
    EXPECT_EQ(149, radar[152].Int("speedA"));
    EXPECT_EQ(149, radar[152].Int("speedC"));
}
