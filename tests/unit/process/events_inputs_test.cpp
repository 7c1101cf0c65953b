// The FPGA's inputs: which bits count, in which order the store gets them, and the flag.
#include <gtest/gtest.h>

#include "events_support.h"

using events::StateEntry;

namespace {
FpgaExternalEventItem Inputs(unsigned int changed, unsigned int levels, unsigned int tick) {
    FpgaExternalEventItem item;
    item.changedMask = changed;
    item.inputLevels = levels;
    item.debounce = 0xFFFFFFFFu;  // not read
    item.tick = tick;
    return item;
}
}  // namespace

TEST(EventsInputs, ChangedBitsInTableOrderWithLevels) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::ExternalInputEventHandler);

    // lights on, siren off, door closed, in that order, whatever the bit order.
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x000A8000u, 0x00008000u, 10)));
    // Levels without a changed bit, and bit 18, produce nothing.
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x00040000u, 0x000BE000u, 20)));
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0xFFF41FFFu, 0xFFFFFFFFu, 30)));
    // Every input at once, all active.
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, Inputs(0x000BE000u, 0xFFFFFFFFu, 40)));
    // The start-up form: every input forced, all inactive, flag false.
    h.manager->ReportExternalEvent(Inputs(0x000BE000u, 0, 50), false);

    const std::vector<StateEntry> expected = {
        {52, true, 10},  {55, true, 10},  {63, true, 10},

        {52, true, 40},  {56, true, 40},  {54, true, 40},
        {60, true, 40},  {62, true, 40},  {68, true, 40},

        {53, false, 50}, {57, false, 50}, {55, false, 50},
        {61, false, 50}, {63, false, 50}, {69, false, 50},
    };
    EXPECT_EQ(expected, events::StateEntries(h.Records()));
}

TEST(EventsInputs, LogsTickAndEachChangedSignal) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::LogCapture log(h.env.Path("log.txt"), 128);
    h.manager->ReportExternalEvent(Inputs(0x00012000u, 0, 77), true);
    h.manager->ReportExternalEvent(Inputs(0x00040000u, 0, 78), true);
    const std::string text = log.Text();
    const size_t tick = text.find(" Add in SystemTick to ExternalEvent - tick = 77\n");
    const size_t brakes = text.find(" ReportExternalEvent brakes changed\n");
    const size_t ignition = text.find(" ReportExternalEvent ignition changed\n");
    ASSERT_NE(std::string::npos, tick) << text;
    ASSERT_NE(std::string::npos, brakes) << text;
    ASSERT_NE(std::string::npos, ignition) << text;
    EXPECT_LT(tick, brakes);
    EXPECT_LT(brakes, ignition);
    EXPECT_NE(std::string::npos, text.find(" Add in SystemTick to ExternalEvent - tick = 78\n"));
    EXPECT_EQ(2u, events::Count(text, "ReportExternalEvent "));
}
