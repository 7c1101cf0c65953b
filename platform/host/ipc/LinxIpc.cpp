#include "LinxIpc.h"

#include <algorithm>
#include <vector>

#include "IpcInternal.h"
#include "LinxIpcImpl.h"

namespace {

struct LiveEndpoint {
    const LinxIpc* endpoint;
    LinxIpcImpl* impl;
};

// Endpoints constructed and not yet destroyed. One process holds a handful.
std::vector<LiveEndpoint>& LiveEndpoints() {
    static std::vector<LiveEndpoint> live;
    return live;
}

LinxIpcImpl* FindImpl(const LinxIpc* ipc) {
    for (const LiveEndpoint& entry : LiveEndpoints()) {
        if (entry.endpoint == ipc) {
            return entry.impl;
        }
    }
    return nullptr;
}

}  // namespace

const std::string LinxIpc::emptyString;
// Storage for the constants, so callers may bind them to references (test macros, std::min).
const int LinxIpc::kShutdown;
const int LinxIpc::kTimeout;
const int LinxIpc::kError;
const unsigned int LinxIpc::kShutdownNotice;
const unsigned int LinxIpc::kProcessDiedNotice;
const unsigned int LinxIpc::kSubscribeRequest;
const unsigned int LinxIpc::kSubscribeReply;
const unsigned int LinxIpc::kUnsubscribeRequest;

LinxIpc::LinxIpc(const std::string& name) : impl_(new LinxIpcImpl(*this, name)) {
    LiveEndpoints().push_back(LiveEndpoint{this, impl_.get()});
}

LinxIpc::~LinxIpc() {
    std::vector<LiveEndpoint>& live = LiveEndpoints();
    live.erase(std::remove_if(live.begin(), live.end(),
                              [this](const LiveEndpoint& entry) { return entry.endpoint == this; }),
               live.end());
}

int LinxIpc::Init() {
    return impl_->Init();
}

const std::string& LinxIpc::Name() const {
    return impl_->Name();
}

int LinxIpc::Receive(int timeoutMs, unsigned int type, const std::string& sender, IpcMessage* out) {
    return impl_->Receive(timeoutMs, type, sender, out);
}

int LinxIpc::Notify(const std::string& destination, IpcMessage& message, bool /*keep*/) {
    return impl_->Notify(destination, message, true);
}

void LinxIpc::RegisterHandler(unsigned int type, LinxHandler handler, void* context) {
    impl_->SetHandler(type, handler, context);
}

void LinxIpc::DeregisterHandler(unsigned int type) {
    impl_->ClearHandler(type);
}

void LinxIpc::RegisterShutdown(LinxHandler handler, void* context) {
    impl_->shutdown.function = handler;
    impl_->shutdown.context = context;
}

void LinxIpc::DeregisterShutdown() {
    impl_->shutdown = LinxIpcImpl::Handler();
}

void LinxIpc::RegisterProcessDied(LinxHandler handler, void* context) {
    impl_->processDied.function = handler;
    impl_->processDied.context = context;
}

void LinxIpc::DeregisterProcessDied() {
    impl_->processDied = LinxIpcImpl::Handler();
}

IpcMessage& LinxIpc::CurrentMessage() {
    return impl_->Current();
}

namespace hostipc {

bool EndpointAlive(const LinxIpc* ipc) {
    return FindImpl(ipc) != nullptr;
}

bool HandlerIs(const LinxIpc& ipc, unsigned int type, LinxHandler handler, void* context) {
    const LinxIpcImpl* impl = FindImpl(&ipc);
    if (impl == nullptr) {
        return false;
    }
    const LinxIpcImpl::Handler registered = impl->HandlerOf(type);
    return registered.function == handler && registered.context == context;
}

int NotifyNoWait(LinxIpc& ipc, const std::string& destination, IpcMessage& message) {
    LinxIpcImpl* impl = FindImpl(&ipc);
    return impl != nullptr ? impl->Notify(destination, message, false) : kNotifyNotOpen;
}

}  // namespace hostipc
