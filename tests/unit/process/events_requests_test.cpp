// Requests served on the manager's endpoint: ping, the bookmark item, metadata to file and the
// last system tick.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <tuple>

#include "HostSeams.h"
#include "MetadataMgrServer.h"
#include "events_support.h"

using events::Payload;

namespace {
// Asks for a copy of [first, last] into `name`; the answer byte, or -1 when none came.
int Copy(ManagerHarness& h, const std::string& name, unsigned int first, unsigned int last) {
    IpcMessage answer;
    const bool came =
        events::Send(h, events::CopyRequest(name, first, last), events::kMetadataToFile) &&
        h.PeerReceive(answer, events::kMetadataToFileResponse, 2000);
    return came && answer.Size() == 1 ? answer.DataPtr()[0] : -1;
}
}  // namespace

// A ping whose answer cannot be allocated goes unanswered, and is logged. Bookmark item 0 reads
// false when polled, an unknown item is refused, and every bookmark is stored before true is
// pushed to each subscriber.
TEST(EventsRequests, RefusedPingAnswerAndTheBookmarkStoredThenPublished) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        IpcMessage ping;
        ASSERT_EQ(0, ping.Allocate(events::kPing, 0, nullptr));
        ASSERT_EQ(0, h.peer.Notify(h.ipc.Name(), ping, true));
        hostseam::FailNextAllocations(1);
        ASSERT_EQ(0, h.ipc.Receive(2000, events::kPing, LinxIpc::emptyString, nullptr));
        hostseam::FailNextAllocations(0);
        EXPECT_EQ(1u, log.Lines("Error Allocating Message")) << log.Text();
    }
    IpcMessage answer;
    EXPECT_FALSE(h.PeerReceive(answer, events::kPingResponse, 200));

    MetadataMgrServer* server = h.manager->Server();
    ASSERT_NE(nullptr, server);
    IpcMessage reply;
    {
        LogCapture log(h.env.Path("log.txt"), 2);
        server->GetItem(1, reply, 5000);
        EXPECT_EQ(1u, log.Count(" MetadataMgrServer:")) << log.Text();
        EXPECT_EQ(1u, log.Count(" GetItem Unknown item passed in 1\n")) << log.Text();
    }
    EXPECT_EQ(0u, reply.MsgType()) << "an unknown item leaves the reply untouched";
    hostseam::FailNextAllocations(1);
    server->GetItem(0, reply, 5000);
    EXPECT_EQ(0u, reply.MsgType());

    uint32_t request[2] = {0, 5001};
    ASSERT_TRUE(h.Deliver(LinxIpc::kSubscribeRequest, request, sizeof request));
    ASSERT_TRUE(h.PeerReceive(answer, LinxIpc::kSubscribeReply));
    ASSERT_EQ(1u, server->SubscriberCount(0));
    ASSERT_TRUE(events::Send(h, Payload().Add(4242u), events::kBookmark));
    ASSERT_TRUE(h.PeerReceive(answer, 5001));
    BoolItem pushed(false);
    ASSERT_EQ(0, pushed.DecodeMsg(answer));
    EXPECT_TRUE(pushed.Get());
    EXPECT_FALSE(h.PeerReceive(answer, 5001, 100)) << "one notice per bookmark";

    server->GetItem(0, reply, 5000);
    ASSERT_EQ(5000u, reply.MsgType());
    BoolItem polled(true);
    ASSERT_EQ(0, polled.DecodeMsg(reply));
    EXPECT_FALSE(polled.Get()) << "polled, the bookmark always reads false";

    // Level 0 logs nothing, not even a dropped payload, but the bookmark is still stored.
    {
        LogCapture log(h.env.Path("log.txt"), 0);
        ASSERT_TRUE(events::Send(h, Payload().Add(4343u), events::kBookmark));
        ASSERT_TRUE(h.Deliver(events::kBookmark, nullptr, 0));
        EXPECT_EQ("", log.Text());
    }
    EXPECT_EQ((std::vector<std::string>{"Bookmark 4242", "Bookmark 4343"}),
              Brief(h.Records(), {"ReportBookmark"}, {"tick"}));
}

TEST(EventsRequests, MetadataToFileAndTheLastSystemTick) {
    ManagerHarness h;
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());
    h.env.WriteFile("tick", "1000");
    h.manager->PeriodicProcessing();
    h.manager->ReportRecordingEvent(true, 1500, true);
    h.manager->ReportBookmark(1600);
    h.manager->ReportRecordingEvent(false, 1700, true);
    // The next loop pass comes within the same second: no sync is due, yet a copy asked for
    // now must hold everything reported before it.
    h.env.WriteFile("tick", "1100");
    h.manager->PeriodicProcessing();

    // The range [1550, 1650] (bytes 1024 and 1028): the state as of 1550, then the bookmark
    // (stored at 1000, the tick of the last pass).
    const std::string copy = h.env.Media() + "/export/copy.md";
    EXPECT_EQ(1, Copy(h, "copy.md", 1550, 1650));
    std::string error;
    const std::vector<StoreRecord> copied = ReadStoreRecords(copy, h.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    EXPECT_EQ((std::vector<std::string>{"WriteFullState 1550", "Bookmark 1000 1600"}),
              Brief(copied, {}, {"at", "tick"}));
    ASSERT_FALSE(copied.empty());
    EXPECT_NE(std::string::npos, copied[0].line.find("\"tag\":70")) << copied[0].line;
    // A name filling the whole field has no end: answered 0, nothing written.
    const std::string longName = h.env.Path(std::string(1100, 'x'));
    EXPECT_EQ(0, Copy(h, longName, 0, 0xFFFFFFFFu));
    EXPECT_NE(0, ::access(longName.substr(0, 1024).c_str(), F_OK));

    // The last tick with its validity: 0 is a valid tick; none read is 0xFFFFFFFF, invalid.
    // {tick file ("" = no tick available), tick, validity}
    const std::tuple<const char*, unsigned int, unsigned char> cases[] = {
        {"0", 0, 1}, {"", 0xFFFFFFFFu, 0}, {"123456", 123456, 1}};
    for (const auto& [file, tick, valid] : cases) {
        h.env.WriteFile("tick", file);
        h.manager->PeriodicProcessing();
        ASSERT_TRUE(h.Deliver(events::kLastSystemTick, nullptr, 0));
        IpcMessage answer;
        ASSERT_TRUE(h.PeerReceive(answer, events::kLastSystemTickResponse, 2000));
        ASSERT_EQ(8u, answer.Size());
        unsigned int answered = 0;
        std::memcpy(&answered, answer.DataPtr(), sizeof answered);
        EXPECT_EQ(tick, answered) << file;
        EXPECT_EQ(valid, answer.DataPtr()[4]) << file;
    }
}
