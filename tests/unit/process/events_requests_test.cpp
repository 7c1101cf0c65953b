// Requests served on the manager's endpoint: ping, the bookmark item, metadata to file and the
// last system tick.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "HostSeams.h"
#include "MetadataMgrServer.h"
#include "events_support.h"

using events::Payload;

namespace {
Payload CopyRequest(const std::string& name, unsigned int first, unsigned int second) {
    Payload p;
    p.Bytes().assign(1024, 0);
    std::memcpy(p.Bytes().data(), name.data(), std::min<size_t>(name.size(), 1024));
    return p.Add(first).Add(second);
}

// The answer byte of a metadata-to-file request, or -1 when none came.
int CopyAnswer(ManagerHarness& h, int timeoutMs = 2000) {
    IpcMessage answer;
    if (!h.PeerReceive(answer, events::kMetadataToFileResponse, timeoutMs) || answer.Size() != 1) {
        return -1;
    }
    return answer.DataPtr()[0];
}

bool Exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}
}  // namespace

TEST(EventsRequests, PingIsAnsweredToTheSender) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    ASSERT_TRUE(h.Deliver(events::kPing, nullptr, 0));
    IpcMessage answer;
    ASSERT_TRUE(h.PeerReceive(answer, events::kPingResponse, 2000));
    EXPECT_EQ(0u, answer.Size());
    EXPECT_EQ("MetadataMgr", answer.GetSender());

    // A refused allocation leaves the requester without an answer, and is logged.
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
    EXPECT_FALSE(h.PeerReceive(answer, events::kPingResponse, 200));
}

// Item 0 reads false when polled, an unknown item is refused, and every bookmark is stored
// before true is pushed to each subscriber.
TEST(EventsRequests, BookmarkIsStoredThenPublished) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
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
    IpcMessage answer;
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

TEST(EventsRequests, MetadataToFileCopiesRefusesAndRejects) {
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

    // The range [1550, 1650] (bytes 1024 and 1028): the state as of 1550, then the bookmark.
    const std::string copy = h.env.Path("copy.md");
    ASSERT_TRUE(events::Send(h, CopyRequest(copy, 1550, 1650), events::kMetadataToFile));
    EXPECT_EQ(1, CopyAnswer(h));
    std::string error;
    const std::vector<StoreRecord> copied = ReadStoreRecords(copy, h.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    ASSERT_EQ(2u, copied.size());
    EXPECT_EQ("WriteFullState", copied[0].Op());
    EXPECT_EQ(1550, copied[0].Int("at"));
    EXPECT_NE(std::string::npos, copied[0].line.find("\"tag\":70")) << copied[0].line;
    EXPECT_EQ("ReportBookmark", copied[1].Op());
    EXPECT_EQ(1600, copied[1].Int("tick"));

    // The destination exists now: the reader refuses and the answer says so.
    ASSERT_TRUE(events::Send(h, CopyRequest(copy, 0, 0xFFFFFFFFu), events::kMetadataToFile));
    EXPECT_EQ(0, CopyAnswer(h));

    // A name filling the whole field has no end: answered 0, nothing written.
    const std::string longName = h.env.Path(std::string(1100, 'x'));
    ASSERT_TRUE(events::Send(h, CopyRequest(longName, 0, 0xFFFFFFFFu), events::kMetadataToFile));
    EXPECT_EQ(0, CopyAnswer(h));
    EXPECT_FALSE(Exists(longName.substr(0, 1024)));
}

TEST(EventsRequests, LastSystemTickCarriesItsValidity) {
    ManagerHarness h;
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());
    struct Case {
        const char* file;  // "" = no tick available
        unsigned int tick;
        unsigned char valid;
    };
    for (const Case& c : {Case{"0", 0, 1}, Case{"", 0xFFFFFFFFu, 0}, Case{"123456", 123456, 1}}) {
        h.env.WriteFile("tick", c.file);
        h.manager->PeriodicProcessing();
        ASSERT_TRUE(h.Deliver(events::kLastSystemTick, nullptr, 0));
        IpcMessage answer;
        ASSERT_TRUE(h.PeerReceive(answer, events::kLastSystemTickResponse, 2000));
        ASSERT_EQ(8u, answer.Size());
        unsigned int tick = 0;
        std::memcpy(&tick, answer.DataPtr(), sizeof tick);
        EXPECT_EQ(c.tick, tick) << c.file;
        EXPECT_EQ(c.valid, answer.DataPtr()[4]) << c.file;
    }
}
