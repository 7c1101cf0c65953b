// The work of every loop pass, the watchdog and the store's current tick.
#include <cstdio>

#include "MetadataMgr.h"
#include "ProcessState.h"

Watchdog& MetadataMgr::GetWatchdog() {
    return watchdog;
}

void MetadataMgr::PetWatchdog() {
    watchdog.PetWatchdog();
}

void MetadataMgr::PeriodicProcessing() {
    if (gShutdownRequested) {
        return;
    }
    // Every tick goes to the store unchecked: when to write is the store's business.
    dataStore.TimerTick(systick.SystemTick());

    if (forceMetadata) {
        char filler[256];
        std::snprintf(filler, sizeof filler, "Test string for filler %u", systick.SystemTick());
        dataStore.ReportStringData(e_Tag_FillerString, filler);
    }

    if (gSimulatorMode) {
        SimulateData();
    }
}

unsigned int MetadataMgr::GetLastSystemTick() {
    return dataStore.GetCurrentSystemTick();
}
