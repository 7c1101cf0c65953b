// Messages, endpoints and the subscribe protocol of the host IPC layer, between real sockets
// of a private domain. Subscribing to real servers, refusals, notices and renewals after a
// restart are proven by the manager's start-up and restart tests; here only what those cannot
// provoke.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "Backlog.h"
#include "ExternalMgrApi.h"
#include "HostSeams.h"
#include "HostSync.h"
#include "Item.h"
#include "ItemServer.h"
#include "LinxServerNameList.h"
#include "StreamMgrApi.h"
#include "Subscribe.h"
#include "TestEnv.h"

namespace {

const std::string kAny;  // empty: any sender

std::string Text(const IpcMessage& message) {
    return message.Size() == 0
               ? std::string()
               : std::string(reinterpret_cast<const char*>(message.DataPtr()), message.Size());
}

// Native-order words, as the subscribe protocol and the notices carry them.
std::string Words(std::initializer_list<std::uint32_t> words) {
    std::string bytes;
    for (std::uint32_t word : words) {
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    return bytes;
}

// True when the message was sent.
bool Send(LinxIpc& from, const std::string& to, unsigned int type, std::string bytes = "") {
    IpcMessage message;
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    bytes.push_back('\0');  // a writable buffer even for an empty payload
    return message.Allocate(type, size, &bytes[0]) == 0 && from.Notify(to, message, true) == 0;
}

// The payload's bytes followed by the guard, which must read as zeros.
std::string WithGuard(const IpcMessage& message) {
    return std::string(reinterpret_cast<const char*>(message.DataPtr()),
                       message.Size() + IpcMessage::kGuardBytes);
}

std::string Guarded(const std::string& payload) {
    return payload + std::string(IpcMessage::kGuardBytes, '\0');
}

// An endpoint of the test's domain, up from the start; an Init that fails fails the test.
struct Endpoint : LinxIpc {
    explicit Endpoint(const std::string& name) : LinxIpc(name) { EXPECT_EQ(0, Init()) << name; }
};

// Each handler call is logged as "<type>:<payload>".
void Record(LinxIpc* ipc, void* context) {
    const IpcMessage& m = ipc->CurrentMessage();
    static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(m.MsgType()) + ":" +
                                                               Text(m));
}

// A datagram socket bound in the domain without the platform: what another implementation of
// the frame sees. Closing it leaves the socket file behind, as a crashed process does.
class RawSocket {
public:
    RawSocket(const std::string& domain, const std::string& name)
        : domain_(domain), fd_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        struct sockaddr_un address = Address(name);
        bound_ = ::bind(fd_, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawSocket() { ::close(fd_); }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;
    bool Bound() const { return bound_; }
    bool SendTo(const std::string& name, const Bytes& bytes) {
        struct sockaddr_un address = Address(name);
        return ::sendto(fd_, bytes.data(), bytes.size(), 0,
                        reinterpret_cast<struct sockaddr*>(&address),
                        sizeof address) == static_cast<ssize_t>(bytes.size());
    }
    Bytes Receive() {
        Bytes bytes(70000);
        const ssize_t got = ::recv(fd_, bytes.data(), bytes.size(), 0);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

private:
    struct sockaddr_un Address(const std::string& name) const {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (domain_ + "/" + name).copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }
    std::string domain_;
    int fd_;
    bool bound_ = false;
};

const unsigned int kMagic = 0x4C4E5846u;

// magic, type, sender length, payload length (all big-endian), sender, payload.
Bytes Frame(unsigned int magic, unsigned int type, const std::string& sender,
            unsigned int nameLength, const std::string& payload, unsigned int payloadLength) {
    Bytes frame;
    for (unsigned int value : {magic, type, nameLength, payloadLength}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            frame.push_back(static_cast<unsigned char>(value >> shift));
        }
    }
    frame.insert(frame.end(), sender.begin(), sender.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

}  // namespace

TEST(IpcMessage, PayloadIsCopiedZeroGuardedAndRefusedAsAsked) {
    IpcMessage message;
    std::vector<char> big(3000, '\x5a');
    ASSERT_EQ(0, message.Allocate(7, 3000, big.data()));
    big[0] = 0;  // the message owns a copy
    EXPECT_EQ(0x5a, message.DataPtr()[0]);

    // Shrinking in the same buffer must not leave the old bytes readable past the payload.
    ASSERT_EQ(0, message.Allocate(8, 2, const_cast<char*>("\1\2")));
    EXPECT_EQ(Guarded("\1\2"), WithGuard(message));
    ASSERT_EQ(0, message.Allocate(10, 5, nullptr));
    EXPECT_EQ(Guarded(std::string(5, '\0')), WithGuard(message));

    // Handlers answer with part of the request still in the same object, also while growing
    // past the buffer (the guard keeps the read inside).
    ASSERT_EQ(0, message.Allocate(1, 6, const_cast<char*>("abcdef")));
    ASSERT_EQ(0, message.Allocate(2, 3, reinterpret_cast<char*>(message.DataPtr() + 3)));
    EXPECT_EQ(Guarded("def"), WithGuard(message));
    ASSERT_EQ(0, message.Allocate(3, 1000, reinterpret_cast<char*>(message.DataPtr())));
    EXPECT_EQ(Guarded("def" + std::string(997, '\0')), WithGuard(message));

    const std::string largest(IpcMessage::kMaxPayload, 'q');
    ASSERT_EQ(0, message.Allocate(4, IpcMessage::kMaxPayload, const_cast<char*>(largest.data())));
    EXPECT_NE(0, message.Allocate(5, IpcMessage::kMaxPayload + 1, nullptr));
    EXPECT_EQ(4u, message.MsgType());  // a refused Allocate leaves the message as it was
    message.SetSender("Sender");
    IpcMessage copy(message);
    IpcMessage assigned;
    ASSERT_EQ(0, assigned.Allocate(1, 100, nullptr));
    assigned = message;
    message.DataPtr()[0] = 'r';
    for (const IpcMessage* m : {&copy, &assigned}) {
        EXPECT_EQ(4u, m->MsgType());
        EXPECT_EQ("Sender", m->GetSender());
        EXPECT_TRUE(Guarded(largest) == WithGuard(*m));
    }
    // Assigned a smaller message, a copy keeps its buffer and shows only the new payload;
    // assigned itself, it stays as it was.
    ASSERT_EQ(0, message.Allocate(12, 2, const_cast<char*>("\7\7")));
    copy = message;
    const IpcMessage& same = copy;
    copy = same;
    EXPECT_EQ(12u, copy.MsgType());
    EXPECT_EQ(Guarded("\7\7"), WithGuard(copy));
    ASSERT_EQ(0, message.Allocate(11, 0, nullptr));
    EXPECT_EQ(nullptr, message.DataPtr());
}

TEST(LinxServerNameList, EveryNameLeadsBackToItsProcess) {
    LinxServerNameList& names = LinxServerNameList::Instance();
    EXPECT_EQ("FpgaHal", names.Name(e_Process_Fpga));
    for (unsigned int p = 1; p < e_Process_Count; ++p) {
        EXPECT_EQ(p, static_cast<unsigned int>(names.Find(names.Name(p)))) << p;
    }
    EXPECT_EQ(e_Process_Unknown, names.Find("NoSuchProcess"));
    EXPECT_EQ(e_Process_Unknown, names.Find(""));
    // A number past the table has a name of its own, which is no process.
    EXPECT_EQ("Process" + std::to_string(e_Process_Count + 3), names.Name(e_Process_Count + 3));
    EXPECT_EQ(e_Process_Unknown, names.Find(names.Name(e_Process_Count + 3)));
}

TEST(IpcWire, HeaderIsBigEndianAndMalformedDatagramsAreDropped) {
    TestEnv env;
    RawSocket raw(env.Domain(), "Raw");
    ASSERT_TRUE(raw.Bound());
    Endpoint main("Main");
    ASSERT_TRUE(Send(main, "Raw", 0x01020304u, "xyz"));
    EXPECT_EQ(Frame(kMagic, 0x01020304u, "Main", 4, "xyz", 3), raw.Receive());
    ASSERT_TRUE(Send(main, "Raw", 5));
    EXPECT_EQ(Frame(kMagic, 5, "Main", 4, "", 0), raw.Receive());
    std::string largest(IpcMessage::kMaxPayload, '\0');
    for (std::size_t i = 0; i < largest.size(); ++i) {
        largest[i] = static_cast<char>(i * 7 + i / 256);
    }
    ASSERT_TRUE(Send(main, "Raw", 6, largest));
    EXPECT_TRUE(Frame(kMagic, 6, "Main", 4, largest, IpcMessage::kMaxPayload) == raw.Receive());

    const std::string tooLarge(IpcMessage::kMaxPayload + 1, 'x');
    for (const Bytes& datagram : {
             Bytes{1, 2, 3},
             Frame(0x12345678u, 1, "Raw", 3, "hi", 2),                 // wrong magic
             Frame(kMagic, 1, "Raw", 3, "hi", 100),                    // claims more than it has
             Frame(kMagic, 1, "Raw", 3, "hi", 1),                      // has more than it claims
             Frame(kMagic, 1, "", 0, "hi", 2),                         // no sender
             Frame(kMagic, 1, "Raw", 0xFFFFFFFFu, "hi", 0xFFFFFFFFu),  // lengths that wrap a sum
             Frame(kMagic, 1, "Raw", 3, tooLarge, IpcMessage::kMaxPayload + 1),
         }) {
        ASSERT_TRUE(raw.SendTo("Main", datagram));
    }
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, 0x0A0B0C0Du, "Raw", 3, "ok", 2)));
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, 7, "Raw", 3, largest, IpcMessage::kMaxPayload)));
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, &got));
    EXPECT_EQ(0x0A0B0C0Du, got.MsgType());
    EXPECT_EQ("Raw", got.GetSender());
    EXPECT_EQ("ok", Text(got));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, &got));
    EXPECT_TRUE(Text(got) == largest);
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, &got));
}

TEST(LinxIpc, EndpointNamesAreOwnedOneAtATime) {
    TestEnv env;
    const std::string nested = env.Path("not/yet/there");  // made on first use
    ::setenv("LINX_DOMAIN", nested.c_str(), 1);
    struct stat info;
    const std::string owner = nested + "/Owner";

    LinxIpc never("Never");
    IpcMessage message;
    EXPECT_EQ(LinxIpc::kError, never.Receive(0, 0, kAny, &message));
    EXPECT_NE(0, never.Notify("Never", message, true));
    {
        Endpoint first("Owner");
        EXPECT_NE(0, LinxIpc("Forged\nLine").Init());  // a name that could forge a log line
        // A refused endpoint, also once gone, leaves the name to the live one.
        EXPECT_NE(0, LinxIpc("Owner").Init());
        Endpoint other("Other");
        ASSERT_TRUE(Send(other, "Owner", 1, "hi"));
        EXPECT_EQ(0, first.Receive(1000, 0, kAny, &message));
        EXPECT_EQ("Other", message.GetSender());
        for (const char* bad : {"Missing", "", "../Owner"}) {
            EXPECT_FALSE(Send(other, bad, 1, "hi")) << bad;
        }
    }
    EXPECT_NE(0, ::stat(owner.c_str(), &info));  // removed with its endpoint

    // A socket file left by a crashed process receives nothing and does not block the name.
    { RawSocket crashed(nested, "Stale"); }
    Endpoint sender("Sender");
    EXPECT_FALSE(Send(sender, "Stale", 1, "hi"));
    Endpoint stale("Stale");
    EXPECT_TRUE(Send(sender, "Stale", 1, "hi"));
    ::setenv("LINX_DOMAIN", env.Domain().c_str(), 1);
}

namespace {

struct Inside {
    LinxIpc* peer;
    std::vector<std::string> calls;
};

// Waits inside a handler for one message while others stay held back, like a subscribe call
// made from a handler; only when that works it changes the handler table it is dispatched from.
void WaitInside(LinxIpc* ipc, void* context) {
    Inside* inside = static_cast<Inside*>(context);
    IpcMessage got;
    if (Send(*inside->peer, ipc->Name(), 42, "nested") && ipc->Receive(1000, 42, kAny, &got) == 0 &&
        Text(got) == "nested") {
        ipc->DeregisterHandler(40);
        ipc->RegisterHandler(30, Record, &inside->calls);
    }
}

}  // namespace

TEST(LinxIpc, SelectiveReceiveHoldsBackTheRestInArrivalOrderAlsoInsideHandlers) {
    TestEnv env;
    Endpoint main("Main");
    Endpoint b("B");
    Endpoint c("C");
    const char* sent[] = {"b1-0", "b2-1", "b1-2", "b2-3"};
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(Send(b, "Main", i % 2 == 0 ? 1 : 2, sent[i]));
    }
    ASSERT_TRUE(Send(c, "Main", 1, "c1-4"));

    Inside inside{&b, {}};
    main.RegisterHandler(1, Record, &inside.calls);
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 2, kAny, &got));
    EXPECT_EQ("b2-1", Text(got));
    ASSERT_EQ(0, main.Receive(1000, 1, "C", &got));
    EXPECT_EQ("c1-4", Text(got));
    EXPECT_TRUE(inside.calls.empty());  // a copy out runs no handler
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 3, kAny, &got));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(20, 1, "Nobody", &got));

    // Dispatching receives take the held messages in arrival order; type 2 has no handler and
    // just becomes current.
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, main.Receive(0, 0, kAny, nullptr));
    }
    EXPECT_EQ("b2-3", Text(main.CurrentMessage()));
    EXPECT_EQ((std::vector<std::string>{"1:b1-0", "1:b1-2"}), inside.calls);
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));

    main.RegisterHandler(40, WaitInside, &inside);
    ASSERT_TRUE(Send(b, "Main", 40, "start"));
    ASSERT_TRUE(Send(b, "Main", 41, "held"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    // The platform's own copies (holding back, handing out) must not use up the refusals
    // meant for the code under test.
    hostseam::FailNextAllocations(1);
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ("held", Text(main.CurrentMessage()));
    EXPECT_NE(0, main.CurrentMessage().Allocate(3, 1, nullptr));
    // Only a handler that got its nested message registered the one that records here.
    ASSERT_TRUE(Send(b, "Main", 30, "ping"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ((std::vector<std::string>{"1:b1-0", "1:b1-2", "30:ping"}), inside.calls);
}

// A sync request is answered by the main loop's receive when its turn comes, after everything
// before it was handled and the loop came back, in a call that dispatches nothing for it; other
// receives hold it back in order.
TEST(LinxIpc, SyncIsAnsweredInItsTurnWithoutAPassOfItsOwn) {
    TestEnv env;
    Endpoint main("Main");
    Endpoint q("Q");
    std::vector<std::string> log;
    main.RegisterHandler(20, Record, &log);
    IpcMessage got;
    auto replied = [&] { return q.Receive(0, hostipc::kSyncReply, "Main", &got) == 0; };
    ASSERT_TRUE(Send(q, "Main", 20, "a") && Send(q, "Main", hostipc::kSyncRequest, "x"));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_FALSE(replied());
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(50, 0, kAny, nullptr));
    EXPECT_TRUE(replied());
    EXPECT_EQ(0u, got.Size());
    ASSERT_TRUE(Send(q, "Main", hostipc::kSyncRequest) && Send(q, "Main", 20, "b"));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_TRUE(replied());
    EXPECT_EQ((std::vector<std::string>{"20:a", "20:b"}), log);

    // Held back by selective receives, even one for its sender, and answered after "c".
    ASSERT_TRUE(Send(q, "Main", 20, "c") && Send(q, "Main", hostipc::kSyncRequest) &&
                Send(q, "Main", 30, "d"));
    EXPECT_EQ(0, main.Receive(1000, 30, kAny, &got));
    EXPECT_FALSE(replied());
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, "Q", &got));
    EXPECT_FALSE(replied());
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));
    EXPECT_TRUE(replied());
    // One reply each, and a receive whose time is up ends after the one it answered.
    ASSERT_TRUE(Send(q, "Main", hostipc::kSyncRequest) && Send(q, "Main", hostipc::kSyncRequest));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));
    EXPECT_TRUE(replied() && !replied());
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));
    EXPECT_TRUE(replied());
    EXPECT_EQ((std::vector<std::string>{"20:a", "20:b", "20:c"}), log);
}

// Notices come in arrival order (a quit right behind a message is reported with it, which stays
// current), only from the state manager, and only from the socket that bears the sender's name;
// filters and copies out apply to them as to any message.
TEST(LinxIpc, NoticesInOrderAndOnlyFromTheStateManager) {
    TestEnv env;
    Endpoint main("Main");
    Endpoint state("StateMgr");
    Endpoint other("Other");
    RawSocket raw(env.Domain(), "Raw");
    ASSERT_TRUE(raw.Bound());
    std::vector<std::string> log;
    main.RegisterShutdown(Record, &log);
    main.RegisterProcessDied(Record, &log);
    main.RegisterHandler(20, Record, &log);
    const std::string quit = std::to_string(LinxIpc::kShutdownNotice) + ":";
    const std::string died =
        std::to_string(LinxIpc::kProcessDiedNotice) + ":" + Words({e_Process_VideoMgr});

    ASSERT_TRUE(Send(other, "Main", LinxIpc::kShutdownNotice));
    ASSERT_TRUE(Send(other, "Main", LinxIpc::kProcessDiedNotice, Words({e_Process_VideoMgr})));
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, LinxIpc::kShutdownNotice, "StateMgr", 8, "", 0)));
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, 20, "Other", 5, "forged", 6)));
    for (const char* text : {"a", "b"}) {
        ASSERT_TRUE(Send(state, "Main", 20, text));
    }
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kProcessDiedNotice, Words({e_Process_VideoMgr})));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ("b", Text(main.CurrentMessage()));
    EXPECT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ((std::vector<std::string>{"20:a", "20:b", quit, died}), log);
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, kAny, nullptr));

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
    EXPECT_EQ(5u, log.size());

    // Without handlers a shutdown notice is only reported and stays current.
    main.DeregisterShutdown();
    ASSERT_TRUE(Send(state, "Main", LinxIpc::kShutdownNotice));
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(LinxIpc::kShutdownNotice, main.CurrentMessage().MsgType());
    EXPECT_EQ(5u, log.size());
}

// A selective receive holds back messages up to its bound and not one more: at the bound it
// stops reading and returns kTimeout at once, with one line (once) saying what it holds, although
// what it waits for is next in the queue; one message short of the bound it reads on and gets
// it. Either way the loop then takes every message in the order sent. Both bounds: the count,
// and the bytes (held records must leave room for one more of the largest size). Messages taken
// out of the middle leave holes that are closed up when the buffer's end is reached.
TEST(LinxIpc, HeldBackMessagesStopExactlyAtTheBoundAndNoneIsLost) {
    // A held record: a 16-byte header, the sender's name and the payload, rounded up to 8.
    auto record = [](std::size_t name, std::size_t payload) {
        return (16 + name + payload + 7) / 8 * 8;
    };
    const std::string kSender = "Flood";
    // The largest record a filler's payload fills without padding.
    const std::size_t kMaxRecord = (16 + kSender.size() + IpcMessage::kMaxPayload) / 8 * 8;
    // Payload sizes of fillers whose records add up to exactly the held bytes the bound allows.
    std::vector<std::size_t> fullBytes;
    for (std::size_t left =
             hostipc::Backlog::kBytes - record(hostipc::kMaxNameLength, IpcMessage::kMaxPayload);
         left > 0;) {
        std::size_t next = std::min(left, kMaxRecord);
        next -= left - next > 0 && left - next < 24 ? 24 : 0;  // no record is that short
        fullBytes.push_back(next - 16 - kSender.size());
        left -= next;
    }
    std::vector<std::size_t> pastBytes = fullBytes;
    pastBytes.push_back(0);
    const std::size_t kCount = hostipc::Backlog::kMaxMessages;
    auto held = [&](const std::vector<std::size_t>& payloads) {
        std::size_t bytes = 0;
        for (std::size_t payload : payloads) {
            bytes += record(kSender.size(), payload);
        }
        return "holds back " + std::to_string(payloads.size()) + " messages (" +
               std::to_string(bytes) + " bytes)";
    };
    const struct {
        const char* what;
        std::vector<std::size_t> fillers;  // payload sizes, sent before the awaited message
        bool reached;
        std::vector<unsigned int> takes;  // fillers' types taken by selective receives first
    } cases[] = {
        {"count bound", std::vector<std::size_t>(kCount - 1, 0), true, {}},
        {"one past the count bound", std::vector<std::size_t>(kCount, 0), false, {}},
        {"byte bound", fullBytes, true, {}},
        {"one past the byte bound", pastBytes, false, {}},
        {"holes closed up",
         std::vector<std::size_t>(9, kMaxRecord - 16 - kSender.size()),
         true,
         {1003, 1001, 1000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TestEnv env;
        Endpoint main("Main");
        Endpoint flood(kSender);
        // Fillers of types 1000, 1001, ...; then the awaited type 99. A send that found the
        // queue full for a second (a slow emulator) is tried again.
        std::thread sender([&] {
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            for (std::size_t i = 0;
                 i <= c.fillers.size() && std::chrono::steady_clock::now() < end;) {
                const bool last = i == c.fillers.size();
                const unsigned int type = last ? 99 : 1000 + static_cast<unsigned int>(i);
                i += Send(flood, "Main", type, std::string(last ? 0 : c.fillers[i], 'f')) ? 1 : 0;
            }
        });
        IpcMessage got;
        std::vector<unsigned int> order;
        for (unsigned int type : c.takes) {
            EXPECT_EQ(0, main.Receive(20000, type, kAny, &got));
            order.push_back(got.MsgType());
        }
        testing::internal::CaptureStderr();
        const int result = main.Receive(20000, 99, kAny, &got);
        const std::string said = testing::internal::GetCapturedStderr();
        if (!c.reached) {  // said once, not at every pass that finds the bound still reached
            testing::internal::CaptureStderr();
            EXPECT_EQ(LinxIpc::kTimeout, main.Receive(20000, 99, kAny, &got));
            EXPECT_EQ("", testing::internal::GetCapturedStderr());
        }
        if (result == 0) {
            order.push_back(got.MsgType());
        }
        while (order.size() <= c.fillers.size() && main.Receive(5000, 0, kAny, &got) == 0) {
            order.push_back(got.MsgType());
        }
        sender.join();
        EXPECT_EQ(c.reached ? 0 : LinxIpc::kTimeout, result);
        EXPECT_EQ(c.reached ? "" : "LinxIpc: Main " + held(c.fillers),
                  said.substr(0, said.find(" while")));
        std::vector<unsigned int> sent = c.takes;
        sent.insert(sent.end(), c.reached ? 1 : 0, 99);
        for (unsigned int i = 0; i < c.fillers.size(); ++i) {
            if (std::find(c.takes.begin(), c.takes.end(), 1000 + i) == c.takes.end()) {
                sent.push_back(1000 + i);
            }
        }
        sent.insert(sent.end(), c.reached ? 0 : 1, 99);
        EXPECT_EQ(sent, order);
    }
}

// A peer that stops reading its queue costs a sender one wait, then sends to it fail at once;
// once it reads again, they work again. Each turn is told once.
TEST(LinxIpc, APeerThatStopsReadingIsToldOnceAndTakenBackWhenItReads) {
    TestEnv env;
    Endpoint main("Main");
    Endpoint sink("Sink");
    testing::internal::CaptureStderr();
    int queued = 0;
    while (queued < 100000 && Send(main, "Sink", 7)) {
        ++queued;
    }
    EXPECT_FALSE(Send(main, "Sink", 7));
    IpcMessage got;
    for (int i = 0; i < queued; ++i) {
        ASSERT_EQ(0, sink.Receive(1000, 7, kAny, &got));
    }
    EXPECT_TRUE(Send(main, "Sink", 8));
    EXPECT_TRUE(Send(main, "Sink", 8));
    EXPECT_EQ(
        "LinxIpc: Main: Sink does not read its queue; sends to it fail at once until it does\n"
        "LinxIpc: Main: Sink reads its queue again\n",
        testing::internal::GetCapturedStderr());
}

namespace {

void Count(LinxIpc*, void* count) {
    ++*static_cast<int*>(count);
}

// A UShortItem's bytes.
std::string UShort(unsigned short value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

TEST(SubscribeServer, RepliesReplacesDropsAndUnsubscribesByPair) {
    TestEnv env;
    Endpoint serverIpc("Server");
    Endpoint client("Client");
    ItemServer server(serverIpc);  // item 5 only
    const UShortItem served(1234);
    server.Serve(5, served);
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
    EXPECT_EQ(Words({5, 700, 0}) + UShort(1234), Text(reply));
    // Refused when the item's value cannot be allocated; the protocol's own copies still go
    // out. A short request is dropped without an answer.
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({5, 702}), 1));
    EXPECT_EQ(12u, reply.Size());
    EXPECT_EQ(Words({5, 702}), Text(reply).substr(0, 8));
    EXPECT_NE(Words({5, 702, 0}), Text(reply));
    EXPECT_FALSE(request(client, LinxIpc::kSubscribeRequest, Words({5})));

    // A repeated request replaces the subscription: one notice, under the new id.
    ASSERT_TRUE(request(client, LinxIpc::kSubscribeRequest, Words({5, 703})));
    EXPECT_EQ(1u, server.SubscriberCount(5));
    UShortItem notice(77);
    EXPECT_EQ(1, server.NotifySubscribers(5, notice));
    ASSERT_EQ(0, client.Receive(1000, 0, kAny, &reply));
    EXPECT_EQ(703u, reply.MsgType());
    EXPECT_EQ(UShort(77), Text(reply));

    // A vanished subscriber is dropped on the next notice; unsubscribing names the pair.
    {
        Endpoint second("Second");
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

// The test plays the server "Server" by writing its replies, some of them ahead of the request
// they answer, and reads what the client sent.
TEST(SubscribeClient, TimeOutLateAndShortAnswersAndUnsubscribe) {
    TestEnv env;
    Endpoint main("Main");
    Endpoint server("Server");
    SubscribeClient client(main, "Server", 100);
    UShortItem item;
    int notices = 0;

    // Traffic that arrives while the client waits in vain is held back, not dispatched.
    main.RegisterHandler(600, Count, &notices);
    ASSERT_TRUE(Send(server, "Main", 600));
    EXPECT_EQ(SubscribeClient::kNoAnswer, client.Subscribe(5, 700, item, Count, &notices));
    EXPECT_EQ(0, notices);
    ASSERT_EQ(0, main.Receive(0, 0, kAny, nullptr));
    EXPECT_EQ(1, notices);
    IpcMessage sent;
    ASSERT_EQ(0, server.Receive(0, LinxIpc::kSubscribeRequest, "Main", &sent));
    EXPECT_EQ(Words({5, 700}), Text(sent));

    // The late answer to the timed-out request is passed over for the one asked now.
    ASSERT_TRUE(Send(server, "Main", LinxIpc::kSubscribeReply, Words({5, 700, 0}) + UShort(1)));
    ASSERT_TRUE(Send(server, "Main", LinxIpc::kSubscribeReply, Words({5, 701, 0}) + UShort(1234)));
    ASSERT_EQ(0, client.Subscribe(5, 701, item, Count, &notices));
    EXPECT_EQ(1234, item.Get());

    // No subscription from a reply without the status, nor from a value shorter than the
    // item; the server, which counts the latter as subscribed, is told to drop it.
    ASSERT_TRUE(Send(server, "Main", LinxIpc::kSubscribeReply, Words({5, 702})));
    EXPECT_EQ(SubscribeClient::kBadAnswer, client.Subscribe(5, 702, item, Count, &notices));
    SystickItem wider;
    ASSERT_TRUE(Send(server, "Main", LinxIpc::kSubscribeReply, Words({7, 703, 0}) + UShort(9)));
    EXPECT_EQ(SubscribeClient::kBadAnswer, client.Subscribe(7, 703, wider, Count, &notices));
    EXPECT_EQ(1u, client.SubscriptionCount());
    ASSERT_EQ(0, server.Receive(0, LinxIpc::kUnsubscribeRequest, "Main", &sent));
    EXPECT_EQ(Words({7, 703}), Text(sent));

    // Only the accepted subscription has a handler, until it is dropped.
    for (unsigned int type : {701u, 702u, 703u}) {
        ASSERT_TRUE(Send(server, "Main", type));
        ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    }
    EXPECT_EQ(2, notices);
    EXPECT_EQ(0, client.UnsubscribeAll(true));
    EXPECT_EQ(0u, client.SubscriptionCount());
    ASSERT_EQ(0, server.Receive(0, LinxIpc::kUnsubscribeRequest, "Main", &sent));
    EXPECT_EQ(Words({5, 701}), Text(sent));
    ASSERT_TRUE(Send(server, "Main", 701));
    ASSERT_EQ(0, main.Receive(1000, 0, kAny, nullptr));
    EXPECT_EQ(2, notices);
}

TEST(ServerApis, RecordingReidAndForcedHqStreaming) {
    TestEnv env;
    Endpoint main("Main");
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 5000));  // no stream manager
    Endpoint stream("StreamMgr");
    EXPECT_EQ("", StreamMgrApi::CurrentlyRecordingREID(main, 50));  // a silent one
    // The REID ends at its NUL, whatever follows.
    ASSERT_TRUE(Send(stream, "Main", StreamMgrApi::kCurrentlyRecordingResponse,
                     std::string("REID-7\0tail", 11)));
    EXPECT_EQ("REID-7", StreamMgrApi::CurrentlyRecordingREID(main, 50));
    IpcMessage request;
    for (int asked = 0; asked < 2; ++asked) {
        ASSERT_EQ(0, stream.Receive(0, StreamMgrApi::kCurrentlyRecordingRequest, "Main", &request));
    }

    for (const char* force : std::initializer_list<const char*>{"0", "yes", nullptr}) {
        force == nullptr ? ::unsetenv("LVS_FORCE_HQ") : ::setenv("LVS_FORCE_HQ", force, 1);
        EXPECT_EQ(force != nullptr && *force != '0', ExternalMgrApi::InLvsForceHqStreaming());
    }
}
