// A server process's side of the subscribe protocol, played by a test.
#pragma once

#include <map>

#include "Item.h"
#include "Subscribe.h"

// Serves the items it was given (the caller keeps them alive) and refuses any other.
class ItemServer : public SubscribeServer {
public:
    explicit ItemServer(LinxIpc& ipc) : SubscribeServer(ipc) {}
    void Serve(unsigned int itemId, const Item& item) { items_[itemId] = &item; }
    void Refuse(unsigned int itemId) { items_.erase(itemId); }
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        const auto found = items_.find(itemId);
        if (found != items_.end() && reply.Allocate(msgType, found->second->Size(), nullptr) == 0) {
            found->second->Encode(reply.DataPtr());
        }
    }

private:
    std::map<unsigned int, const Item*> items_;
};
