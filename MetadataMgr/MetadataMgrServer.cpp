// The bookmark server: subscribers of item 0 are told of every bookmark taken.
#include "MetadataMgrServer.h"

#include "Item.h"
#include "SourceLog.h"

#define SERVER_LOG(mask) SOURCE_LOG("MetadataMgrServer", mask)

MetadataMgrServer::MetadataMgrServer(LinxIpc& ipc) : SubscribeServer(ipc) {}

MetadataMgrServer::~MetadataMgrServer() {}

// A bookmark is an event, not a state: polled, it always reads false.
void MetadataMgrServer::GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) {
    SERVER_LOG(128) << "GetItem";
    if (itemId != kBookmarkItem) {
        SERVER_LOG(2) << "GetItem"
                      << " Unknown item passed in " << itemId;
        return;
    }
    BoolItem item(false);
    if (reply.Allocate(msgType, item.Size(), nullptr) != 0) {
        SERVER_LOG(2) << "GetItem"
                      << ": Failed to allocate message";
        return;
    }
    item.EncodeMsg(reply);
}

void MetadataMgrServer::Bookmark() {
    SERVER_LOG(128) << "Bookmark";
    BoolItem item(true);
    NotifySubscribers(kBookmarkItem, item);
}
