// Microphones, temperatures and crash detection as the store records them.
#include <gtest/gtest.h>

#include "events_support.h"

using events::MicState;

TEST(EventsSensors, MicsTemperaturesAndCrashes) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::MicMgrStatusHandler, 40001);
    events::Bind(h, MetadataMgr::TempChangeHandler, 40002);
    events::Bind(h, MetadataMgr::CrashDetectHandler, 40003);
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        ASSERT_TRUE(events::Send(h, MicState(10, 3, true, false), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(11, 4, true, true), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(12, 0xFFFFFFFFu, true, true), events::kMicState));
        ASSERT_TRUE(events::Send(h, MicState(13, 0, false, true), events::kMicState));
        EXPECT_EQ(1u, log.Count(" ReportMicState: Invalid mic no 4\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" ReportMicState: Invalid mic no 4294967295\n")) << log.Text();
    }
    // The status response's entries pass unchecked, with the response's tick.
    MicStatusResponse status;
    status.Add(e_Mic_2, true, true);
    status.Add(static_cast<e_MicrophonePosition>(7), false, true);
    status.tick = 500;
    {
        LogCapture log(h.env.Path("log.txt"), 32 | 128);
        ASSERT_TRUE(h.DeliverItem(40001, status));
        MicStatusResponse empty;
        ASSERT_TRUE(h.DeliverItem(40001, empty));
        EXPECT_EQ(1u, log.Count(" 2 active=1 present=1\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" 7 active=1 present=0\n")) << log.Text();
        EXPECT_EQ(2u, log.Count(" ReportMicStatus\n")) << log.Text();
        EXPECT_EQ(4u, log.Count("\n")) << log.Text();
    }
    h.manager->ReportMicStatus(status, false);

    TempStatus temp;
    const short values[] = {-40, 21, 85, -1};  // sensors 3, 2, 1, 0
    std::copy(values, values + 4, temp.temperatures);
    temp.tick = 900;
    ASSERT_TRUE(h.DeliverItem(40002, temp));
    h.manager->ReportTempChange(temp, false);
    CrashItem crash;
    crash.crash = true;
    crash.tick = 70;
    ASSERT_TRUE(h.DeliverItem(40003, crash));
    crash.crash = false;
    crash.tick = 71;
    ASSERT_TRUE(h.DeliverItem(40003, crash));
    h.manager->HandleCrash(false, 72);

    const std::vector<StoreRecord> records = h.Records();
    const std::vector<std::string> mics = {
        "MicPresent 3 true true 10",    "MicState 3 false true 10",
        "MicPresent 0 false true 13",   "MicState 0 true true 13",
        "MicPresent 2 true true 500",   "MicState 2 true true 500",
        "MicPresent 7 false true 500",  "MicState 7 true true 500",
        "MicPresent 2 true false 500",  "MicState 2 true false 500",
        "MicPresent 7 false false 500", "MicState 7 true false 500",
    };
    EXPECT_EQ(mics, Brief(records, {"ReportMicPresent", "ReportMicState"},
                          {"mic", "present", "active", "flag", "tick"}));
    const std::vector<std::string> temps = {
        "Temp 3 -40 true 900",  "Temp 0 -1 true 900",  "Temp 1 85 true 900",  "Temp 2 21 true 900",
        "Temp 3 -40 false 900", "Temp 0 -1 false 900", "Temp 1 85 false 900", "Temp 2 21 false 900",
    };
    EXPECT_EQ(temps, Brief(records, {"ReportTemp"}, {"sensor", "value", "flag", "tick"}));
    const std::vector<std::string> crashes = {"StateData 66 true 70", "StateData 67 true 71",
                                              "StateData 67 true 72"};
    EXPECT_EQ(crashes, events::States(records));
}
