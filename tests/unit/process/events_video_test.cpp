// Cameras, video streams and stream quality.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Cameras;

TEST(EventsVideo, NumberBoundsPortThreeAggregateAndQuality) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VideoMgrCameraItemHandler, 40001);
    events::Bind(h, MetadataMgr::VideoMgrStreamQualityItemHandler, 40002);
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        for (unsigned int number : {3u, 4u, 0xFFFFFFFFu, 0u}) {
            ASSERT_TRUE(events::Send(h, events::Payload().Words({100 + number, number, 2}),
                                     events::kVideoStreamState));
            ASSERT_TRUE(events::Send(h, events::Payload().Words({200 + number, number, 1}),
                                     events::kCameraState));
        }
        for (const char* line : {" VideoStreamStateChanged: Invalid streamNo 4\n",
                                 " VideoStreamStateChanged: Invalid streamNo 4294967295\n",
                                 " CameraStateChanged: Invalid camera no 4\n",
                                 " CameraStateChanged: Invalid camera no 4294967295\n"}) {
            EXPECT_EQ(1u, log.Count(line)) << line << log.Text();
        }
        EXPECT_EQ(4u, log.Count("\n")) << log.Text();
    }
    // Entry 4 active, 5..8 off: port 3 keeps entry 3's state.
    ASSERT_TRUE(h.DeliverItem(40001, Cameras({1, 2, 3, 4, 1, 0, 0, 0, 0}, 10)));
    // Entries 5 and 8 streaming: the highest one wins.
    ASSERT_TRUE(h.DeliverItem(40001, Cameras({0, 0, 0, 3, 0, 2, 0, 0, 2}, 20)));
    // Only entry 5 records; the others idle.
    ASSERT_TRUE(h.DeliverItem(40001, Cameras({0, 0, 0, 0, 0, 1, 3, 3, 3}, 30)));
    // Entries 6 (recording) and 7 (streaming): the later entry's state.
    VideoMgrCameraItem initial = Cameras({4, 4, 4, 0, 0, 0, 1, 2, 4}, 40);
    h.manager->ReportCameraItem(initial, false);

    VideoMgrStreamQualityItem quality;
    quality.streams[1].bitRateKbps = 4096;
    quality.tick = 321;
    ASSERT_TRUE(h.DeliverItem(40002, quality));
    h.manager->ReportStreamQualityItem(quality, false);

    const std::vector<StoreRecord> records = h.Records();
    EXPECT_EQ((std::vector<std::string>{"VideoStreamState 3 2 true 103",
                                        "VideoStreamState 0 2 true 100"}),
              Brief(records, {"ReportVideoStreamState"}, {"stream", "state", "flag", "tick"}));
    const std::vector<std::string> cameras = {
        "CameraState 3 1 true 203", "CameraState 0 1 true 200", "CameraState 0 1 true 10",
        "CameraState 1 2 true 10",  "CameraState 2 3 true 10",  "CameraState 3 4 true 10",
        "CameraState 0 0 true 20",  "CameraState 1 0 true 20",  "CameraState 2 0 true 20",
        "CameraState 3 2 true 20",  "CameraState 0 0 true 30",  "CameraState 1 0 true 30",
        "CameraState 2 0 true 30",  "CameraState 3 1 true 30",  "CameraState 0 4 false 40",
        "CameraState 1 4 false 40", "CameraState 2 4 false 40", "CameraState 3 2 false 40",
    };
    EXPECT_EQ(cameras, Brief(records, {"ReportCameraState"}, {"port", "state", "flag", "tick"}));
    EXPECT_EQ((std::vector<std::string>{"StreamQualityItem 4096 321 true",
                                        "StreamQualityItem 4096 321 false"}),
              Brief(records, {"ReportStreamQualityItem"},
                    {"item.streams.1.bitRateKbps", "item.tick", "flag"}));
}
