// The system tick: an unsigned 32-bit count shared by every process of the system.
#pragma once

class Systick {
public:
    static const unsigned int kUnavailable = 0xFFFFFFFFu;
    static const unsigned int kTicksPerSecond = 1000;

    Systick();
    // The current tick; kUnavailable when no tick can be read.
    unsigned int SystemTick();
};
