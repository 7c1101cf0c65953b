// Live streaming state: the item's fields, forced high quality, the address, the tick the
// store receives and the log line.
#include <gtest/gtest.h>

#include "events_support.h"

using events::LvsState;

TEST(EventsStreaming, EveryFieldWithTheStoresTickAndTheLogLine) {
    ManagerHarness h;
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());
    const unsigned int kFirstStream = 40010;
    for (unsigned int n = 0; n < 6; ++n) {
        events::Bind(h, events::kStreamHandlers[n], kFirstStream + n);
    }
    // The store's current tick is the one the last periodic pass read.
    h.env.WriteFile("tick", "777000");
    h.manager->PeriodicProcessing();
    for (const char* forced : {"1", "0"}) {
        ScopedEnv env("LVS_FORCE_HQ", forced);
        ASSERT_TRUE(
            events::Send(h, LvsState(true, false, 2, "192.168.1.20", 554), kFirstStream + 5));
    }
    h.env.WriteFile("tick", "778000");
    h.manager->PeriodicProcessing();
    ASSERT_TRUE(events::Send(h, LvsState(false, true, 258, "", 1), kFirstStream + 3));
    {
        LogCapture log(h.env.Path("log.txt"), 16);
        ASSERT_TRUE(
            events::Send(h, LvsState(true, false, 1, "not.an.address", 8554), kFirstStream));
        EXPECT_EQ(1u, log.Count(" Rcvd ext streaming state change, stream 0  en:1  HiQual:0  "
                                "Cam:1  Ip: not.an.address  Port:8554\n"))
            << log.Text();
        EXPECT_EQ(1u, log.Count("\n")) << log.Text();
    }
    // The entry trace is informational, not an entry trace of the usual mask.
    for (unsigned int mask : {64u, 128u}) {
        LogCapture log(h.env.Path("log.txt"), mask);
        ASSERT_TRUE(events::Send(h, LvsState(true, false, 1, "10.0.0.5", 2), kFirstStream + 1));
        EXPECT_EQ(mask == 128 ? 1u : 0u, log.Count(" LVSStateChangeHandler\n")) << log.Text();
    }

    // Stream, camera (258 cut to its low byte), high quality before enabled, address, port.
    const std::vector<std::string> expected = {
        "LvsState 5 2 true true 192.168.1.20 554 true 777000",
        "LvsState 5 2 false true 192.168.1.20 554 true 777000",
        "LvsState 3 2 true false 255.255.255.255 1 true 778000",
        "LvsState 0 1 false true 255.255.255.255 8554 true 778000",
        "LvsState 1 1 false true 10.0.0.5 2 true 778000",
        "LvsState 1 1 false true 10.0.0.5 2 true 778000",
    };
    EXPECT_EQ(expected, Brief(h.Records(), {"ReportLvsState"},
                              {"stream", "camera", "highQuality", "enabled", "addressText", "port",
                               "flag", "tick"}));
}
