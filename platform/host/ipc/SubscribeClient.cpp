#include <cstdint>
#include <cstdio>
#include <vector>

#include "HostDomain.h"
#include "IpcInternal.h"
#include "Item.h"
#include "Subscribe.h"
#include "SubscribeWire.h"

const int SubscribeClient::kDefaultTimeoutMs;
const int SubscribeClient::kRefused;
const int SubscribeClient::kNoAnswer;
const int SubscribeClient::kNoServer;
const int SubscribeClient::kBadAnswer;

namespace {

// Asks `server` to drop the (item id, notification id) pairs in `words`.
void SendUnsubscribe(LinxIpc& ipc, const std::string& server, const std::uint32_t* words,
                     unsigned int count, bool waitForRoom) {
    hostipc::SeamBypass bypass;
    IpcMessage request;
    if (request.Allocate(LinxIpc::kUnsubscribeRequest, count * 4, nullptr) != 0) {
        return;
    }
    for (unsigned int i = 0; i < count; ++i) {
        hostipc::PutWord(request.DataPtr(), i, words[i]);
    }
    // The server may be gone already; then there is nothing left to drop.
    if (waitForRoom) {
        ipc.Notify(server, request, true);
    } else {
        hostipc::NotifyNoWait(ipc, server, request);
    }
}

}  // namespace

SubscribeClient::SubscribeClient(LinxIpc& ipc, const std::string& serverName, int timeoutMs)
    : ipc_(ipc), serverName_(serverName), timeoutMs_(timeoutMs) {}

// The handlers stay registered: their context belongs to the caller, not to this object, and
// the endpoint may already be gone when a client is deleted.
SubscribeClient::~SubscribeClient() = default;

int SubscribeClient::Request(unsigned int itemId, unsigned int notifyId, Item* item) {
    hostipc::SeamBypass bypass;
    unsigned char body[hostipc::kRequestBytes];
    hostipc::PutWord(body, 0, itemId);
    hostipc::PutWord(body, 1, notifyId);
    IpcMessage request;
    if (request.Allocate(LinxIpc::kSubscribeRequest, sizeof body, reinterpret_cast<char*>(body)) !=
        0) {
        return kNoAnswer;
    }
    const int sent = ipc_.Notify(serverName_, request, true);
    if (sent == hostipc::kNotifyNoEndpoint) {
        return kNoServer;
    }
    if (sent != 0) {
        return kNoAnswer;
    }
    const unsigned long long deadline =
        hostsystem::MonotonicMs() + static_cast<unsigned int>(timeoutMs_ > 0 ? timeoutMs_ : 0);
    IpcMessage& reply = request;
    for (;;) {
        const unsigned long long now = hostsystem::MonotonicMs();
        const int waitMs = now < deadline ? static_cast<int>(deadline - now) : 0;
        // Selective: whatever else arrives meanwhile is held back for the caller's loop.
        if (ipc_.Receive(waitMs, LinxIpc::kSubscribeReply, serverName_, &reply) != 0) {
            return kNoAnswer;
        }
        if (reply.Size() < hostipc::kReplyHeaderBytes) {
            std::fprintf(stderr, "SubscribeClient: short reply from %s\n", serverName_.c_str());
            return kBadAnswer;
        }
        const unsigned char* payload = reply.DataPtr();
        if (hostipc::WordAt(payload, 0) != itemId || hostipc::WordAt(payload, 1) != notifyId) {
            continue;  // the late answer to an earlier request that timed out
        }
        if (hostipc::WordAt(payload, 2) != hostipc::kAccepted) {
            return kRefused;
        }
        if (item == nullptr) {
            return 0;
        }
        // The guard bytes behind the payload keep an over-long decode inside the buffer; the
        // length check then tells that the answer was short.
        unsigned char* itemBytes = reply.DataPtr() + hostipc::kReplyHeaderBytes;
        const unsigned char* end = item->Decode(itemBytes);
        const unsigned int available = reply.Size() - hostipc::kReplyHeaderBytes;
        if (end < itemBytes || static_cast<unsigned int>(end - itemBytes) > available) {
            std::fprintf(stderr, "SubscribeClient: reply of %s for item %u is too short\n",
                         serverName_.c_str(), itemId);
            // The server counts us as subscribed; we do not, so it must not either.
            const std::uint32_t pair[2] = {itemId, notifyId};
            SendUnsubscribe(ipc_, serverName_, pair, 2, false);
            return kBadAnswer;
        }
        return 0;
    }
}

int SubscribeClient::Subscribe(unsigned int itemId, unsigned int notifyId, Item& item,
                               LinxHandler handler, void* context) {
    const int result = Request(itemId, notifyId, &item);
    if (result != 0) {
        return result;
    }
    ipc_.RegisterHandler(notifyId, handler, context);
    for (Subscription& known : subs_) {
        if (known.notifyId == notifyId) {
            known = Subscription{itemId, notifyId, handler, context};
            return 0;
        }
    }
    subs_.push_back(Subscription{itemId, notifyId, handler, context});
    return 0;
}

int SubscribeClient::Resubscribe() {
    int first = 0;
    for (const Subscription& known : subs_) {
        const int result = Request(known.itemId, known.notifyId, nullptr);
        if (result == 0) {
            ipc_.RegisterHandler(known.notifyId, known.handler, known.context);
            continue;
        }
        if (first == 0) {
            first = result;
        }
        // A server that is gone or silent would only make every further request wait too.
        if (result == kNoServer || result == kNoAnswer) {
            break;
        }
    }
    return first;
}

int SubscribeClient::UnsubscribeAll(bool waitForServer) {
    if (subs_.empty()) {
        return 0;
    }
    std::vector<std::uint32_t> pairs;
    pairs.reserve(subs_.size() * 2);
    for (const Subscription& known : subs_) {
        pairs.push_back(known.itemId);
        pairs.push_back(known.notifyId);
        ipc_.DeregisterHandler(known.notifyId);
    }
    SendUnsubscribe(ipc_, serverName_, pairs.data(), static_cast<unsigned int>(pairs.size()),
                    waitForServer);
    subs_.clear();
    return 0;
}
