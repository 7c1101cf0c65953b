#include "Peer.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "Capture.h"
#include "HostSync.h"
#include "Messages.h"

namespace {

volatile sig_atomic_t gStop = 0;

unsigned long long NowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000u +
           static_cast<unsigned long long>(now.tv_nsec) / 1000000u;
}

void SleepMs(unsigned int ms) {
    timespec pause = {0, static_cast<long>(ms) * 1000000L};
    nanosleep(&pause, nullptr);
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string Received::Line() const {
    std::string line = "recv " + role + " <- " + sender + " " + messages::Describe(type) +
                       " len=" + std::to_string(payload.size());
    const MessageInfo* info = messages::Find(type);
    const std::string fields = info != nullptr ? codec::Fields(info->layout, payload) : "";
    if (!fields.empty()) {
        line += " " + fields;
    }
    if (!itemClass.empty()) {
        line += " " + itemClass;
        if (!item.empty()) {
            line += " " + items::Text(item);
        }
    }
    if (!payload.empty()) {
        line += " hex=" + codec::Hex(payload);
    }
    return line;
}

void PeerServer::GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) {
    auto found = items_.find(itemId);
    if (found == items_.end() || found->second.refused ||
        (found->second.item == nullptr && found->second.raw.empty())) {
        return;
    }
    const ServedItem& served = found->second;
    Bytes raw(served.raw);
    const bool built = served.item != nullptr
                           ? reply.Allocate(msgType, served.item->Size(), nullptr) == 0 &&
                                 served.item->EncodeMsg(reply) == 0
                           : reply.Allocate(msgType, static_cast<unsigned int>(raw.size()),
                                            reinterpret_cast<char*>(raw.data())) == 0;
    if (!built) {
        std::printf("error: cannot build item %u for a subscriber\n", itemId);
        return;
    }
    if (Capture::Active() != nullptr) {
        // The reply as the subscriber receives it: ids, status 0, then the item.
        const IpcMessage& request = Ipc().CurrentMessage();
        const unsigned int head[3] = {itemId, msgType, 0};
        Bytes payload(sizeof head + reply.Size());
        std::memcpy(payload.data(), head, sizeof head);
        std::memcpy(payload.data() + sizeof head, reply.DataPtr(), reply.Size());
        Capture::Active()->Message("sent", role_, request.GetSender(), LinxIpc::kSubscribeReply,
                                   payload);
    }
}

Role::Role(Peer& peer, const std::string& name, e_Process process)
    : peer_(peer), name_(name), process_(process) {}

Role::~Role() {
    Close();
}

bool Role::Open(std::string& error) {
    if (ipc_ != nullptr) {
        return true;
    }
    std::unique_ptr<LinxIpc> ipc(new LinxIpc(name_));
    if (ipc->Init() != 0) {
        error = "cannot open endpoint " + name_ + " (the reason is on standard error)";
        return false;
    }
    ipc_ = std::move(ipc);
    server_.reset(new PeerServer(*ipc_, served, name_));
    ipc_->RegisterShutdown(NoticeHandler, this);
    ipc_->RegisterProcessDied(NoticeHandler, this);
    return true;
}

void Role::Close() {
    subscriptions.clear();
    server_.reset();
    ipc_.reset();
}

// The endpoint hands these two notices to their own handlers only, and a shutdown notice may
// be followed by another message in the same receive, so they are recorded here.
void Role::NoticeHandler(LinxIpc* ipc, void* context) {
    Role* role = static_cast<Role*>(context);
    role->peer_.Record(*role, ipc->CurrentMessage());
}

int Role::Poll() {
    int count = 0;
    // Bounded, so one busy endpoint cannot starve the others.
    for (int i = 0; i < 64 && ipc_ != nullptr; ++i) {
        const int result = ipc_->Receive(0, 0, LinxIpc::emptyString, nullptr);
        if (result != 0 && result != LinxIpc::kShutdown) {
            break;
        }
        ++count;
        // NoticeHandler has recorded these two already.
        const unsigned int type = ipc_->CurrentMessage().MsgType();
        if (type != LinxIpc::kShutdownNotice && type != LinxIpc::kProcessDiedNotice) {
            peer_.Record(*this, ipc_->CurrentMessage());
        }
    }
    return count;
}

std::string Peer::ResolveName(const std::string& process, e_Process& number) {
    if (IsNumber(process)) {
        unsigned int value = 0;
        codec::ParseNumber(process, value);
        number = static_cast<e_Process>(value);
        return LinxServerNameList::Instance().Name(value);
    }
    number = LinxServerNameList::Instance().Find(process);
    return process;
}

void Peer::RequestStop() {
    gStop = 1;
}

bool Peer::StopRequested() {
    return gStop != 0;
}

Role* Peer::Find(const std::string& process) {
    e_Process number;
    const std::string name = ResolveName(process, number);
    for (auto& role : roles_) {
        if (role->Name() == name) {
            return role.get();
        }
    }
    return nullptr;
}

Role* Peer::Open(const std::string& process, std::string& error) {
    Role* role = Find(process);
    if (role == nullptr) {
        e_Process number;
        const std::string name = ResolveName(process, number);
        if (name.empty()) {
            error = "empty process name";
            return nullptr;
        }
        roles_.emplace_back(new Role(*this, name, number));
        role = roles_.back().get();
    }
    return role->Open(error) ? role : nullptr;
}

Role* Peer::Default(std::string& error) {
    for (auto& role : roles_) {
        if (role->Alive()) {
            return role.get();
        }
    }
    return Open("linxpeer" + std::to_string(getpid()), error);
}

Role* Peer::StateMgr() {
    for (auto& role : roles_) {
        if (role->stateMgr && role->Alive()) {
            return role.get();
        }
    }
    return nullptr;
}

bool Peer::Pump(int ms) {
    const unsigned long long deadline = NowMs() + static_cast<unsigned long long>(ms);
    for (;;) {
        int count = 0;
        for (std::size_t i = 0; i < roles_.size(); ++i) {
            count += roles_[i]->Poll();
        }
        if (StopRequested()) {
            return false;
        }
        if (NowMs() >= deadline) {
            return true;
        }
        if (count == 0) {
            SleepMs(2);
        }
    }
}

void Peer::Record(Role& role, const IpcMessage& message) {
    // A sync reply is no traffic of the session: it only ends the role's sync step.
    if (message.MsgType() == hostipc::kSyncReply) {
        if (!role.synced && message.GetSender() == role.syncWith) {
            role.synced = true;
            std::printf("synced %s <- %s\n", role.Name().c_str(), role.syncWith.c_str());
            if (Capture::Active() != nullptr) {
                Capture::Active()->Event("sync", role.Name(), role.syncWith);
            }
        }
        return;
    }
    Received received;
    received.number = ++received_;
    received.role = role.Name();
    received.sender = message.GetSender();
    received.type = message.MsgType();
    if (message.Size() > 0) {
        received.payload.assign(message.DataPtr(), message.DataPtr() + message.Size());
    }
    for (const Subscription& subscription : role.subscriptions) {
        if (subscription.notifyId == received.type &&
            subscription.client->ServerName() == received.sender) {
            received.itemClass = subscription.itemClass->name;
            if (!items::Decode(*subscription.itemClass, received.payload, received.item)) {
                received.itemClass += "(short)";
            }
        }
    }
    std::printf("%s\n", received.Line().c_str());
    if (Capture::Active() != nullptr) {
        Capture::Active()->Message("recv", received.role, received.sender, received.type,
                                   received.payload);
    }
    // A peer serving for days must not grow without bound; expectations look at recent
    // traffic only.
    if (inbox_.size() >= kInboxLimit) {
        inbox_.pop_front();
    }
    inbox_.push_back(received);
    Answer(role, inbox_.back());
}

bool Peer::Send(Role& from, const std::string& destination, unsigned int type, const Bytes& payload,
                std::string& error) {
    // A scenario or capture may send as a role that it has closed (a server that died).
    if (!from.Alive()) {
        error = from.Name() + " is closed: it cannot send to " + destination;
        return false;
    }
    IpcMessage message;
    Bytes data(payload);
    if (message.Allocate(type, static_cast<unsigned int>(data.size()),
                         data.empty() ? nullptr : reinterpret_cast<char*>(data.data())) != 0) {
        error = "cannot build message " + messages::Describe(type);
        return false;
    }
    const int result = from.Ipc().Notify(destination, message, true);
    const MessageInfo* info = messages::Find(type);
    const std::string fields = info != nullptr ? codec::Fields(info->layout, payload) : "";
    std::printf("sent %s -> %s %s len=%zu%s%s%s%s\n", from.Name().c_str(), destination.c_str(),
                messages::Describe(type).c_str(), payload.size(), fields.empty() ? "" : " ",
                fields.c_str(), payload.empty() ? "" : " hex=", codec::Hex(payload).c_str());
    if (result != 0) {
        error = "send to " + destination + " failed (" + std::to_string(result) + ")";
        return false;
    }
    if (Capture::Active() != nullptr) {
        Capture::Active()->Message("sent", from.Name(), destination, type, payload);
    }
    return true;
}

bool Peer::Sync(Role& from, const std::string& destination, std::string& error) {
    from.syncWith = destination;
    from.synced = false;
    IpcMessage request;
    if (!from.Alive() || request.Allocate(hostipc::kSyncRequest, 0, nullptr) != 0 ||
        from.Ipc().Notify(destination, request, true) != 0) {
        error = "sync request to " + destination + " failed";
        return false;
    }
    std::printf("sync %s -> %s\n", from.Name().c_str(), destination.c_str());
    return true;
}

void Peer::Answer(Role& role, const Received& received) {
    std::string error;
    bool ok = true;
    if (role.stateMgr && received.type == messages::kStarted) {
        bool known = false;
        for (const std::string& name : role.announced) {
            known = known || name == received.sender;
        }
        if (!known) {
            role.announced.push_back(received.sender);
        }
        ok = Send(role, received.sender, messages::kSubscribe, Bytes(1, role.subscribeFlag), error);
    } else if (role.stateMgr && role.sendFullRun && received.type == messages::kSubscribed) {
        ok = Send(role, received.sender, messages::kFullRun, Bytes(), error);
    } else if (role.streamMgr && received.type == messages::kCurrentlyRecording) {
        Bytes text(role.reid.begin(), role.reid.end());
        text.push_back(0);
        ok = Send(role, received.sender, messages::kCurrentlyRecordingResponse, text, error);
    }
    if (!ok) {
        std::printf("error: %s\n", error.c_str());
    }
}
