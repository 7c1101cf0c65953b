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

LogCapture::LogCapture(const std::string& path)
    : path_(path), saved_(::dup(STDERR_FILENO)), level_(LogClient::Instance().Level()) {
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
    LogClient::Instance().Level(0xFF);
}

LogCapture::~LogCapture() {
    LogClient::Instance().Level(level_);
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
}

std::string LogCapture::Text() const {
    return ReadFileText(path_);
}

int LogCapture::Count(const std::string& text) const {
    const std::string all = Text();
    int count = 0;
    for (std::string::size_type at = all.find(text); at != std::string::npos;
         at = all.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

int LogCapture::Lines(const std::string& text) const {
    const std::string all = Text();
    int count = 0;
    std::string::size_type start = 0;
    while (start < all.size()) {
        std::string::size_type end = all.find('\n', start);
        if (end == std::string::npos) {
            end = all.size();
        }
        const std::string line = all.substr(start, end - start);
        start = end + 1;
        const std::string::size_type source = line.find(" MetadataMgr:");
        if (source == std::string::npos) {
            continue;
        }
        const std::string::size_type blank = line.find(' ', source + 1);
        if (blank != std::string::npos && line.compare(blank + 1, std::string::npos, text) == 0) {
            ++count;
        }
    }
    return count;
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
    ::setenv(name, value, 1);
}

ScopedEnv::~ScopedEnv() {
    ::unsetenv(name_.c_str());
}
