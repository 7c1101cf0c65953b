// Hostile input: every handler drops an empty or short payload with one line and no record.
#include <gtest/gtest.h>

#include "events_support.h"

TEST(EventsPayload, EmptyAndShortPayloadsAreLoggedAndDropped) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    unsigned int id = 40100;
    for (const events::HandlerCase& c : events::EveryHandler()) {
        const std::string name = c.name;
        events::Bind(h, c.handler, id);
        LogCapture log(h.env.Path("log.txt"), 2);
        ASSERT_TRUE(h.Deliver(id, nullptr, 0)) << name;
        // Non-zero bytes, so no field of a short payload reads as a valid zero by chance.
        events::Payload shortPayload;
        shortPayload.bytes.assign(c.shortSize, 0x01);
        ASSERT_TRUE(events::Send(h, shortPayload, id++)) << name;
        EXPECT_EQ(1u, log.Count(" " + name + ": error, DataPtr is null\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" " + name + ": error, payload too short")) << log.Text();
        EXPECT_EQ(2u, log.Count("\n")) << log.Text();
    }
    // Nothing but the store's own records (the segment's opening snapshot and the closing
    // record). A metadata-to-file request too short for its range is still answered: with 0.
    EXPECT_EQ((std::vector<std::string>{"WriteFullState", "ShutdownData"}),
              Brief(h.Records(), {}, {}));
    IpcMessage answer;
    ASSERT_TRUE(h.PeerReceive(answer, events::kMetadataToFileResponse, 2000));
    ASSERT_EQ(1u, answer.Size());
    EXPECT_EQ(0, answer.DataPtr()[0]);
}
