// The subscribe/notify protocol on top of the IPC layer.
//
// A client asks a server for an item (item id) and names the message type (notification id)
// under which it wants change notices. The server answers with the item's current value or
// refuses; afterwards it pushes the item under the notification id on every change. The
// client registers the handler for the notification id on its endpoint, so notices are
// dispatched inside LinxIpc::Receive like any other message.
#pragma once

#include <string>
#include <vector>

#include "LinxIpc.h"

class Item;

class SubscribeClient {
public:
    static const int kDefaultTimeoutMs = 5000;
    // Subscribe / Resubscribe results besides 0.
    static const int kRefused = 1;
    static const int kNoAnswer = 2;   // the server did not answer within the time-out
    static const int kNoServer = 3;   // no endpoint of that name
    static const int kBadAnswer = 4;  // the answer did not carry the item

    SubscribeClient(LinxIpc& ipc, const std::string& serverName, int timeoutMs);
    virtual ~SubscribeClient();
    SubscribeClient(const SubscribeClient&) = delete;
    SubscribeClient& operator=(const SubscribeClient&) = delete;

    // Fetches the server's current value of `itemId` into `item` and registers `handler` for
    // `notifyId`, waiting at most the client's time-out. 0 = subscribed.
    int Subscribe(unsigned int itemId, unsigned int notifyId, Item& item, LinxHandler handler,
                  void* context);
    // Sends every subscription this client holds again (after the server restarted); the
    // values returned are discarded. 0 = all renewed; a client without subscriptions has
    // nothing to renew and succeeds.
    int Resubscribe();
    // Tells the server to drop every subscription of this client and deregisters the
    // handlers. With `waitForServer` false nothing is waited for.
    int UnsubscribeAll(bool waitForServer);

    const std::string& ServerName() const { return serverName_; }
    int TimeoutMs() const { return timeoutMs_; }
    unsigned int SubscriptionCount() const { return static_cast<unsigned int>(subs_.size()); }

protected:
    LinxIpc& Ipc() { return ipc_; }

private:
    struct Subscription {
        unsigned int itemId;
        unsigned int notifyId;
        LinxHandler handler;
        void* context;
    };
    int Request(unsigned int itemId, unsigned int notifyId, Item* item);

    LinxIpc& ipc_;
    std::string serverName_;
    int timeoutMs_;
    std::vector<Subscription> subs_;
};

class SubscribeServer {
public:
    explicit SubscribeServer(LinxIpc& ipc);
    SubscribeServer(const SubscribeServer&) = delete;
    SubscribeServer& operator=(const SubscribeServer&) = delete;

    // Sends `item` under each subscriber's notification id to every subscriber of `itemId`.
    // Subscribers whose endpoint is gone are dropped. Returns the number of notices sent.
    virtual int NotifySubscribers(unsigned int itemId, Item& item);
    // Fills `reply` with the current value of `itemId` as a message of type `msgType`
    // (IpcMessage::Allocate, then Item::EncodeMsg). A reply left untouched refuses the
    // subscription. The base class serves nothing.
    virtual void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType);
    virtual ~SubscribeServer();

    unsigned int SubscriberCount(unsigned int itemId) const;

protected:
    LinxIpc& Ipc() { return ipc_; }

private:
    struct Subscriber {
        std::string endpoint;
        unsigned int itemId;
        unsigned int notifyId;
    };
    static void SubscribeRequestHandler(LinxIpc* ipc, void* context);
    static void UnsubscribeRequestHandler(LinxIpc* ipc, void* context);

    LinxIpc& ipc_;
    std::vector<Subscriber> subscribers_;
    IpcMessage notice_;
};
