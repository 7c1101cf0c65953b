// The start-up handshake every process of the system shares: open the endpoint, let the managed
// object prepare itself, announce the process to the state manager, subscribe when it asks, run
// when it says so. Also the process-control handlers (quit, died, restarted, log level).
//
// T provides PreInit(LinxIpc&), SubscribeToServers(LinxIpc&, bool), Shutdown(LinxIpc&),
// ProcessDied(LinxIpc&, e_Process) and ProcessRestarted(LinxIpc&, e_Process).
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "KvCommon.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "LogClient.h"
#include "SourceLog.h"

// IPC name of the state manager: the destination of every start-up and shut-down notice.
extern std::string gStateMgrName;

#define PI_LOG(mask) SOURCE_LOG("Common/Misc/ProcessInitializer", mask)

// Message ids of the state manager's handshake and of the log-level service.
enum StateMgrProcessMsg : unsigned int {
    StateMgrProcessMsg_Started = 13232,
    StateMgrProcessMsg_Subscribe = 13233,
    StateMgrProcessMsg_Subscribed = 13234,
    StateMgrProcessMsg_FullRun = 13235,
    StateMgrProcessMsg_Restarted = 13236,
    StateMgrProcessMsg_ShutdownResponse = 13239,
    StateMgrProcessMsg_FailedStart = 13244
};

enum LogLevelMsg : unsigned int {
    LogLevelMsg_Set = 1872,
    LogLevelMsg_Get = 1873,
    LogLevelMsg_Response = 1874
};

template <typename T>
class ProcessInitializer {
public:
    ProcessInitializer(T& managed, e_Process process)
        : managed_(&managed),
          process_(process),
          ipc_(LinxServerNameList::Instance().Name(process)) {}
    ProcessInitializer(const ProcessInitializer&) = delete;
    ProcessInitializer& operator=(const ProcessInitializer&) = delete;

    bool Init(const std::string& processName, unsigned int logLevel);

    // The process's one endpoint, for the main loop.
    LinxIpc& Ipc() { return ipc_; }

    bool SetupServer();
    bool NotifyStarted();
    bool ProcessStarted();
    bool WaitForStateMgr();
    bool RespondToSubscribed(bool success);
    void NotifyFailedStart();
    static bool NotifyStateMgr(LinxIpc& ipc, IpcMessage& message);
    bool NotifyStateMgr(IpcMessage& message) { return NotifyStateMgr(ipc_, message); }

    static void QuitHandler(LinxIpc* ipc, void* context);
    static void ProcessDiedHandler(LinxIpc* ipc, void* context);
    static void ProcessRestartHandler(LinxIpc* ipc, void* context);
    static void HandleLogLevel(LinxIpc* ipc, void* context);
    static void IgnoreHandler(LinxIpc* ipc, void* context);

private:
    static bool WithoutStateMgr() { return KvGetenv("RUN_WITHOUT_STATEMGR") != nullptr; }
    // The first 32-bit word of the current message; false (logged) when the message carries
    // less than a word, so that a short notice is never acted on.
    static bool ReadWord(IpcMessage& msg, const char* what, uint32_t& word);
    // A notice of `type` carrying the own e_Process; false when it cannot be allocated.
    bool AllocateOwnProcess(IpcMessage& message, unsigned int type) const;

    T* managed_;
    e_Process process_;
    LinxIpc ipc_;
};

template <typename T>
bool ProcessInitializer<T>::Init(const std::string& processName, unsigned int logLevel) {
    LogClient::Instance().Level(logLevel);
    LogClient::Instance().ProcessName(processName);

    if (!SetupServer()) {
        PI_LOG(1) << "Init"
                  << ": Server setup failed";
        return false;
    }
    if (!managed_->PreInit(ipc_)) {
        PI_LOG(1) << "Init"
                  << ": PreInit failed";
        NotifyFailedStart();
        return false;
    }
    if (!NotifyStarted()) {
        PI_LOG(1) << "Init"
                  << ": Notification to StateMgr that we've started failed";
        return false;
    }
    if (WithoutStateMgr()) {
        return managed_->SubscribeToServers(ipc_, false);
    }
    return WaitForStateMgr();
}

template <typename T>
bool ProcessInitializer<T>::SetupServer() {
    if (ipc_.Init() != 0) {
        PI_LOG(1) << "ProcessInitializer::SetupIpc - Error initializing the Server";
        return false;
    }
    PI_LOG(128) << "ProcessInitializer::SetupIpc - Successfully initialized IPC ";
    return true;
}

template <typename T>
bool ProcessInitializer<T>::NotifyStarted() {
    if (!WithoutStateMgr() && !ProcessStarted()) {
        PI_LOG(1) << "ProcessInitializer::SetupIpc - Error sending message to StateMgr";
        return false;
    }
    ipc_.RegisterShutdown(&QuitHandler, managed_);
    ipc_.RegisterProcessDied(&ProcessDiedHandler, managed_);
    ipc_.RegisterHandler(StateMgrProcessMsg_Restarted, &ProcessRestartHandler, managed_);
    ipc_.RegisterHandler(LogLevelMsg_Get, &HandleLogLevel, managed_);
    ipc_.RegisterHandler(LogLevelMsg_Set, &HandleLogLevel, managed_);
    return true;
}

template <typename T>
bool ProcessInitializer<T>::AllocateOwnProcess(IpcMessage& message, unsigned int type) const {
    const uint32_t own = process_;
    char payload[sizeof own];
    std::memcpy(payload, &own, sizeof own);
    return message.Allocate(type, sizeof payload, payload) == 0;
}

template <typename T>
bool ProcessInitializer<T>::ProcessStarted() {
    IpcMessage message;
    if (!AllocateOwnProcess(message, StateMgrProcessMsg_Started)) {
        PI_LOG(1) << "ProcessInitializer::ProcessStarted - Error allocating request";
        return false;
    }
    return NotifyStateMgr(message);
}

template <typename T>
bool ProcessInitializer<T>::NotifyStateMgr(LinxIpc& ipc, IpcMessage& message) {
    PI_LOG(128) << "Notify to " << gStateMgrName;
    if (ipc.Notify(gStateMgrName, message, true) != 0) {
        PI_LOG(1) << "Error sending notify to " << gStateMgrName;
        return false;
    }
    return true;
}

template <typename T>
bool ProcessInitializer<T>::WaitForStateMgr() {
    // Subscribe and full run are inspected here after each receive; the endpoint's own
    // dispatch of them must do nothing.
    ipc_.RegisterHandler(StateMgrProcessMsg_Subscribe, &IgnoreHandler, nullptr);
    ipc_.RegisterHandler(StateMgrProcessMsg_FullRun, &IgnoreHandler, nullptr);

    for (;;) {
        const int rc = ipc_.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        bool ok = true;
        if (rc == LinxIpc::kShutdown) {
            ok = false;
            PI_LOG(16) << "WaitForStateMgr"
                       << " - shutdown requested.";
        } else if (rc != 0) {
            PI_LOG(1) << "ProcessInitializer::WaitForStateMgr - Receive error " << rc;
            return false;
        }

        IpcMessage& msg = ipc_.CurrentMessage();
        const unsigned int type = msg.MsgType();
        if (type == StateMgrProcessMsg_Subscribe) {
            PI_LOG(128) << "WaitForStateMgr"
                        << ": Got a StateMgrProcessMsg_Subscribe";
            const unsigned char* data = msg.DataPtr();
            if (data == nullptr) {
                PI_LOG(2) << "StateMgr::WaitForStateMgr NULL MESSAGE";
                return false;
            }
            const bool flag = data[0] != 0;
            if (!managed_->SubscribeToServers(ipc_, flag)) {
                PI_LOG(1) << "ProcessInitializer::WaitForStateMgr - Failed Subscribe";
                if (!RespondToSubscribed(false)) {
                    PI_LOG(1) << "ProcessInitializer::WaitForStateMgr - Failed RespondToSubscribed";
                }
                return false;
            }
            if (!RespondToSubscribed(ok)) {
                PI_LOG(1) << "ProcessInitializer::WaitForStateMgr - Failed RespondToSubscribed";
                return false;
            }
        } else if (type == StateMgrProcessMsg_FullRun) {
            PI_LOG(128) << "WaitForStateMgr"
                        << ": Got a StateMgrProcessMsg_FullRun";
            return ok;
        } else {
            PI_LOG(128) << "ProcessInitializer::WaitForStateMgr - Received a message - " << type;
        }
        if (!ok) {
            return false;
        }
    }
}

template <typename T>
bool ProcessInitializer<T>::RespondToSubscribed(bool success) {
    IpcMessage message;
    char payload[1] = {static_cast<char>(success ? 1 : 0)};
    if (message.Allocate(StateMgrProcessMsg_Subscribed, sizeof payload, payload) != 0) {
        PI_LOG(1) << "ProcessInitializer::RespondToSubscribed - Error allocating request";
        return false;
    }
    return NotifyStateMgr(message);
}

template <typename T>
void ProcessInitializer<T>::NotifyFailedStart() {
    if (WithoutStateMgr()) {
        return;
    }
    IpcMessage message;
    if (!AllocateOwnProcess(message, StateMgrProcessMsg_FailedStart)) {
        PI_LOG(1) << "ProcessInitializer::NotifyFailedStart - Error allocating request";
        return;
    }
    NotifyStateMgr(message);
}

template <typename T>
void ProcessInitializer<T>::QuitHandler(LinxIpc* ipc, void* context) {
    PI_LOG(128) << "Quit Requested";
    // No death, restart or second quit is handled once the manager is going down.
    ipc->DeregisterProcessDied();
    ipc->DeregisterShutdown();
    ipc->DeregisterHandler(StateMgrProcessMsg_Restarted);
    static_cast<T*>(context)->Shutdown(*ipc);
    if (WithoutStateMgr()) {
        return;
    }
    IpcMessage& answer = ipc->CurrentMessage();
    if (answer.Allocate(StateMgrProcessMsg_ShutdownResponse, 0, nullptr) != 0) {
        PI_LOG(1) << "ProcessInitializer::RespondToShutdown - Error allocating request";
        return;
    }
    NotifyStateMgr(*ipc, answer);
}

template <typename T>
bool ProcessInitializer<T>::ReadWord(IpcMessage& msg, const char* what, uint32_t& word) {
    const unsigned char* data = msg.DataPtr();
    if (data == nullptr) {
        return false;
    }
    if (msg.Size() < sizeof word) {
        PI_LOG(2) << what << ": payload too short (" << msg.Size() << " bytes), dropped";
        return false;
    }
    std::memcpy(&word, data, sizeof word);
    return true;
}

template <typename T>
void ProcessInitializer<T>::ProcessDiedHandler(LinxIpc* ipc, void* context) {
    PI_LOG(128) << "Process Died";
    IpcMessage& msg = ipc->CurrentMessage();
    if (msg.DataPtr() == nullptr) {
        PI_LOG(2) << "NULL MESSAGE";
        return;
    }
    uint32_t process = 0;
    if (ReadWord(msg, "Process Died", process)) {
        static_cast<T*>(context)->ProcessDied(*ipc, static_cast<e_Process>(process));
    }
}

template <typename T>
void ProcessInitializer<T>::ProcessRestartHandler(LinxIpc* ipc, void* context) {
    PI_LOG(128) << "Process Restarted";
    IpcMessage& msg = ipc->CurrentMessage();
    if (msg.DataPtr() == nullptr) {
        PI_LOG(2) << "NULL MESSAGE";
        return;
    }
    uint32_t process = 0;
    if (ReadWord(msg, "Process Restarted", process)) {
        static_cast<T*>(context)->ProcessRestarted(*ipc, static_cast<e_Process>(process));
    }
}

template <typename T>
void ProcessInitializer<T>::HandleLogLevel(LinxIpc* ipc, void* /*context*/) {
    PI_LOG(128) << "HandleLogLevel";
    IpcMessage& msg = ipc->CurrentMessage();
    if (msg.DataPtr() == nullptr) {
        PI_LOG(2) << "HandleLogLevel: error, DataPtr is null";
        return;
    }
    // A get carries a word that is never read; only a set needs all four bytes.
    const bool set = msg.MsgType() == LogLevelMsg_Set;
    uint32_t level = 0;
    if (set && !ReadWord(msg, "HandleLogLevel", level)) {
        return;
    }
    // The answer reuses the received message, so the sender is taken first; one buffer serves
    // every request, so a long name costs an allocation only the first time.
    static std::string sender;
    sender.assign(msg.GetSender());
    if (set) {
        PI_LOG(64) << "HandleLogLevel: set mask " << LogHex(level);
        LogClient::Instance().Level(level);
    }
    const uint32_t current = LogClient::Instance().Level();
    char payload[sizeof current];
    std::memcpy(payload, &current, sizeof current);
    if (msg.Allocate(LogLevelMsg_Response, sizeof payload, payload) != 0) {
        PI_LOG(1) << "handleLogLevel: Cannot allocate response";
        return;
    }
    if (ipc->Notify(sender, msg, true) != 0) {
        PI_LOG(2) << "handleLogLevel: Failed to send response";
    }
}

template <typename T>
void ProcessInitializer<T>::IgnoreHandler(LinxIpc* /*ipc*/, void* /*context*/) {
    PI_LOG(128) << "IgnoreHandler";
}

#undef PI_LOG
