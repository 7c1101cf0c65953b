#include "BenchVehicle.h"

#include <sys/stat.h>

#include "MediaRoot.h"
#include "ProcessState.h"

BenchVehicle::BenchVehicle() {
    gShutdownRequested = false;
    gSimulatorMode = false;
    gRadarOnlyMode = false;
    gStoreInitialized = false;
    gMetadataDir = std::string(MediaRoot()) + "/metadata";
    gMetadataPath = gMetadataDir + "/metadata";
    if (ipc.Init() != 0 || peer.Init() != 0) {
        return;
    }
    manager.reset(new MetadataMgr());
    if (!manager->PreInit(ipc)) {
        return;
    }
    manager->InitializeStore();
    ready_ = gStoreInitialized && manager->GetWatchdog().Subscribe(30);
}

BenchVehicle::~BenchVehicle() {
    if (manager) {
        manager->Cleanup();
    }
    manager.reset();
    gSimulatorMode = false;
}

std::string PrepareStoreDir(const TestEnv& env) {
    const std::string dir = env.Media() + "/metadata";
    ::mkdir(dir.c_str(), 0770);
    return dir + "/metadata";
}
