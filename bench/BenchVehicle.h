// One manager and one peer endpoint in a private domain and media root, prepared as the process
// runs after start-up: handlers registered, store open with its start-up records, watchdog
// subscribed.
#pragma once

#include <memory>
#include <string>

#include "LinxIpc.h"
#include "MetadataMgr.h"
#include "TestEnv.h"

class BenchVehicle {
public:
    BenchVehicle();
    ~BenchVehicle();
    BenchVehicle(const BenchVehicle&) = delete;
    BenchVehicle& operator=(const BenchVehicle&) = delete;

    // False when the manager could not be prepared; the benchmark then reports an error.
    bool Ready() const { return ready_; }

    TestEnv env;
    LinxIpc ipc{"MetadataMgr"};
    LinxIpc peer{"GpsHal"};
    std::unique_ptr<MetadataMgr> manager;

private:
    bool ready_ = false;
};

// The store's base path inside a media root, with its directory made.
std::string PrepareStoreDir(const TestEnv& env);
