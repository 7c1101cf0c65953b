#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "IpcInternal.h"
#include "Item.h"
#include "Subscribe.h"
#include "SubscribeWire.h"

SubscribeServer::SubscribeServer(LinxIpc& ipc) : ipc_(ipc) {
    ipc_.RegisterHandler(LinxIpc::kSubscribeRequest, SubscribeRequestHandler, this);
    ipc_.RegisterHandler(LinxIpc::kUnsubscribeRequest, UnsubscribeRequestHandler, this);
}

// The process may delete its server after its endpoint; and a later server on the same
// endpoint keeps its own registration.
SubscribeServer::~SubscribeServer() {
    if (!hostipc::EndpointAlive(&ipc_)) {
        return;
    }
    if (hostipc::HandlerIs(ipc_, LinxIpc::kSubscribeRequest, SubscribeRequestHandler, this)) {
        ipc_.DeregisterHandler(LinxIpc::kSubscribeRequest);
    }
    if (hostipc::HandlerIs(ipc_, LinxIpc::kUnsubscribeRequest, UnsubscribeRequestHandler, this)) {
        ipc_.DeregisterHandler(LinxIpc::kUnsubscribeRequest);
    }
}

void SubscribeServer::GetItem(unsigned int /*itemId*/, IpcMessage& /*reply*/,
                              unsigned int /*msgType*/) {}

unsigned int SubscribeServer::SubscriberCount(unsigned int itemId) const {
    unsigned int count = 0;
    for (const Subscriber& subscriber : subscribers_) {
        count += subscriber.itemId == itemId ? 1u : 0u;
    }
    return count;
}

int SubscribeServer::NotifySubscribers(unsigned int itemId, Item& item) {
    int sent = 0;
    for (std::size_t i = 0; i < subscribers_.size();) {
        const Subscriber& subscriber = subscribers_[i];
        if (subscriber.itemId != itemId) {
            ++i;
            continue;
        }
        if (notice_.Allocate(subscriber.notifyId, 0, nullptr) != 0 ||
            item.EncodeMsg(notice_) != 0) {
            std::fprintf(stderr, "SubscribeServer: cannot build notice %u for %s\n",
                         subscriber.notifyId, subscriber.endpoint.c_str());
            ++i;
            continue;
        }
        const int result = ipc_.Notify(subscriber.endpoint, notice_, true);
        if (result == hostipc::kNotifyNoEndpoint) {
            subscribers_.erase(subscribers_.begin() + static_cast<std::ptrdiff_t>(i));
            continue;
        }
        sent += result == 0 ? 1 : 0;
        ++i;
    }
    return sent;
}

void SubscribeServer::SubscribeRequestHandler(LinxIpc* ipc, void* context) {
    SubscribeServer* server = static_cast<SubscribeServer*>(context);
    IpcMessage& request = ipc->CurrentMessage();
    if (request.Size() < hostipc::kRequestBytes) {
        std::fprintf(stderr, "SubscribeServer: short subscribe request from %s dropped\n",
                     request.GetSender().c_str());
        return;
    }
    const std::uint32_t itemId = hostipc::WordAt(request.DataPtr(), 0);
    const std::uint32_t notifyId = hostipc::WordAt(request.DataPtr(), 1);
    const std::string sender = request.GetSender();
    // The reserved types are the platform's own; a notice under one of them would be taken
    // for a quit, a death or protocol traffic by the subscriber.
    const bool reserved = notifyId >= hostipc::kFirstReservedType;
    if (reserved) {
        std::fprintf(stderr,
                     "SubscribeServer: %s asked for item %u as reserved type %#x: refused\n",
                     sender.c_str(), itemId, notifyId);
    }

    // The reply starts as a protocol message no notification can be numbered as; it counts as
    // served only when GetItem turned it into a message of the notification id. GetItem is the
    // server owner's code, so its allocations face the test seam; the protocol's own do not.
    IpcMessage value;
    {
        hostipc::SeamBypass bypass;
        value.Allocate(LinxIpc::kSubscribeReply, 0, nullptr);
    }
    if (!reserved) {
        server->GetItem(itemId, value, notifyId);
    }
    const bool served = !reserved && value.MsgType() == notifyId;

    hostipc::SeamBypass bypass;
    IpcMessage reply;
    const unsigned int itemBytes = served ? value.Size() : 0;
    if (reply.Allocate(LinxIpc::kSubscribeReply, hostipc::kReplyHeaderBytes + itemBytes, nullptr) !=
        0) {
        std::fprintf(stderr, "SubscribeServer: item %u of %u bytes does not fit a reply\n", itemId,
                     itemBytes);
        return;
    }
    hostipc::PutWord(reply.DataPtr(), 0, itemId);
    hostipc::PutWord(reply.DataPtr(), 1, notifyId);
    hostipc::PutWord(reply.DataPtr(), 2, served ? hostipc::kAccepted : hostipc::kRefused);
    if (itemBytes > 0) {
        std::memcpy(reply.DataPtr() + hostipc::kReplyHeaderBytes, value.DataPtr(), itemBytes);
    }
    // An answer that cannot be delivered leaves the client unsubscribed, so the server adds
    // the subscriber only after it went out.
    if (ipc->Notify(sender, reply, true) != 0 || !served) {
        return;
    }
    std::vector<Subscriber>& subscribers = server->subscribers_;
    for (Subscriber& known : subscribers) {
        if (known.endpoint == sender && known.itemId == itemId) {
            known.notifyId = notifyId;  // a repeated request (client restarted) replaces it
            return;
        }
    }
    subscribers.push_back(Subscriber{sender, itemId, notifyId});
}

void SubscribeServer::UnsubscribeRequestHandler(LinxIpc* ipc, void* context) {
    SubscribeServer* server = static_cast<SubscribeServer*>(context);
    const IpcMessage& request = ipc->CurrentMessage();
    const unsigned int pairs = request.Size() / hostipc::kPairBytes;
    std::vector<Subscriber>& subscribers = server->subscribers_;
    for (std::size_t i = 0; i < subscribers.size();) {
        bool drop = subscribers[i].endpoint == request.GetSender();
        if (drop && pairs > 0) {
            drop = false;
            for (unsigned int pair = 0; pair < pairs && !drop; ++pair) {
                drop = hostipc::WordAt(request.DataPtr(), 2 * pair) == subscribers[i].itemId &&
                       hostipc::WordAt(request.DataPtr(), 2 * pair + 1) == subscribers[i].notifyId;
            }
        }
        if (drop) {
            subscribers.erase(subscribers.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}
