// The FPGA's inputs: which bits count, in which order the store gets them, the flag and the
// log lines.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Inputs;

TEST(EventsInputs, ChangedBitsInTableOrderWithLevelsAndLogLines) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::ExternalInputEventHandler);
    {
        LogCapture log(h.env.Path("log.txt"), 128);
        // lights on, siren off, door closed, in that order, whatever the bit order.
        ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x000A8000u, 0x00008000u, 10)));
        // Levels without a changed bit, and bit 18, produce nothing.
        ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x00040000u, 0x000BE000u, 20)));
        ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0xFFF41FFFu, 0xFFFFFFFFu, 30)));
        const std::string text = log.Text();
        const size_t tick = text.find(" Add in SystemTick to ExternalEvent - tick = 10\n");
        const size_t lights = text.find(" ReportExternalEvent lights changed\n");
        const size_t door = text.find(" ReportExternalEvent doorOpen changed\n");
        EXPECT_TRUE(tick < lights && lights < door && door != std::string::npos) << text;
        EXPECT_EQ(3u, log.Count("ReportExternalEvent ")) << text;
        EXPECT_EQ(1u, log.Count("ExternalEvent - tick = 20\n")) << text;
    }
    // Every input at once, all active.
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x000BE000u, 0xFFFFFFFFu, 40)));
    // The start-up form: every input forced, all inactive, flag false.
    h.manager->ReportExternalEvent(Inputs(0x000BE000u, 0, 50), false);

    const std::vector<std::string> expected = {
        "StateData 52 true 10",  "StateData 55 true 10",  "StateData 63 true 10",
        "StateData 52 true 40",  "StateData 56 true 40",  "StateData 54 true 40",
        "StateData 60 true 40",  "StateData 62 true 40",  "StateData 68 true 40",
        "StateData 53 false 50", "StateData 57 false 50", "StateData 55 false 50",
        "StateData 61 false 50", "StateData 63 false 50", "StateData 69 false 50",
    };
    EXPECT_EQ(expected, events::States(h.Records()));
}
