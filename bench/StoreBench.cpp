// DataStoreNormal's report calls straight into the journal. The argument is the number of
// reports between two once-a-second ticks, so each timing carries its share of the write and
// sync the tick triggers; segment rolls and the size bound come in as they fall due.
#include <benchmark/benchmark.h>

#include "BenchVehicle.h"
#include "DataStore.h"

namespace {
template <typename Report>
void RunReports(benchmark::State& state, Report report) {
    TestEnv env;
    DataStoreNormal store(PrepareStoreDir(env));
    if (!store.Open()) {
        state.SkipWithError("store not opened");
        return;
    }
    const long perTick = state.range(0);
    unsigned int tick = 1000;
    store.TimerTick(tick);
    long sinceTick = 0;
    for (auto _ : state) {
        report(store, tick);
        if (++sinceTick == perTick) {
            sinceTick = 0;
            tick += 1000;
            store.TimerTick(tick);
        }
    }
    store.Close();
    state.SetItemsProcessed(state.iterations());
}

void BM_StoreReportStateData(benchmark::State& state) {
    bool on = false;
    RunReports(state, [&on](DataStoreNormal& store, unsigned int tick) {
        on = !on;
        benchmark::DoNotOptimize(
            store.ReportStateData(on ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, tick));
    });
}
BENCHMARK(BM_StoreReportStateData)->Arg(1)->Arg(100)->Arg(10000);

void BM_StoreReportGps(benchmark::State& state) {
    GpsStatusItem gps;
    gps.latDegrees = 51;
    gps.lonDegrees = 7;
    gps.speed = 512;
    gps.fixStatus = 1;
    RunReports(state, [&gps](DataStoreNormal& store, unsigned int tick) {
        gps.tick = tick;
        ++gps.utcTime;
        benchmark::DoNotOptimize(store.ReportGps(gps, tick, true));
    });
}
BENCHMARK(BM_StoreReportGps)->Arg(1)->Arg(100)->Arg(10000);
}  // namespace
