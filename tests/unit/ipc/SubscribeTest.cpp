// The subscribe protocol between real endpoints: a server object answering a client endpoint in
// this process, and clients here talking to server processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <string>

#include "ExternalMgrApi.h"
#include "HostSeams.h"
#include "IpcTestSupport.h"
#include "Item.h"
#include "ServerClients.h"
#include "StreamMgrApi.h"
#include "Subscribe.h"
#include "TestEnv.h"

namespace {

// Runs `body` in a forked child that ends with _exit, so it never runs the parent's destructors
// (which would remove the parent's sockets and test directory). Every child gives up after 10 s
// without traffic; one still running at the end is killed.
class ForkedPeer {
public:
    explicit ForkedPeer(const std::function<int()>& body) : pid_(::fork()) {
        if (pid_ == 0) {
            ::_exit(body());
        }
    }
    ~ForkedPeer() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    ForkedPeer(const ForkedPeer&) = delete;
    ForkedPeer& operator=(const ForkedPeer&) = delete;
    // The child's exit code.
    int Wait() {
        int status = 0;
        const bool ended = pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_;
        pid_ = -1;
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_;
};

// Requests a test server process answers: ready (sent by it), report (see Report), quit.
const unsigned int kReady = 200;
const unsigned int kReport = 300;
const unsigned int kQuit = 304;

void Put(const Item& item, IpcMessage& reply, unsigned int msgType) {
    if (reply.Allocate(msgType, item.Size(), nullptr) == 0) {
        item.EncodeMsg(reply);
    }
}

// Serves item 5 as a UShortItem, items 1..4 as the tick 1000 + id and item 7 as a BoolItem;
// refuses the rest.
class TestServer : public SubscribeServer {
public:
    TestServer(LinxIpc& ipc, unsigned short value) : SubscribeServer(ipc), value_(value) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        if (itemId == 5) {
            Put(UShortItem(value_), reply, msgType);
        } else if (itemId >= 1 && itemId <= 4) {
            Put(SystickItem(1000 + itemId), reply, msgType);
        } else if (itemId == 7) {
            Put(BoolItem(true), reply, msgType);
        }
    }

private:
    unsigned short value_;
};

// Pushes item 5 = 99 to its subscribers, then answers how many got it and how many subscribe
// to items 5 and 7.
void Report(LinxIpc* ipc, void* context) {
    TestServer* server = static_cast<TestServer*>(context);
    UShortItem notice(99);
    const int sent = server->NotifySubscribers(5, notice);
    Send(*ipc, ipc->CurrentMessage().GetSender(), kReport + 1,
         Words({static_cast<std::uint32_t>(sent), server->SubscriberCount(5),
                server->SubscriberCount(7)}));
}

// The body of a server process named `name`: serves until told to quit.
int RunServer(const char* name, unsigned short value) {
    LinxIpc ipc(name);
    if (ipc.Init() != 0) {
        return 1;
    }
    TestServer server(ipc, value);
    ipc.RegisterHandler(kReport, Report, &server);
    if (!Send(ipc, "Main", kReady)) {
        return 2;
    }
    while (ipc.Receive(10000, 0, kAny, nullptr) == 0) {
        if (ipc.CurrentMessage().MsgType() == kQuit) {
            return 0;
        }
    }
    return 3;
}

bool AwaitReady(LinxIpc& main, const char* server) {
    IpcMessage ready;
    return main.Receive(5000, kReady, server, &ready) == 0;
}

// The report of a server process; empty without an answer.
std::string AskReport(LinxIpc& main, const char* server) {
    IpcMessage reply;
    return Send(main, server, kReport) && main.Receive(5000, kReport + 1, server, &reply) == 0
               ? Text(reply)
               : "";
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

}  // namespace

TEST(SubscribeServer, AnswersRequestsAndPushesNotices) {
    TestEnv env;
    LinxIpc serverIpc("Server");
    LinxIpc client("Client");
    ASSERT_EQ(0, serverIpc.Init());
    ASSERT_EQ(0, client.Init());
    TestServer server(serverIpc, 1234);
    IpcMessage reply;
    // The client asks, the server dispatches; true when the client got a reply.
    // `failedAllocations` of the server's next allocations are refused.
    auto request = [&](LinxIpc& from, unsigned int type, const std::string& words,
                       unsigned int failedAllocations = 0) {
        if (!Send(from, "Server", type, words)) {
            return false;
        }
        hostseam::FailNextAllocations(failedAllocations);
        return serverIpc.Receive(1000, 0, kAny, nullptr) == 0 &&
               client.Receive(50, LinxIpc::kSubscribeReply, "Server", &reply) == 0;
    };

    // Accepted: item id, notification id, status 0, then the item's bytes.
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({5, 700})));
    EXPECT_EQ(Words({5, 700, 0}) + std::string("\x04\xd2\x00\x00", 0), Text(reply).substr(0, 12));
    UShortItem value;
    value.Decode(reply.DataPtr() + 12);
    EXPECT_EQ(14u, reply.Size());
    EXPECT_EQ(1234, value.Get());

    // Refused: an unknown item, and an item whose value cannot be allocated.
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({6, 701})));
    EXPECT_EQ(12u, reply.Size());
    EXPECT_NE(0u, Word(reply, 2));
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({5, 702}), 1));
    EXPECT_NE(0u, Word(reply, 2));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    // A short request is dropped without an answer.
    EXPECT_FALSE(request(client, LinxIpc::kSubscribeRequest, Words({5})));

    // A repeated request replaces the subscription: one notice, under the new id.
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({5, 703})));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    UShortItem notice(77);
    EXPECT_EQ(1, server.NotifySubscribers(5, notice));
    ASSERT_EQ(0, client.Receive(1000, 0, kAny, &reply));
    EXPECT_EQ(703u, reply.MsgType());
    value.DecodeMsg(reply);
    EXPECT_EQ(77, value.Get());
    EXPECT_EQ(0, server.NotifySubscribers(6, notice));

    // A vanished subscriber is dropped on the next notice; unsubscribing names the pair.
    {
        LinxIpc second("Second");
        ASSERT_EQ(0, second.Init());
        request(second, LinxIpc::kSubscribeRequest, Words({5, 800}));
        EXPECT_EQ(2u, server.SubscriberCount(5));
    }
    EXPECT_EQ(1, server.NotifySubscribers(5, notice));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    request(client, LinxIpc::kUnsubscribeRequest, Words({5, 999}));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    request(client, LinxIpc::kUnsubscribeRequest, Words({5, 703}));
    EXPECT_EQ(0u, server.SubscriberCount(5));
}

TEST(SubscribeClient, SubscribeNotifyAndUnsubscribeBetweenProcesses) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    ForkedPeer peer([] { return RunServer("Server", 1234); });
    ASSERT_TRUE(AwaitReady(main, "Server"));

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

    // Only the accepted subscription has a handler.
    ASSERT_TRUE(Send(main, "Main", 701));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(0, notices.count);
    EXPECT_EQ(Words({1, 1, 0}), AskReport(main, "Server"));
    ASSERT_EQ(0, main.Receive(5000, 700, "Server", nullptr));
    EXPECT_EQ(1, notices.count);
    EXPECT_EQ(99, notices.last);

    EXPECT_EQ(0, client.UnsubscribeAll(true));
    EXPECT_EQ(0u, client.SubscriptionCount());
    EXPECT_EQ(Words({0, 0, 0}), AskReport(main, "Server"));
    ASSERT_TRUE(Send(main, "Server", kQuit));
    EXPECT_EQ(0, peer.Wait());
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
    ASSERT_TRUE(Send(silent, "Main", 600, Words({0})));
    SubscribeClient quiet(main, "Silent", 100);
    EXPECT_EQ(SubscribeClient::kNoAnswer, quiet.Subscribe(5, 700, item, OnNotice, &notices));
    EXPECT_EQ(0u, quiet.SubscriptionCount());
    EXPECT_EQ(0, notices.count);
    ASSERT_EQ(0, main.Receive(0, 0, kAny, nullptr));
    EXPECT_EQ(1, notices.count);
    main.DeregisterHandler(600);
    notices = Notices();

    SubscribeClient client(main, "Server", 5000);
    {
        ForkedPeer first([] { return RunServer("Server", 1); });
        ASSERT_TRUE(AwaitReady(main, "Server"));
        ASSERT_EQ(0, client.Subscribe(5, 700, item, OnNotice, &notices));
        ASSERT_TRUE(Send(main, "Server", kQuit));
        ASSERT_EQ(0, first.Wait());
    }
    EXPECT_EQ(SubscribeClient::kNoServer, client.Resubscribe());

    ForkedPeer second([] { return RunServer("Server", 2); });
    ASSERT_TRUE(AwaitReady(main, "Server"));
    EXPECT_EQ(0, client.Resubscribe());
    EXPECT_EQ(Words({1, 1, 0}), AskReport(main, "Server"));
    ASSERT_EQ(0, main.Receive(5000, 700, "Server", nullptr));
    EXPECT_EQ(99, notices.last);
    ASSERT_TRUE(Send(main, "Server", kQuit));
    EXPECT_EQ(0, second.Wait());
}

TEST(ServerClients, StateMgrEventsAndRecordingQuery) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 5000));  // no stream manager

    ForkedPeer state([] { return RunServer("StateMgr", 0); });
    ASSERT_TRUE(AwaitReady(main, "StateMgr"));
    StateMgrClient client(main, 5000);
    Notices notices;
    EXPECT_TRUE(client.SubscribeForRecordStart(13505, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForRecordStop(13506, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForEnterCovertMode(13507, OnNotice, &notices));
    EXPECT_TRUE(client.SubscribeForExitCovertMode(13508, OnNotice, &notices));
    EXPECT_EQ(4u, client.SubscriptionCount());
    ASSERT_TRUE(Send(main, "StateMgr", kQuit));
    EXPECT_EQ(0, state.Wait());
    EXPECT_FALSE(client.SubscribeForRecordStart(13505, OnNotice, &notices));

    // A stream manager that answers one request with a REID followed by other bytes.
    ForkedPeer stream([] {
        LinxIpc ipc("StreamMgr");
        IpcMessage request;
        return ipc.Init() == 0 && Send(ipc, "Main", kReady) &&
                       ipc.Receive(10000, StreamMgrApi::kCurrentlyRecordingRequest, kAny,
                                   &request) == 0 &&
                       Send(ipc, request.GetSender(), StreamMgrApi::kCurrentlyRecordingResponse,
                            std::string("REID-7\0tail", 11))
                   ? 0
                   : 1;
    });
    ASSERT_TRUE(AwaitReady(main, "StreamMgr"));
    EXPECT_EQ("REID-7", StreamMgrApi::CurrentlyRecordingREID(main, 5000));
    EXPECT_EQ(0, stream.Wait());
    LinxIpc mute("StreamMgr");
    ASSERT_EQ(0, mute.Init());
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 50));

    EXPECT_EQ("FpgaHal", FpgaClient(main).ServerName());
    EXPECT_EQ("ConfigMgr", ConfigClient(main, 30000).ServerName());

    for (const char* force : std::initializer_list<const char*>{"0", "yes", nullptr}) {
        force == nullptr ? ::unsetenv("LVS_FORCE_HQ") : ::setenv("LVS_FORCE_HQ", force, 1);
        EXPECT_EQ(force != nullptr && *force != '0', ExternalMgrApi::InLvsForceHqStreaming());
    }
}
