// The subscribe server this process offers: item 0, the bookmark signal.
#pragma once

#include "Subscribe.h"

class MetadataMgrServer : public SubscribeServer {
public:
    static const unsigned int kBookmarkItem = 0;

    explicit MetadataMgrServer(LinxIpc& ipc);
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override;
    ~MetadataMgrServer() override;

    // Pushes true to every subscriber of item 0.
    void Bookmark();
};
