#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ForkedPeer.h"
#include "HostSeams.h"
#include "LinxIpc.h"
#include "TestEnv.h"

namespace {

const unsigned int kReady = 200;

bool Exists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

// Leaves a socket file nobody listens on, as a crashed process does.
void LeaveStaleSocket(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address));
    ::close(fd);
}

IpcMessage Bytes(unsigned int type, const std::string& text) {
    IpcMessage message;
    std::string copy = text;
    EXPECT_EQ(0, message.Allocate(type, static_cast<unsigned int>(copy.size()), &copy[0]));
    return message;
}

std::string Text(const IpcMessage& message) {
    return message.Size() == 0
               ? std::string()
               : std::string(reinterpret_cast<const char*>(message.DataPtr()), message.Size());
}

struct Calls {
    std::vector<unsigned int> types;
    std::vector<std::string> payloads;
};

void Record(LinxIpc* ipc, void* context) {
    Calls* calls = static_cast<Calls*>(context);
    calls->types.push_back(ipc->CurrentMessage().MsgType());
    calls->payloads.push_back(Text(ipc->CurrentMessage()));
}

}  // namespace

TEST(LinxIpc, EndpointNamesAreOwnedOneAtATime) {
    TestEnv env;
    // The domain directory is made on first use.
    const std::string nested = env.Path("not/yet/there");
    ::setenv("LINX_DOMAIN", nested.c_str(), 1);

    LinxIpc never("Never");
    IpcMessage message;
    EXPECT_EQ(LinxIpc::kError, never.Receive(0, 0, LinxIpc::emptyString, &message));
    EXPECT_NE(0, never.Notify("Never", message, true));

    {
        LinxIpc first("Owner");
        ASSERT_EQ(0, first.Init());
        EXPECT_EQ("Owner", first.Name());
        EXPECT_TRUE(Exists(nested + "/Owner"));
        LinxIpc second("Owner");
        EXPECT_NE(0, second.Init());
        // The refused endpoint did not take the name away from the live one.
        LinxIpc other("Other");
        ASSERT_EQ(0, other.Init());
        IpcMessage hello = Bytes(1, "hi");
        EXPECT_EQ(0, other.Notify("Owner", hello, true));
        IpcMessage got;
        EXPECT_EQ(0, first.Receive(1000, 0, LinxIpc::emptyString, &got));
        EXPECT_EQ("Other", got.GetSender());

        EXPECT_NE(0, other.Notify("Missing", hello, true));
        EXPECT_NE(0, other.Notify("", hello, true));
        EXPECT_NE(0, other.Notify("../Owner", hello, true));
    }
    // Gone with its endpoint: the name is free and nobody receives under it.
    EXPECT_FALSE(Exists(nested + "/Owner"));

    LeaveStaleSocket(nested + "/Stale");
    LinxIpc sender("Sender");
    ASSERT_EQ(0, sender.Init());
    IpcMessage hello = Bytes(1, "hi");
    EXPECT_NE(0, sender.Notify("Stale", hello, true));
    LinxIpc stale("Stale");
    EXPECT_EQ(0, stale.Init());
    EXPECT_EQ(0, sender.Notify("Stale", hello, true));
    ::setenv("LINX_DOMAIN", env.Domain().c_str(), 1);
}

TEST(LinxIpc, TwoProcessesExchangeSmallAndLargestPayloads) {
    TestEnv env;
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    ForkedPeer peer([] {
        LinxIpc ipc("Peer");
        if (ipc.Init() != 0 || !SendSignal(ipc, "Main", kReady)) {
            return 1;
        }
        // Echo two messages with the type raised by one.
        for (int i = 0; i < 2; ++i) {
            IpcMessage in;
            if (ipc.Receive(5000, 0, "Main", &in) != 0) {
                return 2;
            }
            IpcMessage out;
            if (out.Allocate(in.MsgType() + 1, in.Size(), reinterpret_cast<char*>(in.DataPtr())) !=
                    0 ||
                ipc.Notify(in.GetSender(), out, true) != 0) {
                return 3;
            }
        }
        return 0;
    });
    IpcMessage ready;
    ASSERT_EQ(0, main.Receive(5000, kReady, "Peer", &ready));

    IpcMessage small = Bytes(10, "ping");
    ASSERT_EQ(0, main.Notify("Peer", small, true));
    std::string large(IpcMessage::kMaxPayload, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>(i * 7 + i / 256);
    }
    IpcMessage big = Bytes(20, large);
    ASSERT_EQ(0, main.Notify("Peer", big, true));

    IpcMessage echo;
    ASSERT_EQ(0, main.Receive(5000, 11, LinxIpc::emptyString, &echo));
    EXPECT_EQ("ping", Text(echo));
    EXPECT_EQ("Peer", echo.GetSender());
    ASSERT_EQ(0, main.Receive(5000, 21, LinxIpc::emptyString, &echo));
    EXPECT_EQ(IpcMessage::kMaxPayload, echo.Size());
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
        IpcMessage m = Bytes(i % 2 == 0 ? 1 : 2, sent[i]);
        ASSERT_EQ(0, b.Notify("Main", m, true));
    }
    IpcMessage fromC = Bytes(1, "c1-4");
    ASSERT_EQ(0, c.Notify("Main", fromC, true));

    Calls calls;
    main.RegisterHandler(1, Record, &calls);
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 2, LinxIpc::emptyString, &got));
    EXPECT_EQ("b2-1", Text(got));
    ASSERT_EQ(0, main.Receive(1000, 1, "C", &got));
    EXPECT_EQ("c1-4", Text(got));
    EXPECT_TRUE(calls.types.empty());  // a copy out runs no handler
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 3, LinxIpc::emptyString, &got));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(20, 1, "Nobody", &got));

    // Dispatching receives take the held messages in arrival order; type 2 has no handler and
    // just becomes current.
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, main.Receive(0, 0, LinxIpc::emptyString, nullptr));
    }
    EXPECT_EQ("b2-3", Text(main.CurrentMessage()));
    EXPECT_EQ((std::vector<std::string>{"b1-0", "b1-2"}), calls.payloads);
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, LinxIpc::emptyString, nullptr));

    // A deregistered handler is simply not called.
    main.DeregisterHandler(1);
    IpcMessage again = Bytes(1, "late");
    ASSERT_EQ(0, b.Notify("Main", again, true));
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ("late", Text(main.CurrentMessage()));
    EXPECT_EQ(2u, calls.payloads.size());
}

namespace {

struct Nested {
    LinxIpc* peer;
    std::string nestedPayload;
    int nestedResult = -1;
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
    IpcMessage kick = Bytes(42, "nested");
    nested->peer->Notify(ipc->Name(), kick, true);
    IpcMessage got;
    nested->nestedResult = ipc->Receive(1000, 42, LinxIpc::emptyString, &got);
    nested->nestedPayload = Text(got);
    ipc->DeregisterHandler(40);
    ipc->RegisterHandler(30, Answer, nullptr);
}

}  // namespace

TEST(LinxIpc, HandlersAnswerAndReceiveFromInsideReceive) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc peer("Peer");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, peer.Init());
    Nested nested{&peer, "", -1};
    main.RegisterHandler(40, WaitInside, &nested);
    IpcMessage start = Bytes(40, "start");
    IpcMessage later = Bytes(41, "held");
    ASSERT_EQ(0, peer.Notify("Main", start, true));
    ASSERT_EQ(0, peer.Notify("Main", later, true));

    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(0, nested.nestedResult);
    EXPECT_EQ("nested", nested.nestedPayload);
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ("held", Text(main.CurrentMessage()));

    // The handler registered from inside a handler answers the requester.
    IpcMessage ping = Bytes(30, "ping");
    ASSERT_EQ(0, peer.Notify("Main", ping, true));
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    IpcMessage pong;
    ASSERT_EQ(0, peer.Receive(1000, 31, "Main", &pong));
    EXPECT_EQ("pong", Text(pong));
}

TEST(LinxIpc, ReceivedMessagesIgnoreTheAllocationSeam) {
    TestEnv env;
    LinxIpc main("Main");
    LinxIpc peer("Peer");
    ASSERT_EQ(0, main.Init());
    ASSERT_EQ(0, peer.Init());
    IpcMessage a = Bytes(1, "one");
    IpcMessage b = Bytes(2, "two");
    ASSERT_EQ(0, peer.Notify("Main", a, true));
    ASSERT_EQ(0, peer.Notify("Main", b, true));

    // The platform's own copies (holding back, handing out) must not use up the refusals
    // meant for the code under test.
    hostseam::FailNextAllocations(1);
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 2, LinxIpc::emptyString, &got));
    ASSERT_EQ(0, main.Receive(1000, 1, LinxIpc::emptyString, nullptr));
    EXPECT_EQ("one", Text(main.CurrentMessage()));
    EXPECT_NE(0, main.CurrentMessage().Allocate(3, 1, nullptr));
    EXPECT_EQ(0, main.CurrentMessage().Allocate(3, 1, nullptr));
}
