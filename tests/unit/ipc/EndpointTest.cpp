#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "HostSeams.h"
#include "IpcTestSupport.h"
#include "LinxServerNameList.h"
#include "TestEnv.h"

namespace {

const std::string kAny = LinxIpc::emptyString;

bool Exists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

// Each handler call is logged as "<type>:<payload>".
void Record(LinxIpc* ipc, void* context) {
    const IpcMessage& m = ipc->CurrentMessage();
    static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(m.MsgType()) + ":" +
                                                               Text(m));
}

}  // namespace

TEST(LinxIpc, EndpointNamesAreOwnedOneAtATime) {
    TestEnv env;
    const std::string nested = env.Path("not/yet/there");  // made on first use
    ::setenv("LINX_DOMAIN", nested.c_str(), 1);

    LinxIpc never("Never");
    IpcMessage message;
    EXPECT_EQ(LinxIpc::kError, never.Receive(0, 0, kAny, &message));
    EXPECT_NE(0, never.Notify("Never", message, true));
    {
        LinxIpc first("Owner");
        ASSERT_EQ(0, first.Init());
        EXPECT_TRUE(Exists(nested + "/Owner"));
        LinxIpc second("Owner");
        EXPECT_NE(0, second.Init());
        // The refused endpoint did not take the name away from the live one.
        LinxIpc other("Other");
        ASSERT_EQ(0, other.Init());
        ASSERT_TRUE(Send(other, "Owner", 1, "hi"));
        EXPECT_EQ(0, first.Receive(1000, 0, kAny, &message));
        EXPECT_EQ("Other", message.GetSender());
        for (const char* bad : {"Missing", "", "../Owner"}) {
            EXPECT_FALSE(Send(other, bad, 1, "hi")) << bad;
        }
    }
    EXPECT_FALSE(Exists(nested + "/Owner"));

    // A socket file left by a crashed process receives nothing and does not block the name.
    { RawSocket crashed(nested, "Stale"); }
    LinxIpc sender("Sender");
    ASSERT_EQ(0, sender.Init());
    EXPECT_FALSE(Send(sender, "Stale", 1, "hi"));
    LinxIpc stale("Stale");
    EXPECT_EQ(0, stale.Init());
    EXPECT_TRUE(Send(sender, "Stale", 1, "hi"));
    ::setenv("LINX_DOMAIN", env.Domain().c_str(), 1);
}

TEST(LinxIpc, TwoProcessesExchangeSmallAndLargestPayloads) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    ForkedPeer peer([] {
        LinxIpc ipc("Peer");
        if (ipc.Init() != 0 || !Send(ipc, "Main", 200)) {
            return 1;
        }
        for (int i = 0; i < 2; ++i) {  // echo with the type raised by one
            IpcMessage in;
            if (ipc.Receive(5000, 0, "Main", &in) != 0 ||
                !Send(ipc, in.GetSender(), in.MsgType() + 1, Text(in))) {
                return 2;
            }
        }
        return 0;
    });
    IpcMessage echo;
    ASSERT_EQ(0, main.Receive(5000, 200, "Peer", &echo));
    std::string large(IpcMessage::kMaxPayload, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>(i * 7 + i / 256);
    }
    ASSERT_TRUE(Send(main, "Peer", 10, "ping"));
    ASSERT_TRUE(Send(main, "Peer", 20, large));
    ASSERT_EQ(0, main.Receive(5000, 11, kAny, &echo));
    EXPECT_EQ("ping", Text(echo));
    EXPECT_EQ("Peer", echo.GetSender());
    ASSERT_EQ(0, main.Receive(5000, 21, kAny, &echo));
    EXPECT_TRUE(Text(echo) == large);
    EXPECT_EQ(0, peer.Wait(5000));
}

TEST(LinxIpc, SelectiveReceiveHoldsBackTheRestInArrivalOrder) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc b("B");
    LinxIpc c("C");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, b.Init());
    ASSERT_EQ(0, c.Init());
    const char* sent[] = {"b1-0", "b2-1", "b1-2", "b2-3"};
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(Send(b, "Main", i % 2 == 0 ? 1 : 2, sent[i]));
    }
    ASSERT_TRUE(Send(c, "Main", 1, "c1-4"));

    std::vector<std::string> calls;
    main.RegisterHandler(1, Record, &calls);
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 2, kAny, &got));
    EXPECT_EQ("b2-1", Text(got));
    ASSERT_EQ(0, main.Receive(1000, 1, "C", &got));
    EXPECT_EQ("c1-4", Text(got));
    EXPECT_TRUE(calls.empty());  // a copy out runs no handler
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 3, kAny, &got));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(20, 1, "Nobody", &got));

    // Dispatching receives take the held messages in arrival order; type 2 has no handler and
    // just becomes current.
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, main.Receive(0, 0, kAny, nullptr));
    }
    EXPECT_EQ("b2-3", Text(main.CurrentMessage()));
    EXPECT_EQ((std::vector<std::string>{"1:b1-0", "1:b1-2"}), calls);
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));

    main.DeregisterHandler(1);
    ASSERT_TRUE(Send(b, "Main", 1, "late"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ("late", Text(main.CurrentMessage()));
    EXPECT_EQ(2u, calls.size());
}

namespace {

struct Nested {
    LinxIpc* peer;
    std::string payload;
    int result = -1;
};

// Answers the requester in the received message object, as the process's handlers do.
void Answer(LinxIpc* ipc, void*) {
    IpcMessage& current = ipc->CurrentMessage();
    const std::string sender = current.GetSender();
    char reply[] = "pong";
    if (current.Allocate(31, 4, reply) == 0) {
        ipc->Notify(sender, current, true);
    }
}

// Waits inside a handler for one message while others stay held back, like a subscribe call
// made from a handler; then changes the handler table it is dispatched from.
void WaitInside(LinxIpc* ipc, void* context) {
    Nested* nested = static_cast<Nested*>(context);
    Send(*nested->peer, ipc->Name(), 42, "nested");
    IpcMessage got;
    nested->result = ipc->Receive(1000, 42, kAny, &got);
    nested->payload = Text(got);
    ipc->DeregisterHandler(40);
    ipc->RegisterHandler(30, Answer, nullptr);
}

}  // namespace

TEST(LinxIpc, HandlersReceiveAndAnswerFromInsideReceive) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc peer("Peer");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, peer.Init());
    Nested nested{&peer, "", -1};
    main.RegisterHandler(40, WaitInside, &nested);
    ASSERT_TRUE(Send(peer, "Main", 40, "start"));
    ASSERT_TRUE(Send(peer, "Main", 41, "held"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(0, nested.result);
    EXPECT_EQ("nested", nested.payload);

    // The platform's own copies (holding back, handing out) must not use up the refusals
    // meant for the code under test.
    hostseam::FailNextAllocations(1);
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ("held", Text(main.CurrentMessage()));
    EXPECT_NE(0, main.CurrentMessage().Allocate(3, 1, nullptr));

    // The handler registered from inside a handler answers the requester.
    ASSERT_TRUE(Send(peer, "Main", 30, "ping"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    IpcMessage pong;
    ASSERT_EQ(0, peer.Receive(1000, 31, "Main", &pong));
    EXPECT_EQ("pong", Text(pong));
}

// The state manager's notices: shutdown overtakes waiting messages, process-died names the
// process, and filters and copies out still apply to them.
TEST(LinxIpc, NoticesOvertakeAndCarryTheirProcess) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc state("StateMgr");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, state.Init());
    std::vector<std::string> log;
    main.RegisterShutdown(Record, &log);
    main.RegisterProcessDied(Record, &log);
    main.RegisterHandler(20, Record, &log);
    const std::string died = std::to_string(LinxIpc::kProcessDiedNotice) + ":";
    const std::string quit = std::to_string(LinxIpc::kShutdownNotice) + ":";

    ASSERT_TRUE(Send(state, "Main", 20));
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    ASSERT_TRUE(Send(state, "Main", 21));
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ((std::vector<std::string>{quit, "20:"}), log);
    EXPECT_EQ(20u, main.CurrentMessage().MsgType());  // the one dispatched after the notice
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(21u, main.CurrentMessage().MsgType());

    ASSERT_TRUE(Send(state, "Main", LinxIpc::kProcessDiedNotice, Words({e_Process_VideoMgr})));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    ASSERT_EQ(3u, log.size());
    EXPECT_EQ(died + Words({e_Process_VideoMgr}), log[2]);

    // A selective receive for another type leaves the notice for the main loop; a copy out is
    // not a dispatch.
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    ASSERT_TRUE(Send(state, "Main", 30));
    IpcMessage got;
    EXPECT_EQ(0, main.Receive(1000, 30, kAny, &got));
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, kAny, nullptr));
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, &got));
    EXPECT_EQ(LinxIpc::kShutdownNotice, got.MsgType());
    EXPECT_EQ(4u, log.size());

    // Without handlers a shutdown notice is only reported and stays current.
    main.DeregisterShutdown();
    main.DeregisterProcessDied();
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(LinxIpc::kShutdownNotice, main.CurrentMessage().MsgType());
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kProcessDiedNotice, Words({e_Process_Fpga})));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(LinxIpc::kProcessDiedNotice, main.CurrentMessage().MsgType());
    EXPECT_EQ(4u, log.size());
}
