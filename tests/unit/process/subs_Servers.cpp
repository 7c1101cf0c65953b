#include "subs_Servers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "LogClient.h"
#include "StreamMgrApi.h"
#include "TestEnv.h"

void ItemServer::GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) {
    const auto found = items_.find(itemId);
    if (found == items_.end() || refused_.count(itemId) != 0) {
        return;
    }
    const Item& item = *found->second;
    if (reply.Allocate(msgType, item.Size(), nullptr) == 0) {
        item.Encode(reply.DataPtr());
    }
}

ServerFarm::ServerFarm() {
    streamMgr_.reset(new LinxIpc(LinxServerNameList::Instance().Name(e_Process_StreamMgr)));
    streamMgr_->Init();
    streamMgr_->RegisterHandler(StreamMgrApi::kCurrentlyRecordingRequest, RecordingRequestHandler,
                                this);
}

ServerFarm::~ServerFarm() {
    Stop();
}

ItemServer& ServerFarm::Add(e_Process process) {
    Served served;
    served.process = process;
    served.ipc.reset(new LinxIpc(LinxServerNameList::Instance().Name(process)));
    served.ipc->Init();
    served.server.reset(new ItemServer(*served.ipc));
    served_.push_back(std::move(served));
    return *served_.back().server;
}

void ServerFarm::Remove(e_Process process) {
    for (auto it = served_.begin(); it != served_.end(); ++it) {
        if (it->process == process) {
            it->server.reset();
            it->ipc.reset();
            served_.erase(it);
            return;
        }
    }
}

ItemServer* ServerFarm::Find(e_Process process) {
    for (Served& served : served_) {
        if (served.process == process) {
            return served.server.get();
        }
    }
    return nullptr;
}

LinxIpc* ServerFarm::EndpointOf(e_Process process) {
    for (Served& served : served_) {
        if (served.process == process) {
            return served.ipc.get();
        }
    }
    return nullptr;
}

void ServerFarm::Start() {
    stop_ = false;
    thread_ = std::thread([this] { Poll(); });
}

void ServerFarm::Stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ServerFarm::Poll() {
    while (!stop_) {
        for (Served& served : served_) {
            served.ipc->Receive(2, 0, LinxIpc::emptyString, nullptr);
        }
        streamMgr_->Receive(2, 0, LinxIpc::emptyString, nullptr);
    }
}

void ServerFarm::RecordingRequestHandler(LinxIpc* ipc, void* context) {
    ServerFarm& farm = *static_cast<ServerFarm*>(context);
    const std::string sender = ipc->CurrentMessage().GetSender();
    IpcMessage answer;
    std::vector<char> text(farm.recording_.begin(), farm.recording_.end());
    text.push_back('\0');
    if (answer.Allocate(StreamMgrApi::kCurrentlyRecordingResponse,
                        static_cast<unsigned int>(text.size()), text.data()) == 0) {
        ipc->Notify(sender, answer, true);
    }
}
