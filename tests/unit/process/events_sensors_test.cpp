// Microphones, temperatures and crash detection as the store records them.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Payload;

namespace {
const unsigned int kMicStatus = 40001;
const unsigned int kTemp = 40002;
const unsigned int kCrash = 40003;

Payload MicState(unsigned int tick, unsigned int mic, bool present, bool active) {
    return Payload()
        .Add(tick)
        .Add(mic)
        .Add(static_cast<unsigned char>(present))
        .Add(static_cast<unsigned char>(active));
}

struct MicRecord {
    std::string op;
    long long mic;
    std::string value;
    std::string flag;
    long long tick;
    bool operator==(const MicRecord& o) const {
        return op == o.op && mic == o.mic && value == o.value && flag == o.flag && tick == o.tick;
    }
};

std::ostream& operator<<(std::ostream& out, const MicRecord& r) {
    return out << r.op << " mic " << r.mic << " " << r.value << " flag " << r.flag << " tick "
               << r.tick;
}

std::vector<MicRecord> MicRecords(const std::vector<StoreRecord>& records) {
    std::vector<MicRecord> out;
    for (const StoreRecord& r : records) {
        if (r.Op() == "ReportMicPresent") {
            out.push_back({r.Op(), r.Int("mic"), r.Get("present"), r.Get("flag"), r.Int("tick")});
        } else if (r.Op() == "ReportMicState") {
            out.push_back({r.Op(), r.Int("mic"), r.Get("active"), r.Get("flag"), r.Int("tick")});
        }
    }
    return out;
}
}  // namespace

TEST(EventsSensors, MicrophoneNumbersAboveThreeAreRejected) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 1);
        ASSERT_TRUE(events::Send(h, MicState(10, 3, true, false), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(11, 4, true, true), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(12, 0xFFFFFFFFu, true, true), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(13, 0, false, true), events::kMicState));
        text = log.Text();
    }
    EXPECT_NE(std::string::npos, text.find(" ReportMicState: Invalid mic no 4\n")) << text;
    EXPECT_NE(std::string::npos, text.find(" ReportMicState: Invalid mic no 4294967295\n")) << text;

    const std::vector<MicRecord> expected = {
        {"ReportMicPresent", 3, "true", "true", 10},
        {"ReportMicState", 3, "false", "true", 10},
        {"ReportMicPresent", 0, "false", "true", 13},
        {"ReportMicState", 0, "true", "true", 13},
    };
    EXPECT_EQ(expected, MicRecords(h.Records()));
}

TEST(EventsSensors, MicStatusEntriesPassUncheckedWithTheResponseTick) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::MicMgrStatusHandler, kMicStatus);

    MicStatusResponse status;
    status.Add(e_Mic_2, true, true);
    status.Add(static_cast<e_MicrophonePosition>(7), false, true);
    status.tick = 500;
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 32 | 128);
        ASSERT_TRUE(h.DeliverItem(kMicStatus, status));
        MicStatusResponse empty;
        empty.tick = 501;
        ASSERT_TRUE(h.DeliverItem(kMicStatus, empty));
        text = log.Text();
    }
    EXPECT_NE(std::string::npos, text.find(" 2 active=1 present=1\n")) << text;
    EXPECT_NE(std::string::npos, text.find(" 7 active=1 present=0\n")) << text;
    EXPECT_EQ(2u, events::Count(text, " ReportMicStatus\n")) << text;
    EXPECT_EQ(4u, events::Count(text, "\n")) << text;

    h.manager->ReportMicStatus(status, false);
    const std::vector<MicRecord> expected = {
        {"ReportMicPresent", 2, "true", "true", 500},   {"ReportMicState", 2, "true", "true", 500},
        {"ReportMicPresent", 7, "false", "true", 500},  {"ReportMicState", 7, "true", "true", 500},
        {"ReportMicPresent", 2, "true", "false", 500},  {"ReportMicState", 2, "true", "false", 500},
        {"ReportMicPresent", 7, "false", "false", 500}, {"ReportMicState", 7, "true", "false", 500},
    };
    EXPECT_EQ(expected, MicRecords(h.Records()));
}

TEST(EventsSensors, TemperaturesMapToSensorsInStoreOrder) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::TempChangeHandler, kTemp);

    TempStatus temp;
    temp.temperatures[0] = -40;  // sensor 3
    temp.temperatures[1] = 21;   // sensor 2
    temp.temperatures[2] = 85;   // sensor 1
    temp.temperatures[3] = -1;   // sensor 0
    temp.tick = 900;
    ASSERT_TRUE(h.DeliverItem(kTemp, temp));
    h.manager->ReportTempChange(temp, false);

    const std::vector<StoreRecord> temps = h.RecordsOf("ReportTemp");
    ASSERT_EQ(8u, temps.size());
    const long long sensors[] = {3, 0, 1, 2};
    const long long values[] = {-40, -1, 85, 21};
    for (unsigned int i = 0; i < temps.size(); ++i) {
        EXPECT_EQ(sensors[i % 4], temps[i].Int("sensor")) << i;
        EXPECT_EQ(values[i % 4], temps[i].Int("value")) << i;
        EXPECT_EQ(900, temps[i].Int("tick")) << i;
        EXPECT_EQ(i < 4 ? "true" : "false", temps[i].Get("flag")) << i;
    }
}

TEST(EventsSensors, CrashIsAlwaysAnEvent) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::CrashDetectHandler, kCrash);

    CrashItem crash;
    crash.crash = true;
    crash.tick = 70;
    ASSERT_TRUE(h.DeliverItem(kCrash, crash));
    crash.crash = false;
    crash.tick = 71;
    ASSERT_TRUE(h.DeliverItem(kCrash, crash));
    h.manager->HandleCrash(false, 72);

    const std::vector<events::StateEntry> expected = {
        {66, true, 70}, {67, true, 71}, {67, true, 72}};
    EXPECT_EQ(expected, events::StateEntries(h.Records()));
}
