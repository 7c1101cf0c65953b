// Read-only views of host platform state for the bench tools (linxpeer, mdstore) and tests.
#pragma once

#include "LinxServerNameList.h"
#include "MetadataSharedMem.h"
#include "PlatformTypes.h"

namespace hostinspect {

struct WatchdogStatus {
    bool subscribed = false;
    unsigned int timeoutSeconds = 0;
    unsigned long long lastPetMs = 0;  // CLOCK_MONOTONIC milliseconds of the last pet
    unsigned long long petCount = 0;
    bool expired = false;  // subscribed and not petted within its time-out
};

// The heartbeat of one process's thread in the current LINX_DOMAIN; false when it never
// registered a watchdog there.
bool ReadWatchdog(e_Process process, e_ThreadIds thread, WatchdogStatus& status);

// A copy of the current domain's shared metadata block; false when there is none.
bool ReadSharedBlock(unsigned char (&block)[MetadataSharedMem::kBlockSize]);

}  // namespace hostinspect
