#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "TestEnv.h"

namespace {

struct Log {
    std::vector<std::string> events;
};

void OnShutdown(LinxIpc*, void* context) {
    static_cast<Log*>(context)->events.push_back("quit");
}

void OnDied(LinxIpc* ipc, void* context) {
    std::uint32_t process = 0;
    const IpcMessage& message = ipc->CurrentMessage();
    if (message.DataPtr() != nullptr) {
        std::memcpy(&process, message.DataPtr(), sizeof process);
    }
    static_cast<Log*>(context)->events.push_back("died " + std::to_string(process));
}

void OnNormal(LinxIpc* ipc, void* context) {
    static_cast<Log*>(context)->events.push_back("msg " +
                                                 std::to_string(ipc->CurrentMessage().MsgType()));
}

class Notices : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, main.Init());
        ASSERT_EQ(0, state.Init());
        main.RegisterShutdown(OnShutdown, &log);
        main.RegisterProcessDied(OnDied, &log);
        main.RegisterHandler(20, OnNormal, &log);
    }
    void Send(unsigned int type, std::uint32_t word = 0, bool withWord = false) {
        IpcMessage message;
        ASSERT_EQ(0, message.Allocate(type, withWord ? 4 : 0, reinterpret_cast<char*>(&word)));
        ASSERT_EQ(0, state.Notify("Main", message, true));
    }

    TestEnv env;
    LinxIpc main{"Main"};
    LinxIpc state{"StateMgr"};
    Log log;
};

}  // namespace

TEST_F(Notices, ShutdownOvertakesWaitingMessagesAndTheNextOneIsStillDelivered) {
    Send(20);
    Send(LinxIpc::kShutdownNotice);
    Send(21);
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ((std::vector<std::string>{"quit", "msg 20"}), log.events);
    // The message dispatched after the notice is the one the caller inspects.
    EXPECT_EQ(20u, main.CurrentMessage().MsgType());
    EXPECT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(21u, main.CurrentMessage().MsgType());

    // A notice alone stays current; without a handler it is only reported.
    main.DeregisterShutdown();
    Send(LinxIpc::kShutdownNotice);
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(LinxIpc::kShutdownNotice, main.CurrentMessage().MsgType());
    EXPECT_EQ(2u, log.events.size());
}

TEST_F(Notices, ProcessDiedCarriesTheProcessAndFiltersStillApply) {
    Send(LinxIpc::kProcessDiedNotice, e_Process_VideoMgr, true);
    EXPECT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ((std::vector<std::string>{"died 21"}), log.events);

    // A selective receive for another type leaves the shutdown notice for the main loop, and
    // a copy out is not a dispatch.
    Send(LinxIpc::kShutdownNotice);
    Send(30);
    IpcMessage got;
    EXPECT_EQ(0, main.Receive(1000, 30, LinxIpc::emptyString, &got));
    EXPECT_EQ(30u, got.MsgType());
    EXPECT_EQ(LinxIpc::kShutdown, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    Send(LinxIpc::kShutdownNotice);
    EXPECT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, &got));
    EXPECT_EQ(LinxIpc::kShutdownNotice, got.MsgType());
    EXPECT_EQ((std::vector<std::string>{"died 21", "quit"}), log.events);

    main.DeregisterProcessDied();
    Send(LinxIpc::kProcessDiedNotice, e_Process_Fpga, true);
    EXPECT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(2u, log.events.size());
}
