// The manager's own work: one GPS notice from the peer to the store, the loop pass, and the
// simulator's call.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "BenchVehicle.h"
#include "ProcessState.h"

namespace {
const unsigned int kGpsNotice = 13494;

GpsStatusItem Gps() {
    GpsStatusItem gps;
    gps.latDegrees = 51;
    gps.latMinutes = 30;
    gps.lonDegrees = 7;
    gps.speed = 512;
    gps.heading = 90;
    gps.fixStatus = 1;
    gps.fixMode = 3;
    gps.satellitesUsed = 8;
    return gps;
}

// The peer sends a GPS notice; the manager's Receive dispatches it to its handler, which
// decodes it, updates the shared record and reports fix, position and speed to the store.
void BM_GpsNoticeToStore(benchmark::State& state) {
    BenchVehicle v;
    if (!v.Ready()) {
        state.SkipWithError("manager not prepared");
        return;
    }
    v.ipc.RegisterHandler(kGpsNotice, MetadataMgr::GpsStatusEventHandler, v.manager.get());
    GpsStatusItem gps = Gps();
    IpcMessage notice;
    notice.Allocate(kGpsNotice, gps.Size(), nullptr);
    for (auto _ : state) {
        ++gps.tick;
        gps.Encode(notice.DataPtr());
        if (v.peer.Notify(v.ipc.Name(), notice, true) != 0 ||
            v.ipc.Receive(1000, kGpsNotice, LinxIpc::emptyString, nullptr) != 0) {
            state.SkipWithError("notice lost");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GpsNoticeToStore);

// What the main loop does after every receive: pet the watchdog and the periodic pass, on the
// real clock, so the store's once-a-second sync is included. Arg 1: FORCE_METADATA set.
void BM_LoopPass(benchmark::State& state) {
    const bool forced = state.range(0) != 0;
    if (forced) {
        ::setenv("FORCE_METADATA", "1", 1);
    }
    {
        BenchVehicle v;
        if (!v.Ready()) {
            state.SkipWithError("manager not prepared");
        } else {
            for (auto _ : state) {
                v.manager->PetWatchdog();
                v.manager->PeriodicProcessing();
            }
        }
    }
    ::unsetenv("FORCE_METADATA");
}
BENCHMARK(BM_LoopPass)->Arg(0)->Arg(1);

// One call of the simulated metadata generator (inputs, GPS track, speed, microphones,
// bookmarks, radar) with the time-seeded draw it uses in simulator mode.
void BM_SimulateData(benchmark::State& state) {
    BenchVehicle v;
    if (!v.Ready()) {
        state.SkipWithError("manager not prepared");
        return;
    }
    gSimulatorMode = true;
    for (auto _ : state) {
        v.manager->SimulateData();
    }
}
BENCHMARK(BM_SimulateData);
}  // namespace
