#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ExternalMgrApi.h"
#include "ForkedPeer.h"
#include "HostSeams.h"
#include "Item.h"
#include "LinxIpc.h"
#include "ServerClients.h"
#include "StreamMgrApi.h"
#include "Subscribe.h"
#include "TestEnv.h"

namespace {

const unsigned int kReady = 200;
const unsigned int kNotifyNow = 300;  // peer server: push item 5 with value 99, answer the count
const unsigned int kNotified = 301;
const unsigned int kCountNow = 302;  // peer server: answer SubscriberCount(word 0)
const unsigned int kCounted = 303;
const unsigned int kQuit = 304;

std::uint32_t Word(const IpcMessage& message, unsigned int index) {
    std::uint32_t word = 0;
    std::memcpy(&word, message.DataPtr() + 4 * index, sizeof word);
    return word;
}

bool SendWords(LinxIpc& from, const std::string& to, unsigned int type,
               const std::vector<std::uint32_t>& words) {
    IpcMessage message;
    std::vector<char> bytes(words.size() * 4);
    if (!words.empty()) {
        std::memcpy(bytes.data(), words.data(), bytes.size());
    }
    return message.Allocate(type, static_cast<unsigned int>(bytes.size()), bytes.data()) == 0 &&
           from.Notify(to, message, true) == 0;
}

// Serves item 5 as a UShortItem, items 1..4 as the tick 1000 + id and item 7 as a BoolItem;
// refuses the rest.
class TestServer : public SubscribeServer {
public:
    TestServer(LinxIpc& ipc, unsigned short value) : SubscribeServer(ipc), value_(value) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        if (itemId == 5) {
            UShortItem item(value_);
            if (reply.Allocate(msgType, item.Size(), nullptr) == 0) {
                item.EncodeMsg(reply);
            }
        } else if (itemId >= 1 && itemId <= 4) {
            SystickItem tick(1000 + itemId);
            if (reply.Allocate(msgType, tick.Size(), nullptr) == 0) {
                tick.EncodeMsg(reply);
            }
        } else if (itemId == 7) {
            BoolItem flag(true);
            if (reply.Allocate(msgType, flag.Size(), nullptr) == 0) {
                flag.EncodeMsg(reply);
            }
        }
    }

private:
    unsigned short value_;
};

void AnswerCount(LinxIpc* ipc, unsigned int type, std::uint32_t count) {
    const std::string sender = ipc->CurrentMessage().GetSender();
    SendWords(*ipc, sender, type, {count});
}

void NotifyNow(LinxIpc* ipc, void* context) {
    UShortItem item(99);
    const int sent = static_cast<TestServer*>(context)->NotifySubscribers(5, item);
    AnswerCount(ipc, kNotified, static_cast<std::uint32_t>(sent));
}

void CountNow(LinxIpc* ipc, void* context) {
    std::uint32_t itemId = 0;
    if (ipc->CurrentMessage().Size() >= 4) {
        itemId = Word(ipc->CurrentMessage(), 0);
    }
    AnswerCount(ipc, kCounted, static_cast<TestServer*>(context)->SubscriberCount(itemId));
}

// The body of a server process named `name`: serves until told to quit.
int RunServer(const char* name, unsigned short value) {
    LinxIpc ipc(name);
    if (ipc.Init() != 0) {
        return 1;
    }
    TestServer server(ipc, value);
    ipc.RegisterHandler(kNotifyNow, NotifyNow, &server);
    ipc.RegisterHandler(kCountNow, CountNow, &server);
    if (!SendSignal(ipc, "Main", kReady)) {
        return 2;
    }
    for (;;) {
        const int result = ipc.Receive(10000, 0, LinxIpc::emptyString, nullptr);
        if (result != 0) {
            return 3;
        }
        if (ipc.CurrentMessage().MsgType() == kQuit) {
            return 0;
        }
    }
}

struct Notices {
    int count = 0;
    unsigned short last = 0;
};

void OnNotice(LinxIpc* ipc, void* context) {
    Notices* notices = static_cast<Notices*>(context);
    UShortItem item;
    if (item.DecodeMsg(ipc->CurrentMessage()) == 0) {
        ++notices->count;
        notices->last = item.Get();
    }
}

std::uint32_t AskCount(LinxIpc& main, const char* server, unsigned int ask, unsigned int answer,
                       std::uint32_t word = 0) {
    IpcMessage reply;
    if (!SendWords(main, server, ask, {word}) || main.Receive(5000, answer, server, &reply) != 0 ||
        reply.Size() < 4) {
        return 0xFFFFFFFFu;
    }
    return Word(reply, 0);
}

}  // namespace

TEST(SubscribeServer, AnswersRequestsAndPushesNotices) {
    TestEnv env;
    LinxIpc serverIpc("Server");
    LinxIpc client("Client");
    ASSERT_EQ(0, serverIpc.Init());
    ASSERT_EQ(0, client.Init());
    TestServer server(serverIpc, 1234);
    IpcMessage reply;

    // Accepted: item id, notification id, status 0, then the item's bytes.
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kSubscribeRequest, {5, 700}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    ASSERT_EQ(0, client.Receive(1000, LinxIpc::kSubscribeReply, "Server", &reply));
    ASSERT_EQ(14u, reply.Size());
    EXPECT_EQ(5u, Word(reply, 0));
    EXPECT_EQ(700u, Word(reply, 1));
    EXPECT_EQ(0u, Word(reply, 2));
    UShortItem value;
    value.Decode(reply.DataPtr() + 12);
    EXPECT_EQ(1234, value.Get());

    // Refused: an unknown item, and an item whose value cannot be allocated.
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kSubscribeRequest, {6, 701}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    ASSERT_EQ(0, client.Receive(1000, LinxIpc::kSubscribeReply, "Server", &reply));
    ASSERT_EQ(12u, reply.Size());
    EXPECT_NE(0u, Word(reply, 2));
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kSubscribeRequest, {5, 702}));
    hostseam::FailNextAllocations(1);
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    ASSERT_EQ(0, client.Receive(1000, LinxIpc::kSubscribeReply, "Server", &reply));
    EXPECT_NE(0u, Word(reply, 2));
    EXPECT_EQ(1u, server.SubscriberCount(5));

    // A short request is dropped without an answer.
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kSubscribeRequest, {5}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(LinxIpc::kTimeout, client.Receive(50, 0, LinxIpc::emptyString, &reply));

    // A repeated request replaces the subscription: one notice, under the new id.
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kSubscribeRequest, {5, 703}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    ASSERT_EQ(0, client.Receive(1000, LinxIpc::kSubscribeReply, "Server", &reply));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    UShortItem changed(77);
    EXPECT_EQ(1, server.NotifySubscribers(5, changed));
    ASSERT_EQ(0, client.Receive(1000, 0, LinxIpc::emptyString, &reply));
    EXPECT_EQ(703u, reply.MsgType());
    value.DecodeMsg(reply);
    EXPECT_EQ(77, value.Get());
    EXPECT_EQ(0, server.NotifySubscribers(6, changed));

    // Unsubscribing names the pairs to drop; a vanished subscriber is dropped on the next
    // notice.
    {
        LinxIpc second("Second");
        ASSERT_EQ(0, second.Init());
        ASSERT_TRUE(SendWords(second, "Server", LinxIpc::kSubscribeRequest, {5, 800}));
        ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(2u, server.SubscriberCount(5));
    }
    EXPECT_EQ(1, server.NotifySubscribers(5, changed));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kUnsubscribeRequest, {5, 999}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    ASSERT_TRUE(SendWords(client, "Server", LinxIpc::kUnsubscribeRequest, {5, 703}));
    ASSERT_EQ(0, serverIpc.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(0u, server.SubscriberCount(5));
}

TEST(SubscribeClient, SubscribeNotifyAndUnsubscribeBetweenProcesses) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    ForkedPeer peer([] { return RunServer("Server", 1234); });
    IpcMessage ready;
    ASSERT_EQ(0, main.Receive(5000, kReady, "Server", &ready));

    SubscribeClient client(main, "Server", 5000);
    Notices notices;
    UShortItem item;
    ASSERT_EQ(0, client.Subscribe(5, 700, item, OnNotice, &notices));
    EXPECT_EQ(1234, item.Get());
    EXPECT_EQ(SubscribeClient::kRefused, client.Subscribe(6, 701, item, OnNotice, &notices));
    // A value shorter than the item asked for is no subscription, at either end.
    SystickItem wider;
    EXPECT_EQ(SubscribeClient::kBadAnswer, client.Subscribe(7, 702, wider, OnNotice, &notices));
    EXPECT_EQ(1u, client.SubscriptionCount());
    EXPECT_EQ(0u, AskCount(main, "Server", kCountNow, kCounted, 7));

    // Only the accepted subscription has a handler.
    ASSERT_TRUE(SendSignal(main, "Main", 701));
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(0, notices.count);

    ASSERT_TRUE(SendSignal(main, "Server", kNotifyNow));
    ASSERT_EQ(0, main.Receive(5000, 700, "Server", nullptr));
    EXPECT_EQ(1, notices.count);
    EXPECT_EQ(99, notices.last);
    IpcMessage sent;
    ASSERT_EQ(0, main.Receive(5000, kNotified, "Server", &sent));
    EXPECT_EQ(1u, Word(sent, 0));

    EXPECT_EQ(0, client.UnsubscribeAll(true));
    EXPECT_EQ(0u, client.SubscriptionCount());
    EXPECT_EQ(0u, AskCount(main, "Server", kCountNow, kCounted, 5));
    ASSERT_TRUE(SendSignal(main, "Server", kQuit));
    EXPECT_EQ(0, peer.Wait(5000));
}

TEST(SubscribeClient, MissingSilentAndRestartedServers) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc silent("Silent");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, silent.Init());
    UShortItem item;
    Notices notices;

    SubscribeClient nobody(main, "Nobody", 5000);
    EXPECT_EQ(SubscribeClient::kNoServer, nobody.Subscribe(5, 700, item, OnNotice, &notices));
    EXPECT_EQ(0, nobody.Resubscribe());  // nothing to renew

    // Traffic that arrives while the client waits is held back, not dispatched.
    main.RegisterHandler(600, OnNotice, &notices);
    ASSERT_TRUE(SendWords(silent, "Main", 600, {0}));
    SubscribeClient quiet(main, "Silent", 100);
    EXPECT_EQ(SubscribeClient::kNoAnswer, quiet.Subscribe(5, 700, item, OnNotice, &notices));
    EXPECT_EQ(0u, quiet.SubscriptionCount());
    EXPECT_EQ(0, notices.count);
    ASSERT_EQ(0, main.Receive(0, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(600u, main.CurrentMessage().MsgType());
    EXPECT_EQ(1, notices.count);
    main.DeregisterHandler(600);
    notices = Notices();

    SubscribeClient client(main, "Server", 5000);
    {
        ForkedPeer first([] { return RunServer("Server", 1); });
        IpcMessage ready;
        ASSERT_EQ(0, main.Receive(5000, kReady, "Server", &ready));
        ASSERT_EQ(0, client.Subscribe(5, 700, item, OnNotice, &notices));
        ASSERT_TRUE(SendSignal(main, "Server", kQuit));
        ASSERT_EQ(0, first.Wait(5000));
    }
    EXPECT_EQ(SubscribeClient::kNoServer, client.Resubscribe());

    ForkedPeer second([] { return RunServer("Server", 2); });
    IpcMessage ready;
    ASSERT_EQ(0, main.Receive(5000, kReady, "Server", &ready));
    EXPECT_EQ(0, client.Resubscribe());
    EXPECT_EQ(1u, AskCount(main, "Server", kNotifyNow, kNotified));
    ASSERT_EQ(0, main.Receive(5000, 700, "Server", nullptr));
    EXPECT_EQ(1, notices.count);
    EXPECT_EQ(99, notices.last);
    ASSERT_TRUE(SendSignal(main, "Server", kQuit));
    EXPECT_EQ(0, second.Wait(5000));
}

namespace {

// A stream manager that answers one request with a fixed REID.
int RunStreamMgr() {
    LinxIpc ipc("StreamMgr");
    if (ipc.Init() != 0 || !SendSignal(ipc, "Main", kReady)) {
        return 1;
    }
    IpcMessage request;
    if (ipc.Receive(10000, StreamMgrApi::kCurrentlyRecordingRequest, LinxIpc::emptyString,
                    &request) != 0) {
        return 2;
    }
    char reid[] = "REID-7\0tail";
    IpcMessage response;
    if (response.Allocate(StreamMgrApi::kCurrentlyRecordingResponse, sizeof reid - 1, reid) != 0 ||
        ipc.Notify(request.GetSender(), response, true) != 0) {
        return 3;
    }
    return 0;
}

}  // namespace

TEST(ServerClients, StateMgrEventsAndRecordingQuery) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 5000));  // no stream manager

    ForkedPeer state([] { return RunServer("StateMgr", 0); });
    IpcMessage ready;
    ASSERT_EQ(0, main.Receive(5000, kReady, "StateMgr", &ready));
    StateMgrClient client(main, 5000);
    EXPECT_EQ("StateMgr", client.ServerName());
    Notices notices;
    EXPECT_TRUE(client.SubscribeForRecordStart(13505, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForRecordStop(13506, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForEnterCovertMode(13507, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForExitCovertMode(13508, OnNotice, &notices));
    EXPECT_EQ(4u, client.SubscriptionCount());
    ASSERT_TRUE(SendSignal(main, "StateMgr", kQuit));
    EXPECT_EQ(0, state.Wait(5000));
    EXPECT_FALSE(client.SubscribeForRecordStart(13505, OnNotice, &notices));

    ForkedPeer stream(RunStreamMgr);
    ASSERT_EQ(0, main.Receive(5000, kReady, "StreamMgr", &ready));
    EXPECT_EQ("REID-7", StreamMgrApi::CurrentlyRecordingREID(main, 5000));
    EXPECT_EQ(0, stream.Wait(5000));

    LinxIpc mute("StreamMgr");
    ASSERT_EQ(0, mute.Init());
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 50));

    FpgaClient fpga(main);
    EXPECT_EQ("FpgaHal", fpga.ServerName());
    EXPECT_EQ(SubscribeClient::kDefaultTimeoutMs, fpga.TimeoutMs());
    ConfigClient config(main, 30000);
    EXPECT_EQ("ConfigMgr", config.ServerName());
    EXPECT_EQ(30000, config.TimeoutMs());

    ::setenv("LVS_FORCE_HQ", "0", 1);
    EXPECT_FALSE(ExternalMgrApi::InLvsForceHqStreaming());
    ::setenv("LVS_FORCE_HQ", "yes", 1);
    EXPECT_TRUE(ExternalMgrApi::InLvsForceHqStreaming());
    ::unsetenv("LVS_FORCE_HQ");
    EXPECT_FALSE(ExternalMgrApi::InLvsForceHqStreaming());
}
