// The heartbeat file of one watched thread, mapped into the process so petting is a plain
// memory write. Fields are native order: only processes of the same machine read it.
#pragma once

#include "LinxServerNameList.h"
#include "PlatformTypes.h"

#include <cstdint>
#include <string>

class WatchdogHeartbeat {
public:
    static constexpr std::uint32_t kMagic = 0x57444f47u;  // "WDOG"

    std::uint32_t magic;
    std::uint32_t subscribed;
    std::uint32_t timeoutSeconds;
    std::uint32_t reserved;
    std::uint64_t lastPetMs;
    std::uint64_t petCount;
};

namespace hostsystem {

// <domain>/watchdog/<process number>.<thread number>
std::string HeartbeatPath(e_Process process, e_ThreadIds thread);

}  // namespace hostsystem
