// Requests served on the manager's endpoint: ping, metadata to file, last system tick.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "HostSeams.h"
#include "events_support.h"

using events::Payload;

namespace {
Payload CopyRequest(const std::string& name, unsigned int first, unsigned int second) {
    Payload p;
    p.Bytes().assign(1024, 0);
    std::memcpy(p.Bytes().data(), name.data(), name.size());
    p.Add(first).Add(second);
    return p;
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
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

struct TickAnswer {
    unsigned int tick = 0;
    unsigned char valid = 0xEE;
    unsigned int size = 0;
};

TickAnswer AskTick(ManagerHarness& h) {
    TickAnswer result;
    EXPECT_TRUE(h.Deliver(events::kLastSystemTick, nullptr, 0));
    IpcMessage answer;
    EXPECT_TRUE(h.PeerReceive(answer, events::kLastSystemTickResponse, 2000));
    result.size = answer.Size();
    if (answer.Size() >= 5) {
        std::memcpy(&result.tick, answer.DataPtr(), 4);
        result.valid = answer.DataPtr()[4];
    }
    return result;
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
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 1);
        IpcMessage ping;
        ASSERT_EQ(0, ping.Allocate(events::kPing, 0, nullptr));
        ASSERT_EQ(0, h.peer.Notify(h.ipc.Name(), ping, true));
        hostseam::FailNextAllocations(1);
        ASSERT_EQ(0, h.ipc.Receive(2000, events::kPing, LinxIpc::emptyString, nullptr));
        text = log.Text();
    }
    hostseam::FailNextAllocations(0);
    EXPECT_NE(std::string::npos, text.find("MetadataMgr:")) << text;
    EXPECT_NE(std::string::npos, text.find(" Error Allocating Message\n")) << text;
    EXPECT_FALSE(h.PeerReceive(answer, events::kPingResponse, 200));
}

TEST(EventsRequests, MetadataToFileCopiesRefusesAndRejects) {
    ManagerHarness h;
    events::ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());
    h.env.WriteFile("tick", "1000");
    h.manager->PeriodicProcessing();
    h.manager->ReportRecordingEvent(true, 1500, true);
    h.env.WriteFile("tick", "2000");
    h.manager->PeriodicProcessing();

    const std::string copy = h.env.Path("copy.md");
    ASSERT_TRUE(events::Send(h, CopyRequest(copy, 0, 0xFFFFFFFFu), events::kMetadataToFile));
    EXPECT_EQ(1, CopyAnswer(h));
    EXPECT_TRUE(Exists(copy));

    // The destination exists now: the reader refuses and the answer says so.
    ASSERT_TRUE(events::Send(h, CopyRequest(copy, 0, 0xFFFFFFFFu), events::kMetadataToFile));
    EXPECT_EQ(0, CopyAnswer(h));

    // A name filling the whole field has no end: answered 0, nothing written.
    const std::string longName = h.env.Path(std::string(1100, 'x'));
    Payload overlong = CopyRequest(longName.substr(0, 1024), 0, 0xFFFFFFFFu);
    ASSERT_TRUE(events::Send(h, overlong, events::kMetadataToFile));
    EXPECT_EQ(0, CopyAnswer(h));

    // A request shorter than its layout is dropped without an answer.
    Payload shortRequest = CopyRequest(h.env.Path("short.md"), 0, 1);
    shortRequest.Bytes().resize(1031);
    ASSERT_TRUE(events::Send(h, shortRequest, events::kMetadataToFile));
    EXPECT_EQ(-1, CopyAnswer(h, 300));
    EXPECT_FALSE(Exists(h.env.Path("short.md")));
}

TEST(EventsRequests, LastSystemTickCarriesItsValidity) {
    ManagerHarness h;
    events::ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    ASSERT_TRUE(h.Prepare());

    h.env.WriteFile("tick", "0");
    h.manager->PeriodicProcessing();
    TickAnswer answer = AskTick(h);
    EXPECT_EQ(8u, answer.size);
    EXPECT_EQ(0u, answer.tick);
    EXPECT_EQ(1, answer.valid);

    h.env.WriteFile("tick", "");  // no tick available
    h.manager->PeriodicProcessing();
    answer = AskTick(h);
    EXPECT_EQ(0xFFFFFFFFu, answer.tick);
    EXPECT_EQ(0, answer.valid);

    h.env.WriteFile("tick", "123456");
    h.manager->PeriodicProcessing();
    answer = AskTick(h);
    EXPECT_EQ(123456u, answer.tick);
    EXPECT_EQ(1, answer.valid);
}
