#include "ManagerHarness.h"

#include <gtest/gtest.h>

#include "MediaPaths.h"
#include "ProcessInitializer.h"
#include "ProcessState.h"

ManagerHarness::ManagerHarness() {
    gShutdownRequested = false;
    gSimulatorMode = false;
    gRadarOnlyMode = false;
    gStoreInitialized = false;
    gStateMgrName = "StateMgr";
    gMetadataDir = std::string(MediaRoot()) + "/metadata";
    gMetadataPath = gMetadataDir + "/metadata";
    EXPECT_EQ(0, ipc.Init());
    EXPECT_EQ(0, peer.Init());
    manager.reset(new MetadataMgr());
}

ManagerHarness::~ManagerHarness() { manager.reset(); }

bool ManagerHarness::Prepare() { return manager->PreInit(ipc); }

bool ManagerHarness::Deliver(unsigned int type, const void* payload, unsigned int size) {
    IpcMessage message;
    if (message.Allocate(type, size, static_cast<char*>(const_cast<void*>(payload))) != 0) {
        return false;
    }
    if (peer.Notify(ipc.Name(), message, true) != 0) {
        return false;
    }
    return ipc.Receive(2000, type, LinxIpc::emptyString, nullptr) == 0;
}

bool ManagerHarness::DeliverItem(unsigned int type, const Item& item) {
    IpcMessage message;
    if (message.Allocate(type, item.Size(), nullptr) != 0) {
        return false;
    }
    item.Encode(message.DataPtr());
    if (peer.Notify(ipc.Name(), message, true) != 0) {
        return false;
    }
    return ipc.Receive(2000, type, LinxIpc::emptyString, nullptr) == 0;
}

bool ManagerHarness::PeerReceive(IpcMessage& out, unsigned int type, int timeoutMs) {
    return peer.Receive(timeoutMs, type, LinxIpc::emptyString, &out) == 0;
}

std::vector<StoreRecord> ManagerHarness::Records() {
    manager->Cleanup();
    std::string error;
    std::vector<StoreRecord> records = ReadStoreRecords(gMetadataPath, env.Root(), {}, &error);
    EXPECT_EQ("", error);
    return records;
}

std::vector<StoreRecord> ManagerHarness::RecordsOf(const std::string& op) {
    const std::vector<StoreRecord> all = Records();
    return op.empty() ? all : WithOp(all, op);
}
