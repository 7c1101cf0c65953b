#include "process_Vehicle.h"

#include <chrono>
#include <cstring>
#include <memory>

#include "Item.h"
#include "LinxServerNameList.h"
#include "ServerClients.h"
#include "StreamingLvsStateItem.h"

namespace {

const std::string& NameOf(e_Process process) {
    return LinxServerNameList::Instance().Name(process);
}

// Every message the state manager may get from the process under test.
const unsigned int kCollected[] = {13232, 13234, 13239, 13244, 1874, 13489};

}  // namespace

StubServer::StubServer(LinxIpc& ipc, std::function<Item*(unsigned int)> make)
    : SubscribeServer(ipc), make_(std::move(make)) {}

void StubServer::GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) {
    std::unique_ptr<Item> item(make_(itemId));
    if (item && reply.Allocate(msgType, item->Size(), nullptr) == 0) {
        item->EncodeMsg(reply);
    }
}

Vehicle::Vehicle()
    : stateMgr_(NameOf(e_Process_StateMgr)),
      externalMgr_(NameOf(e_Process_ExternalMgr)),
      stateServer_(stateMgr_,
                   [](unsigned int id) -> Item* {
                       return id >= StateMgrClient::kRecordStartItem &&
                                      id <= StateMgrClient::kExitCovertModeItem
                                  ? new SystickItem()
                                  : nullptr;
                   }),
      externalServer_(externalMgr_, [](unsigned int id) -> Item* {
          return id >= 16 && id <= 21 ? new ExternalMgrApi::StreamingLvsStateItem() : nullptr;
      }) {
    stateMgr_.Init();
    externalMgr_.Init();
    for (unsigned int type : kCollected) {
        stateMgr_.RegisterHandler(type, &Collect, this);
    }
}

void Vehicle::Collect(LinxIpc* ipc, void* context) {
    IpcMessage& msg = ipc->CurrentMessage();
    Received received{msg.MsgType(), {}, msg.DataPtr() != nullptr};
    if (received.hasPayload) {
        received.payload.assign(msg.DataPtr(), msg.DataPtr() + msg.Size());
    }
    static_cast<Vehicle*>(context)->inbox.push_back(received);
}

void Vehicle::Pump(int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    do {
        stateMgr_.Receive(5, 0, LinxIpc::emptyString, nullptr);
        externalMgr_.Receive(5, 0, LinxIpc::emptyString, nullptr);
    } while (std::chrono::steady_clock::now() < end);
}

bool Vehicle::PumpUntil(const std::function<bool()>& done, int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        Pump(10);
    }
    return true;
}

bool Vehicle::Expect(unsigned int type, Received* out, int timeoutMs) {
    bool found = false;
    PumpUntil(
        [&] {
            for (auto it = inbox.begin(); it != inbox.end(); ++it) {
                if (it->type == type) {
                    if (out != nullptr) {
                        *out = *it;
                    }
                    inbox.erase(it);
                    found = true;
                    return true;
                }
            }
            return false;
        },
        timeoutMs);
    return found;
}

bool Vehicle::Send(unsigned int type, const void* payload, unsigned int size) {
    IpcMessage msg;
    std::vector<char> copy(static_cast<const char*>(payload),
                           static_cast<const char*>(payload) + size);
    if (msg.Allocate(type, size, size == 0 ? nullptr : copy.data()) != 0) {
        return false;
    }
    // A process just started may not have opened its endpoint yet.
    return PumpUntil(
        [&] { return stateMgr_.Notify(NameOf(e_Process_MetadataMgr), msg, true) == 0; });
}

bool Vehicle::SendWord(unsigned int type, unsigned int word) {
    unsigned char bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    return Send(type, bytes, sizeof bytes);
}

bool Vehicle::SendByte(unsigned int type, unsigned char byte) {
    return Send(type, &byte, 1);
}

std::vector<std::string> ServerSwitchesOff() {
    return {"NO_CONFIGMGR=1", "NO_FPGA=1",     "NO_GPSHAL=1",   "NO_RADARHAL=1",
            "NO_MICMGR=1",    "NO_VIDEOMGR=1", "NO_ACCELHAL=1", "NO_TEMPHAL=1"};
}

std::unique_ptr<Subprocess> StartManager(const TestEnv& env, std::vector<std::string> extraEnv,
                                         std::vector<std::string> args) {
    std::vector<std::string> environment = ServerSwitchesOff();
    environment.insert(environment.end(), extraEnv.begin(), extraEnv.end());
    std::vector<std::string> argv{ProgramPath("MetadataMgr")};
    argv.insert(argv.end(), args.begin(), args.end());
    std::unique_ptr<Subprocess> process(new Subprocess(argv, environment, env.Root()));
    if (!process->Start()) {
        process.reset();
    }
    return process;
}

size_t FindFrom(const std::string& log, const std::string& text, size_t from) {
    if (from == std::string::npos) {
        return std::string::npos;
    }
    return log.find(text, from);
}
