// The system watchdog: a subscribed thread must pet it within its time-out.
#pragma once

#include "LinxServerNameList.h"
#include "PlatformTypes.h"

class WatchdogHeartbeat;

class Watchdog {
public:
    Watchdog(e_Process process, e_ThreadIds thread);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // Registers with the watchdog service; the thread must pet at least every timeoutSeconds.
    // true = registered (also where no watchdog service runs).
    bool Subscribe(unsigned int timeoutSeconds);
    void PetWatchdog();
    void Unsubscribe();

    bool Subscribed() const;
    unsigned int PetCount() const;

private:
    e_Process process_;
    e_ThreadIds thread_;
    WatchdogHeartbeat* heartbeat_ = nullptr;
};
