// The process initializer with a recording managed object, through real endpoints: the test's
// own endpoint plays the state manager (and any other sender).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "HostSeams.h"
#include "LinxServerNameList.h"
#include "LogClient.h"
#include "ManagerHarness.h"
#include "ProcessInitializer.h"

namespace {

// The managed object: records what the initializer asks of it, blank-separated.
struct Recorder {
    std::string calls;
    bool preInitResult = true;
    bool subscribeResult = true;
    std::function<void()> duringPreInit;

    void Add(const std::string& call) { calls += (calls.empty() ? "" : " ") + call; }
    bool PreInit(LinxIpc&) {
        Add("PreInit");
        if (duringPreInit) {
            duringPreInit();
        }
        return preInitResult;
    }
    bool SubscribeToServers(LinxIpc&, bool flag) {
        Add(flag ? "Subscribe(true)" : "Subscribe(false)");
        return subscribeResult;
    }
    void Shutdown(LinxIpc&) { Add("Shutdown"); }
    void ProcessDied(LinxIpc&, e_Process process) { Add("Died(" + std::to_string(process) + ")"); }
    void ProcessRestarted(LinxIpc&, e_Process process) {
        Add("Restarted(" + std::to_string(process) + ")");
    }
};

using Initializer = ProcessInitializer<Recorder>;

// A message to the process under test: its type, payload size (0, 1 or 4) and value.
struct Message {
    unsigned int type;
    unsigned int size;
    unsigned int value;
};

// The state manager's endpoint, and a sender of anything to the process under test.
struct StateMgr {
    LinxIpc ipc{LinxServerNameList::Instance().Name(e_Process_StateMgr)};
    StateMgr() {
        EXPECT_EQ(0, ipc.Init());
        gStateMgrName = ipc.Name();
    }
    void Send(unsigned int type, const void* payload = nullptr, unsigned int size = 0) {
        IpcMessage msg;
        ASSERT_EQ(0, msg.Allocate(type, size, static_cast<char*>(const_cast<void*>(payload))));
        ASSERT_EQ(
            0, ipc.Notify(LinxServerNameList::Instance().Name(e_Process_MetadataMgr), msg, true));
    }
    void SendWord(unsigned int type, unsigned int word) { Send(type, &word, sizeof word); }
    // A byte payload is the value's low byte, a word payload the whole value.
    void Send(const Message& m) {
        const unsigned char byte = static_cast<unsigned char>(m.value);
        m.size == 4 ? SendWord(m.type, m.value)
                    : Send(m.type, m.size == 1 ? &byte : nullptr, m.size);
    }
    // Everything the state manager got (the sends under test are done by then), each as "type"
    // or "type:payload", blank-separated.
    std::string Heard() {
        std::string text;
        IpcMessage msg;
        while (ipc.Receive(200, 0, LinxIpc::emptyString, &msg) == 0) {
            text += (text.empty() ? "" : " ") + std::to_string(msg.MsgType());
            if (msg.Size() == 4) {
                unsigned int word = 0;
                std::memcpy(&word, msg.DataPtr(), sizeof word);
                text += ":" + std::to_string(word);
            } else if (msg.Size() == 1) {
                text += ":" + std::to_string(msg.DataPtr()[0]);
            }
        }
        return text;
    }
};

}  // namespace

// The handshake: each subscribe request runs the subscriptions with its flag and is answered on
// its own; the full run ends the wait, with or without a subscription before it; anything else
// is only logged. Every failure ends Init with false, and only a failed preparation is
// reported to the state manager.
TEST(FrameInitializer, Handshake) {
    TestEnv env;
    StateMgr stateMgr;
    const Message subscribe1{13233, 1, 1}, run{13235, 0, 0};
    // Subscribe without and with the flag, anything else, run.
    const std::vector<Message> twice{{13233, 1, 0}, {13233, 1, 9}, {4242, 4, 1}, run};
    const std::vector<Message> quitting{subscribe1, {LinxIpc::kShutdownNotice, 0, 0}};
    struct Case {
        bool preInit, subscribe, started;
        const char* calls;
        const char* heard;
        std::vector<Message> duringPreInit;
    };
    const Case cases[] = {
        {true, true, true, "PreInit Subscribe(false) Subscribe(true)", "13232:19 13234:1 13234:1",
         twice},
        {true, true, true, "PreInit", "13232:19", {run}},
        // The receive that delivers the subscribe request also reports the shutdown (108): the
        // quit runs, the subscriptions are still made, the answer says 0.
        {true, true, false, "PreInit Shutdown Subscribe(true)", "13232:19 13239 13234:0", quitting},
        {false, true, false, "PreInit", "13244:19", {}},
        {true, false, false, "PreInit Subscribe(true)", "13232:19 13234:0", {subscribe1}},
        {true, true, false, "PreInit", "13232:19", {{13233, 0, 0}}},  // subscribe, no payload
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.heard);
        Recorder recorder;
        recorder.preInitResult = c.preInit;
        recorder.subscribeResult = c.subscribe;
        recorder.duringPreInit = [&] {
            for (const Message& message : c.duringPreInit) {
                stateMgr.Send(message);
            }
        };
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_EQ(c.started, initializer.Init("MetadataMgr", 0));
        EXPECT_EQ(c.calls, recorder.calls);
        EXPECT_EQ(c.heard, stateMgr.Heard());
    }
    EXPECT_EQ("MetadataMgr", LogClient::Instance().ProcessName());
}

// Failures before the handshake: each ends Init with false.
TEST(FrameInitializer, FailuresBeforeTheHandshake) {
    TestEnv env;
    StateMgr stateMgr;
    {  // started notice cannot be allocated: no control handler is live afterwards
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        recorder.duringPreInit = [&] { hostseam::FailNextAllocations(1); };
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("", stateMgr.Heard());
        stateMgr.Send(LinxIpc::kShutdownNotice);
        initializer.Ipc().Receive(1000, 0, LinxIpc::emptyString, nullptr);
        EXPECT_EQ("PreInit", recorder.calls);
    }
    {  // endpoint name already taken
        LinxIpc squatter(LinxServerNameList::Instance().Name(e_Process_MetadataMgr));
        ASSERT_EQ(0, squatter.Init());
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_TRUE(recorder.calls.empty());
        EXPECT_EQ("", stateMgr.Heard());
    }
    gStateMgrName = "Nobody";  // no state manager to announce to
    Recorder recorder;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
    EXPECT_EQ("PreInit", recorder.calls);
}

// Without the state manager: no notice at all, subscriptions made at once, and the control
// handlers act only on a full 32-bit word.
TEST(FrameInitializer, ControlHandlersWithoutStateMgr) {
    TestEnv env;
    ScopedEnv without("RUN_WITHOUT_STATEMGR", "1");
    StateMgr stateMgr;  // exists, but must hear nothing
    {
        Recorder recorder;
        recorder.preInitResult = false;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("", stateMgr.Heard());
    }
    Recorder recorder;
    recorder.subscribeResult = false;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    EXPECT_FALSE(initializer.Init("MetadataMgr", 0)) << "the subscriptions' result is Init's";
    EXPECT_EQ("PreInit Subscribe(false)", recorder.calls);
    recorder.calls.clear();

    LinxIpc& ipc = initializer.Ipc();
    auto dispatch = [&] { return ipc.Receive(1000, 0, LinxIpc::emptyString, nullptr); };
    const unsigned char shortWord[3] = {0, 0, 12};
    for (unsigned int type : {LinxIpc::kProcessDiedNotice, 13236u}) {
        stateMgr.SendWord(type, type == 13236u ? e_Process_RadarHal : e_Process_GpsHal);
        stateMgr.Send(type, shortWord, sizeof shortWord);
        stateMgr.Send(type);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(0, dispatch());
        }
    }
    EXPECT_EQ("Died(12) Restarted(7)", recorder.calls);

    // An answer to a log-level request that cannot be built is not sent.
    stateMgr.SendWord(1873, 0);
    hostseam::FailNextAllocations(1);
    dispatch();
    EXPECT_EQ("", stateMgr.Heard());

    // Quit: shut down, nothing to the state manager, no death or restart handled after, and
    // the log level still served.
    recorder.calls.clear();
    stateMgr.Send(LinxIpc::kShutdownNotice);
    EXPECT_EQ(LinxIpc::kShutdown, dispatch());
    stateMgr.SendWord(LinxIpc::kProcessDiedNotice, e_Process_GpsHal);
    stateMgr.SendWord(13236, e_Process_GpsHal);
    stateMgr.SendWord(1873, 0);
    for (int i = 0; i < 3; ++i) {
        dispatch();
    }
    EXPECT_EQ("Shutdown", recorder.calls);
    EXPECT_EQ("1874:0", stateMgr.Heard());
}
