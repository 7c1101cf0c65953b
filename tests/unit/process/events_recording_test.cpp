// Recording and covert mode as the store sees them: tags, flags, ticks, arrival order, and the
// zero tick only the state manager's own record start drops.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Payload;

TEST(EventsRecording, TagsFlagsTicksAndTheZeroTickRule) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::RecordStartHandler, 40001);
    events::Bind(h, MetadataMgr::RecordStopHandler, 40002);
    events::Bind(h, MetadataMgr::EnterCovertModeHandler, 40003);
    events::Bind(h, MetadataMgr::ExitCovertModeHandler, 40004);
    // {id, tick, start byte}: 40001 start, 40002 stop, 40003 enter, 40004 exit; the start byte
    // only for 13503.
    const unsigned int sent[][3] = {
        {40001, 1000, 0}, {40003, 1100, 0}, {40004, 1200, 0}, {40002, 1300, 0}, {13503, 1400, 1},
        {13503, 1500, 0}, {40002, 0, 0},    {40003, 0, 0},    {40004, 0, 0},    {13503, 0, 1},
    };
    for (const auto& e : sent) {
        Payload p = Payload().Add(e[1]);
        ASSERT_TRUE(events::Send(
            h, e[0] == events::kRecordStartStop ? p.Add<unsigned char>(e[2]) : p, e[0]));
    }
    {
        LogCapture log(h.env.Path("log.txt"));
        ASSERT_TRUE(events::Send(h, Payload().Add(0u), 40001));
        EXPECT_EQ(1u, log.Count(" RecordStartHandler\n")) << log.Text();
        EXPECT_EQ(1u, log.Count("\n")) << log.Text();
    }
    {
        // Any non-zero start byte is a start; each report says what it stores (mask 128).
        LogCapture log(h.env.Path("log.txt"), 128);
        ASSERT_TRUE(
            events::Send(h, Payload().Add(1700u).Add<unsigned char>(2), events::kRecordStartStop));
        ASSERT_TRUE(events::Send(h, Payload().Add(1800u), 40004));
        EXPECT_EQ(1u, log.Lines("ReportRecordingEvent - recordStart = 1")) << log.Text();
        EXPECT_EQ(1u, log.Lines("ReportCovertModeEvent - enabled = 0")) << log.Text();
        EXPECT_EQ(2u, log.Count("\n")) << log.Text();
    }
    h.manager->ReportRecordingEvent(true, 1600, false);

    const std::vector<std::string> expected = {
        "StateData 70 true 1000",  "StateData 58 true 1100", "StateData 59 true 1200",
        "StateData 71 true 1300",  "StateData 70 true 1400", "StateData 71 true 1500",
        "StateData 71 true 0",     "StateData 58 true 0",    "StateData 59 true 0",
        "StateData 70 true 0",     "StateData 70 true 1700", "StateData 59 true 1800",
        "StateData 70 false 1600",
    };
    EXPECT_EQ(expected, events::States(h.Records()));
}
