// Live streaming state: the item's fields, forced high quality, the address and the tick the
// store receives.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "events_support.h"

using events::Payload;

namespace {
const unsigned int kFirstStream = 40010;

// The state item's wire form: its five members back to back in their own encodings.
Payload LvsState(bool enabled, bool highQuality, unsigned short camera, const char* address,
                 unsigned short port) {
    Payload p;
    const BoolItem en(enabled);
    const BoolItem hq(highQuality);
    const UShortItem cam(camera);
    const StringItem ip(address);
    const UShortItem prt(port);
    p.Bytes().resize(en.Size() + hq.Size() + cam.Size() + ip.Size() + prt.Size());
    unsigned char* at = p.Bytes().data();
    at = en.Encode(at);
    at = hq.Encode(at);
    at = cam.Encode(at);
    at = ip.Encode(at);
    prt.Encode(at);
    return p;
}

// Binds the six stream handlers to kFirstStream + n.
void BindStreams(ManagerHarness& h) {
    const LinxHandler handlers[] = {
        MetadataMgr::LVSStateChangeHandler_0, MetadataMgr::LVSStateChangeHandler_1,
        MetadataMgr::LVSStateChangeHandler_2, MetadataMgr::LVSStateChangeHandler_3,
        MetadataMgr::LVSStateChangeHandler_4, MetadataMgr::LVSStateChangeHandler_5,
    };
    for (unsigned int n = 0; n < 6; ++n) {
        events::Bind(h, handlers[n], kFirstStream + n);
    }
}

// The store's current tick is the one the last periodic pass read.
void StoreTick(ManagerHarness& h, const std::string& tick) {
    h.env.WriteFile("tick", tick);
    h.manager->PeriodicProcessing();
}

long long Address(const char* text) {
    return static_cast<long long>(static_cast<unsigned int>(inet_addr(text)));
}
}  // namespace

TEST(EventsStreaming, ReportsEveryFieldWithTheStoresTick) {
    ManagerHarness h;
    events::ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());
    BindStreams(h);

    StoreTick(h, "777000");
    {
        events::ScopedEnv forced("LVS_FORCE_HQ", "1");
        ASSERT_TRUE(
            events::Send(h, LvsState(true, false, 2, "192.168.1.20", 554), kFirstStream + 5));
    }
    {
        events::ScopedEnv notForced("LVS_FORCE_HQ", "0");
        ASSERT_TRUE(
            events::Send(h, LvsState(true, false, 2, "192.168.1.20", 554), kFirstStream + 5));
    }
    StoreTick(h, "778000");
    ASSERT_TRUE(events::Send(h, LvsState(false, true, 258, "", 1), kFirstStream + 3));
    ASSERT_TRUE(events::Send(h, LvsState(true, true, 1, "not.an.address", 2), kFirstStream));

    const std::vector<StoreRecord> lvs = h.RecordsOf("ReportLvsState");
    ASSERT_EQ(4u, lvs.size());
    EXPECT_EQ(5, lvs[0].Int("stream"));
    EXPECT_EQ(2, lvs[0].Int("camera"));
    EXPECT_EQ("true", lvs[0].Get("highQuality"));
    EXPECT_EQ("true", lvs[0].Get("enabled"));
    EXPECT_EQ(Address("192.168.1.20"), lvs[0].Int("address"));
    EXPECT_EQ(554, lvs[0].Int("port"));
    EXPECT_EQ("true", lvs[0].Get("flag"));
    EXPECT_EQ(777000, lvs[0].Int("tick"));

    EXPECT_EQ("false", lvs[1].Get("highQuality"));
    EXPECT_EQ("true", lvs[1].Get("enabled"));

    EXPECT_EQ(3, lvs[2].Int("stream"));
    EXPECT_EQ(2, lvs[2].Int("camera"));  // 258 cut to its low byte
    EXPECT_EQ("true", lvs[2].Get("highQuality"));
    EXPECT_EQ("false", lvs[2].Get("enabled"));
    EXPECT_EQ(0xFFFFFFFFll, lvs[2].Int("address"));
    EXPECT_EQ(778000, lvs[2].Int("tick"));

    EXPECT_EQ(0, lvs[3].Int("stream"));
    EXPECT_EQ(0xFFFFFFFFll, lvs[3].Int("address"));
}

TEST(EventsStreaming, LogLineOfTheReceivedState) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    BindStreams(h);
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 16);
        ASSERT_TRUE(events::Send(h, LvsState(true, false, 1, "10.0.0.5", 8554), kFirstStream));
        text = log.Text();
    }
    const std::string line =
        " Rcvd ext streaming state change, stream 0  en:1  HiQual:0  Cam:1  Ip: 10.0.0.5  "
        "Port:8554\n";
    EXPECT_EQ(1u, events::Count(text, line)) << text;
    EXPECT_EQ(1u, events::Count(text, "\n")) << text;

    // The entry trace is informational, not an entry trace of the usual mask.
    events::LogCapture entry(h.env.Path("entry.txt"), 64);
    ASSERT_TRUE(events::Send(h, LvsState(true, false, 1, "10.0.0.5", 8554), kFirstStream + 1));
    EXPECT_EQ("", entry.Text());
    events::LogCapture info(h.env.Path("info.txt"), 128);
    ASSERT_TRUE(events::Send(h, LvsState(true, false, 1, "10.0.0.5", 8554), kFirstStream + 1));
    EXPECT_EQ(1u, events::Count(info.Text(), " LVSStateChangeHandler\n"));
}
