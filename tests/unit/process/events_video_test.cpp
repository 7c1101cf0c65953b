// Cameras, video streams and stream quality.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Payload;

namespace {
const unsigned int kCameraItem = 40001;
const unsigned int kStreamQuality = 40002;

struct StateRecord {
    long long number;
    long long state;
    std::string flag;
    long long tick;
    bool operator==(const StateRecord& o) const {
        return number == o.number && state == o.state && flag == o.flag && tick == o.tick;
    }
};

std::ostream& operator<<(std::ostream& out, const StateRecord& r) {
    return out << "{" << r.number << ", state " << r.state << ", flag " << r.flag << ", tick "
               << r.tick << "}";
}

std::vector<StateRecord> States(const std::vector<StoreRecord>& records, const std::string& op,
                                const std::string& numberKey) {
    std::vector<StateRecord> out;
    for (const StoreRecord& r : WithOp(records, op)) {
        out.push_back({r.Int(numberKey), r.Int("state"), r.Get("flag"), r.Int("tick")});
    }
    return out;
}

VideoMgrCameraItem Cameras(std::initializer_list<unsigned int> states, unsigned int tick) {
    VideoMgrCameraItem item;
    unsigned int i = 0;
    for (unsigned int s : states) {
        item.cameraState[i++] = static_cast<e_CameraState>(s);
    }
    item.tick = tick;
    return item;
}
}  // namespace

TEST(EventsVideo, NumbersAboveThreeAreRejected) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 1);
        for (unsigned int number : {3u, 4u, 0xFFFFFFFFu, 0u}) {
            ASSERT_TRUE(events::Send(h, Payload().Words({100 + number, number, 2}),
                                     events::kVideoStreamState));
            ASSERT_TRUE(
                events::Send(h, Payload().Words({200 + number, number, 1}), events::kCameraState));
        }
        text = log.Text();
    }
    for (const char* line : {" VideoStreamStateChanged: Invalid streamNo 4\n",
                             " VideoStreamStateChanged: Invalid streamNo 4294967295\n",
                             " CameraStateChanged: Invalid camera no 4\n",
                             " CameraStateChanged: Invalid camera no 4294967295\n"}) {
        EXPECT_EQ(1u, events::Count(text, line)) << line << text;
    }
    EXPECT_EQ(4u, events::Count(text, "\n")) << text;

    const std::vector<StoreRecord> records = h.Records();
    const std::vector<StateRecord> streams = {{3, 2, "true", 103}, {0, 2, "true", 100}};
    const std::vector<StateRecord> cameras = {{3, 1, "true", 203}, {0, 1, "true", 200}};
    EXPECT_EQ(streams, States(records, "ReportVideoStreamState", "stream"));
    EXPECT_EQ(cameras, States(records, "ReportCameraState", "port"));
}

TEST(EventsVideo, CameraItemAggregatesPortThreeFromEntriesFiveToEight) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VideoMgrCameraItemHandler, kCameraItem);

    // Entry 4 active, 5..8 off: port 3 keeps entry 3's state.
    ASSERT_TRUE(h.DeliverItem(kCameraItem, Cameras({1, 2, 3, 4, 1, 0, 0, 0, 0}, 10)));
    // Entries 5 and 8 streaming: the highest one wins.
    ASSERT_TRUE(h.DeliverItem(kCameraItem, Cameras({0, 0, 0, 3, 0, 2, 0, 0, 2}, 20)));
    // Only entry 5 records; the others idle.
    ASSERT_TRUE(h.DeliverItem(kCameraItem, Cameras({0, 0, 0, 0, 0, 1, 3, 3, 3}, 30)));
    // Entries 6 (recording) and 7 (streaming): the later entry's state.
    VideoMgrCameraItem initial = Cameras({4, 4, 4, 0, 0, 0, 1, 2, 4}, 40);
    h.manager->ReportCameraItem(initial, false);

    const std::vector<StateRecord> expected = {
        {0, 1, "true", 10},  {1, 2, "true", 10},  {2, 3, "true", 10},  {3, 4, "true", 10},
        {0, 0, "true", 20},  {1, 0, "true", 20},  {2, 0, "true", 20},  {3, 2, "true", 20},
        {0, 0, "true", 30},  {1, 0, "true", 30},  {2, 0, "true", 30},  {3, 1, "true", 30},
        {0, 4, "false", 40}, {1, 4, "false", 40}, {2, 4, "false", 40}, {3, 2, "false", 40},
    };
    EXPECT_EQ(expected, States(h.Records(), "ReportCameraState", "port"));
}

TEST(EventsVideo, StreamQualityReachesTheStoreAsReceived) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VideoMgrStreamQualityItemHandler, kStreamQuality);

    VideoMgrStreamQualityItem item;
    item.streams[1].quality = 3;
    item.streams[1].bitRateKbps = 4096;
    item.streams[1].frameRate = 30;
    item.streams[1].resolution = 7;
    item.tick = 321;
    ASSERT_TRUE(h.DeliverItem(kStreamQuality, item));
    h.manager->ReportStreamQualityItem(item, false);

    const std::vector<StoreRecord> records = h.RecordsOf("ReportStreamQualityItem");
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("true", records[0].Get("flag"));
    EXPECT_EQ("false", records[1].Get("flag"));
    EXPECT_EQ(4096, records[0].Int("item.streams.1.bitRateKbps")) << records[0].line;
    EXPECT_EQ(321, records[0].Int("item.tick")) << records[0].line;
}
