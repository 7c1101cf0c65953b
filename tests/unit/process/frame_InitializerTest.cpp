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

// The state manager's endpoint, and a sender of anything to the process under test.
struct StateMgr {
    LinxIpc ipc{LinxServerNameList::Instance().Name(e_Process_StateMgr)};
    StateMgr() {
        EXPECT_EQ(0, ipc.Init());
        gStateMgrName = ipc.Name();
    }
    void Send(unsigned int type, Bytes payload = {}) {
        IpcMessage msg;
        char* data = payload.empty() ? nullptr : reinterpret_cast<char*>(payload.data());
        ASSERT_EQ(0, msg.Allocate(type, payload.size(), data));
        ASSERT_EQ(
            0, ipc.Notify(LinxServerNameList::Instance().Name(e_Process_MetadataMgr), msg, true));
    }
    // Everything the state manager got (the sends under test are done by then), each as "type"
    // or "type:payload", blank-separated.
    std::string Heard() {
        std::string text;
        IpcMessage msg;
        while (ipc.Receive(200, 0, LinxIpc::emptyString, &msg) == 0) {
            text += (text.empty() ? "" : " ") + std::to_string(msg.MsgType());
            unsigned int word = msg.Size() == 1 ? msg.DataPtr()[0] : 0;
            if (msg.Size() == 4) {
                std::memcpy(&word, msg.DataPtr(), sizeof word);
            }
            text += msg.Size() == 1 || msg.Size() == 4 ? ":" + std::to_string(word) : "";
        }
        return text;
    }
};

}  // namespace

// The handshake: each subscribe request runs the subscriptions with its flag and is answered on
// its own; the full run ends the wait, with or without a subscription before it; the control
// handlers serve while waiting and anything else is only logged. Every failure ends Init with
// false, and only a failed preparation is reported to the state manager.
TEST(FrameInitializer, Handshake) {
    TestEnv env;
    StateMgr stateMgr;
    using Messages = std::vector<std::pair<unsigned int, Bytes>>;
    const unsigned int died = LinxIpc::kProcessDiedNotice, restarted = 13236;
    // Subscribe without and with the flag, control messages in between (death and restart act
    // only on a full 32-bit word), anything else, run.
    const Messages twice{{13233, {0}},           {1873, WordBytes(0)}, {died, WordBytes(12)},
                         {died, {0, 0, 12}},     {died, {}},           {restarted, WordBytes(7)},
                         {restarted, {0, 0, 7}}, {restarted, {}},      {13233, {9}},
                         {4242, WordBytes(1)},   {13235, {}}};
    const Messages quitting{{13233, {1}}, {LinxIpc::kShutdownNotice, {}}};
    struct Case {
        bool preInit, subscribe, started;
        const char* calls;
        const char* heard;
        Messages duringPreInit;
    };
    const Case cases[] = {
        {true, true, true, "PreInit Subscribe(false) Died(12) Restarted(7) Subscribe(true)",
         "13232:19 13234:1 1874:0 13234:1", twice},
        {true, true, true, "PreInit", "13232:19", {{13235, {}}}},
        // The receive that delivers the subscribe request also reports the shutdown (108): the
        // quit runs, the subscriptions are still made, the answer says 0.
        {true, true, false, "PreInit Shutdown Subscribe(true)", "13232:19 13239 13234:0", quitting},
        {false, true, false, "PreInit", "13244:19", {}},
        {true, false, false, "PreInit Subscribe(true)", "13232:19 13234:0", {{13233, {1}}}},
        {true, true, false, "PreInit", "13232:19", {{13233, {}}}},  // subscribe, no payload
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.heard);
        Recorder recorder;
        recorder.preInitResult = c.preInit;
        recorder.subscribeResult = c.subscribe;
        recorder.duringPreInit = [&] {
            for (const auto& [type, payload] : c.duringPreInit) {
                stateMgr.Send(type, payload);
            }
        };
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_EQ(c.started, initializer.Init("MetadataMgr", 0));
        EXPECT_EQ(c.calls, recorder.calls);
        EXPECT_EQ(c.heard, stateMgr.Heard());
    }
    EXPECT_EQ("MetadataMgr", LogClient::Instance().ProcessName());
}

// Failures before the handshake: each ends Init with false and tells the state manager nothing.
TEST(FrameInitializer, FailuresBeforeTheHandshake) {
    TestEnv env;
    StateMgr stateMgr;
    Recorder recorder;
    {  // started notice cannot be allocated: no control handler is live afterwards
        recorder.duringPreInit = [&] { hostseam::FailNextAllocations(1); };
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        stateMgr.Send(LinxIpc::kShutdownNotice);
        initializer.Ipc().Receive(1000, 0, LinxIpc::emptyString, nullptr);
    }
    {  // endpoint name already taken: nothing is prepared
        LinxIpc squatter(LinxServerNameList::Instance().Name(e_Process_MetadataMgr));
        ASSERT_EQ(0, squatter.Init());
        EXPECT_FALSE(Initializer(recorder, e_Process_MetadataMgr).Init("MetadataMgr", 0));
    }
    EXPECT_EQ("PreInit", recorder.calls);
    EXPECT_EQ("", stateMgr.Heard());
    gStateMgrName = "Nobody";  // no state manager to announce to
    recorder.duringPreInit = nullptr;
    EXPECT_FALSE(Initializer(recorder, e_Process_MetadataMgr).Init("MetadataMgr", 0));
    EXPECT_EQ("PreInit PreInit", recorder.calls);
}

// Without the state manager: no notice at all, subscriptions made at once; after the quit only
// the log level is served.
TEST(FrameInitializer, ControlHandlersWithoutStateMgr) {
    TestEnv env;
    ScopedEnv without("RUN_WITHOUT_STATEMGR", "1");
    StateMgr stateMgr;  // exists, but must hear nothing but the log level
    Recorder failing;
    failing.preInitResult = false;
    EXPECT_FALSE(Initializer(failing, e_Process_MetadataMgr).Init("MetadataMgr", 0));
    Recorder recorder;
    recorder.subscribeResult = false;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    EXPECT_FALSE(initializer.Init("MetadataMgr", 0)) << "the subscriptions' result is Init's";
    LinxIpc& ipc = initializer.Ipc();
    auto dispatch = [&] { return ipc.Receive(1000, 0, LinxIpc::emptyString, nullptr); };

    // An answer to a log-level request that cannot be built is not sent.
    stateMgr.Send(1873, WordBytes(0));
    hostseam::FailNextAllocations(1);
    dispatch();

    // Quit: shut down, nothing to the state manager, no death or restart handled after, and
    // the log level still served.
    stateMgr.Send(LinxIpc::kShutdownNotice);
    EXPECT_EQ(LinxIpc::kShutdown, dispatch());
    for (unsigned int type : {LinxIpc::kProcessDiedNotice, 13236u, 1873u}) {
        stateMgr.Send(type, WordBytes(e_Process_GpsHal));
        dispatch();
    }
    EXPECT_EQ("PreInit Subscribe(false) Shutdown", recorder.calls);
    EXPECT_EQ("1874:0", stateMgr.Heard());
}
