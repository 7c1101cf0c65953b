// State of the simulated metadata generator, kept between calls for the process's life.
#pragma once

#include "HalItems.h"

// One random draw (rand()'s range). The default reseeds with the current second first.
typedef int (*SimulatorDraw)();

struct SimulatorState {
    SimulatorDraw draw = nullptr;  // null: srand(time(nullptr)); rand()

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
