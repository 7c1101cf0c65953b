// The process initializer with a recording managed object, through real endpoints: the test's
// own endpoint plays the state manager (and any other sender).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "HostSeams.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "LogClient.h"
#include "ProcessInitializer.h"
#include "TestEnv.h"

namespace {

// The managed object: records what the initializer asks of it.
struct Recorder {
    std::vector<std::string> calls;
    bool preInitResult = true;
    bool subscribeResult = true;
    std::function<void()> duringPreInit;

    bool PreInit(LinxIpc&) {
        calls.push_back("PreInit");
        if (duringPreInit) {
            duringPreInit();
        }
        return preInitResult;
    }
    bool SubscribeToServers(LinxIpc&, bool flag) {
        calls.push_back(flag ? "Subscribe(true)" : "Subscribe(false)");
        return subscribeResult;
    }
    void Shutdown(LinxIpc&) { calls.push_back("Shutdown"); }
    void ProcessDied(LinxIpc&, e_Process process) {
        calls.push_back("Died(" + std::to_string(process) + ")");
    }
    void ProcessRestarted(LinxIpc&, e_Process process) {
        calls.push_back("Restarted(" + std::to_string(process) + ")");
    }
};

using Initializer = ProcessInitializer<Recorder>;

const std::string& OwnName() {
    return LinxServerNameList::Instance().Name(e_Process_MetadataMgr);
}

// The state manager's endpoint, and a sender of anything to the process under test.
struct StateMgr {
    LinxIpc ipc{LinxServerNameList::Instance().Name(e_Process_StateMgr)};
    StateMgr() {
        EXPECT_EQ(0, ipc.Init());
        gStateMgrName = ipc.Name();
    }
    bool Send(unsigned int type, const void* payload, unsigned int size) {
        IpcMessage msg;
        std::vector<char> copy(static_cast<const char*>(payload),
                               static_cast<const char*>(payload) + size);
        return msg.Allocate(type, size, size == 0 ? nullptr : copy.data()) == 0 &&
               ipc.Notify(OwnName(), msg, true) == 0;
    }
    bool SendWord(unsigned int type, unsigned int word) { return Send(type, &word, sizeof word); }
    bool SendByte(unsigned int type, unsigned char byte) { return Send(type, &byte, 1); }
    // The next message the state manager got, as "type" or "type:payload bytes".
    std::string Next(int timeoutMs = 1000) {
        IpcMessage msg;
        if (ipc.Receive(timeoutMs, 0, LinxIpc::emptyString, &msg) != 0) {
            return "none";
        }
        std::string text = std::to_string(msg.MsgType());
        if (msg.Size() == 4) {
            unsigned int word = 0;
            std::memcpy(&word, msg.DataPtr(), sizeof word);
            text += ":" + std::to_string(word);
        } else if (msg.Size() == 1) {
            text += ":" + std::to_string(msg.DataPtr()[0]);
        }
        return text;
    }
};

struct Scoped {
    explicit Scoped(const char* name) : name_(name) { setenv(name, "1", 1); }
    ~Scoped() { unsetenv(name_); }
    const char* name_;
};

}  // namespace

// Each subscribe request runs the subscriptions with its flag and is answered on its own; the
// full run ends the wait.
TEST(FrameInitializer, HandshakeAnswersEverySubscribeRequest) {
    TestEnv env;
    StateMgr stateMgr;
    Recorder recorder;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    recorder.duringPreInit = [&] {
        stateMgr.SendByte(13233, 0);
        stateMgr.SendByte(13233, 9);
        stateMgr.SendWord(4242, 1);  // anything else is only logged while waiting
        stateMgr.Send(13235, nullptr, 0);
    };
    ASSERT_TRUE(initializer.Init("MetadataMgr", 0));
    EXPECT_EQ((std::vector<std::string>{"PreInit", "Subscribe(false)", "Subscribe(true)"}),
              recorder.calls);
    EXPECT_EQ("MetadataMgr", LogClient::Instance().ProcessName());
    EXPECT_EQ("13232:19", stateMgr.Next());
    EXPECT_EQ("13234:1", stateMgr.Next());
    EXPECT_EQ("13234:1", stateMgr.Next());
    EXPECT_EQ("none", stateMgr.Next(100));
}

// A shutdown reported by the receive that also delivers a subscribe request: the quit runs,
// the subscriptions are still made, the answer says 0 and the start fails.
TEST(FrameInitializer, ShutdownWithSubscribeFailsTheStart) {
    TestEnv env;
    StateMgr stateMgr;
    Recorder recorder;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    recorder.duringPreInit = [&] {
        stateMgr.SendByte(13233, 1);
        stateMgr.Send(LinxIpc::kShutdownNotice, nullptr, 0);
    };
    EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
    EXPECT_EQ((std::vector<std::string>{"PreInit", "Shutdown", "Subscribe(true)"}), recorder.calls);
    EXPECT_EQ("13232:19", stateMgr.Next());
    EXPECT_EQ("13239", stateMgr.Next());
    EXPECT_EQ("13234:0", stateMgr.Next());
}

// Failures of the handshake: each ends Init with false, and only a failed preparation is
// reported to the state manager.
TEST(FrameInitializer, FailuresEndTheStart) {
    TestEnv env;
    StateMgr stateMgr;
    {  // preparation fails: failed-start notice
        Recorder recorder;
        recorder.preInitResult = false;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("13244:19", stateMgr.Next());
    }
    {  // subscriptions fail: answered with 0
        Recorder recorder;
        recorder.subscribeResult = false;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        recorder.duringPreInit = [&] { stateMgr.SendByte(13233, 1); };
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("13232:19", stateMgr.Next());
        EXPECT_EQ("13234:0", stateMgr.Next());
    }
    {  // subscribe request without payload: nothing subscribed, nothing answered
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        recorder.duringPreInit = [&] { stateMgr.Send(13233, nullptr, 0); };
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ((std::vector<std::string>{"PreInit"}), recorder.calls);
        EXPECT_EQ("13232:19", stateMgr.Next());
        EXPECT_EQ("none", stateMgr.Next(100));
    }
    {  // started notice cannot be allocated: no control handler is live afterwards
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        recorder.duringPreInit = [&] { hostseam::FailNextAllocations(1); };
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("none", stateMgr.Next(100));
        stateMgr.Send(LinxIpc::kShutdownNotice, nullptr, 0);
        initializer.Ipc().Receive(1000, 0, LinxIpc::emptyString, nullptr);
        EXPECT_EQ((std::vector<std::string>{"PreInit"}), recorder.calls);
    }
    {  // endpoint name already taken
        LinxIpc squatter(OwnName());
        ASSERT_EQ(0, squatter.Init());
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_TRUE(recorder.calls.empty());
        EXPECT_EQ("none", stateMgr.Next(100));
    }
    {  // no state manager to announce to
        gStateMgrName = "Nobody";
        Recorder recorder;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ((std::vector<std::string>{"PreInit"}), recorder.calls);
        gStateMgrName = stateMgr.ipc.Name();
    }
}

// Without the state manager: no notice at all, subscriptions made at once, and the control
// handlers act only on a full 32-bit word.
TEST(FrameInitializer, ControlHandlersWithoutStateMgr) {
    TestEnv env;
    Scoped without("RUN_WITHOUT_STATEMGR");
    StateMgr stateMgr;  // exists, but must hear nothing
    {
        Recorder recorder;
        recorder.preInitResult = false;
        Initializer initializer(recorder, e_Process_MetadataMgr);
        EXPECT_FALSE(initializer.Init("MetadataMgr", 0));
        EXPECT_EQ("none", stateMgr.Next(100));
    }
    Recorder recorder;
    recorder.subscribeResult = false;
    Initializer initializer(recorder, e_Process_MetadataMgr);
    EXPECT_FALSE(initializer.Init("MetadataMgr", 0)) << "the subscriptions' result is Init's";
    EXPECT_EQ((std::vector<std::string>{"PreInit", "Subscribe(false)"}), recorder.calls);
    recorder.calls.clear();

    LinxIpc& ipc = initializer.Ipc();
    auto dispatch = [&] { return ipc.Receive(1000, 0, LinxIpc::emptyString, nullptr); };
    const unsigned char shortWord[3] = {0, 0, 12};
    stateMgr.SendWord(LinxIpc::kProcessDiedNotice, e_Process_GpsHal);
    stateMgr.Send(LinxIpc::kProcessDiedNotice, shortWord, sizeof shortWord);
    stateMgr.Send(LinxIpc::kProcessDiedNotice, nullptr, 0);
    stateMgr.SendWord(13236, e_Process_RadarHal);
    stateMgr.Send(13236, shortWord, sizeof shortWord);
    stateMgr.Send(13236, nullptr, 0);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(0, dispatch());
    }
    EXPECT_EQ((std::vector<std::string>{"Died(12)", "Restarted(7)"}), recorder.calls);

    // Log level: get and set answer with the level in force; short or empty ones are dropped.
    stateMgr.SendWord(1873, 0);
    dispatch();
    EXPECT_EQ("1874:0", stateMgr.Next());
    stateMgr.SendWord(1872, 0x83);
    dispatch();
    EXPECT_EQ("1874:131", stateMgr.Next());
    EXPECT_EQ(0x83u, LogClient::Instance().Level());
    stateMgr.Send(1872, shortWord, sizeof shortWord);
    dispatch();
    stateMgr.Send(1873, nullptr, 0);
    dispatch();
    EXPECT_EQ("none", stateMgr.Next(100));
    EXPECT_EQ(0x83u, LogClient::Instance().Level());
    stateMgr.SendWord(1873, 0);
    hostseam::FailNextAllocations(1);
    dispatch();
    EXPECT_EQ("none", stateMgr.Next(100)) << "an answer that cannot be built is not sent";

    // Quit: shut down, nothing to the state manager, and no death or restart handled after.
    recorder.calls.clear();
    stateMgr.Send(LinxIpc::kShutdownNotice, nullptr, 0);
    EXPECT_EQ(LinxIpc::kShutdown, dispatch());
    stateMgr.SendWord(LinxIpc::kProcessDiedNotice, e_Process_GpsHal);
    stateMgr.SendWord(13236, e_Process_GpsHal);
    dispatch();
    dispatch();
    EXPECT_EQ((std::vector<std::string>{"Shutdown"}), recorder.calls);
    EXPECT_EQ("none", stateMgr.Next(100));
    stateMgr.SendWord(1873, 0);
    dispatch();
    EXPECT_EQ("1874:131", stateMgr.Next()) << "the log level stays served after a quit";
    LogClient::Instance().Level(LogClient::kDefaultLevel);
}
