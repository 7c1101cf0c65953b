// A MetadataMgr driven in-process through real endpoints of the host platform: the manager's
// own endpoint ("MetadataMgr") and a peer endpoint that plays the other processes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Item.h"
#include "LinxIpc.h"
#include "MetadataMgr.h"
#include "StoreRecords.h"
#include "TestEnv.h"

class ManagerHarness {
public:
    // Fresh domain and media root, process-wide state reset, both endpoints up, the manager
    // constructed (not yet prepared).
    ManagerHarness();
    ~ManagerHarness();

    TestEnv env;
    LinxIpc ipc{"MetadataMgr"};
    LinxIpc peer{"TestPeer"};
    std::unique_ptr<MetadataMgr> manager;

    // PreInit on the manager's endpoint.
    bool Prepare();
    // The peer sends a message to the manager's endpoint, and the manager's endpoint receives
    // and dispatches it. False when it did not arrive.
    bool Deliver(unsigned int type, const void* payload, unsigned int size);
    bool DeliverItem(unsigned int type, const Item& item);
    // Waits up to timeoutMs for a message at the peer; false when none came.
    bool PeerReceive(IpcMessage& out, unsigned int type = 0, int timeoutMs = 1000);
    // Closes the store (Cleanup) and returns every record it holds.
    std::vector<StoreRecord> Records();
    // The records after the start-up output, filtered by op ("" = all).
    std::vector<StoreRecord> RecordsOf(const std::string& op);
};
