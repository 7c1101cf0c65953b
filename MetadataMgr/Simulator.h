// State of the simulated metadata generator, kept between calls for the process's life.
#pragma once

#include "HalItems.h"

// One random draw (rand()'s range).
typedef int (*SimulatorDraw)(void* context);
// Told that a pass of the simulator begins, before its first draw, with the tick that stamps
// the pass's records.
typedef void (*SimulatorPassMark)(void* context, unsigned int tick);

// The simulator's own draw: reseeds with the current second first, so draws within one second
// repeat and the simulated state changes at most about once a second.
int SimulatorClockDraw();

struct SimulatorState {
    SimulatorDraw draw = nullptr;  // null: SimulatorClockDraw
    void* drawContext = nullptr;
    SimulatorPassMark passMark = nullptr;  // null: nobody is told
    void* passContext = nullptr;

    bool lights = false;
    bool brakes = false;
    bool siren = false;
    bool aux = false;
    bool doorOpen = false;
    bool ignition = false;
    bool mics[4] = {false, false, false, false};

    GpsStatusItem gps;
    bool gpsInitialized = false;
    bool gpsFix = false;
    int speed = 100;
    bool speedRising = true;

    bool radarActive = false;
    int radar[4] = {0, 0, 0, 0};  // A, B, C, D
    bool radarRising[4] = {true, true, true, true};
};
