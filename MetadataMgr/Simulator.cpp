// Simulated metadata for bench use without vehicle hardware: random inputs, a moving GPS
// position with a speed ramp, microphones, occasional bookmarks and radar readings. GPS and
// radar are mirrored into the shared record where the real handlers would put them.
#include <cstdlib>
#include <ctime>

#include "MetadataMgr.h"
#include "ProcessState.h"
#include "SharedRecord.h"

namespace {

// Fix quality values a receiver with a good fix would give.
void PutGoodFix(unsigned char* record) {
    shared::Put(record, shared::kFixStatus, 1);
    shared::Put(record, shared::kFixMode, 2);
    shared::Put(record, shared::kHdop, 0);
    shared::Put(record, shared::kSatellitesUsed, 5);
    shared::Put(record, shared::kGeoidSeparation, 21);
}

const unsigned char kSpeedFromGps = 1;
const unsigned char kSpeedFromRadar = 2;
const unsigned char kRadar = 1;

// Shared-record radar status values.
const unsigned short kRadarReading = 1;
const unsigned short kRadarDegraded = 8;
const unsigned short kRadarNoReading = 128;

// The six inputs in the order they are toggled and reported.
struct InputTags {
    bool SimulatorState::*flag;
    e_Tag on;
    e_Tag off;
};
const InputTags kInputs[] = {
    {&SimulatorState::lights, e_Tag_LightsOn, e_Tag_LightsOff},
    {&SimulatorState::brakes, e_Tag_BrakesOn, e_Tag_BrakesOff},
    {&SimulatorState::siren, e_Tag_SirenOn, e_Tag_SirenOff},
    {&SimulatorState::aux, e_Tag_AuxOn, e_Tag_AuxOff},
    {&SimulatorState::doorOpen, e_Tag_DoorOpen, e_Tag_DoorClosed},
    {&SimulatorState::ignition, e_Tag_IgnitionOn, e_Tag_IgnitionOff},
};

// Highest d100 of each microphone's toggle band, microphones 0..3; above the last, none.
const int kMicBands[] = {4, 9, 14, 19};

// Radar draw bands: what a d100 up to `upTo` does to the radar and which counters it steps.
enum class RadarActivity { Off, On, Unchanged };
struct RadarBand {
    int upTo;
    RadarActivity activity;
    unsigned short status;  // shared-record status; 0 = left as it is
    bool step[4];           // counters A, B, C, D
};
const RadarBand kRadarBands[] = {
    // d100  radar active               status           A      B      C      D
    {4, RadarActivity::Off, kRadarNoReading, {false, false, false, false}},
    {20, RadarActivity::On, kRadarDegraded, {false, false, false, false}},
    {24, RadarActivity::On, kRadarDegraded, {false, true, false, true}},
    {40, RadarActivity::Unchanged, 0, {false, true, false, true}},
    {50, RadarActivity::Unchanged, 0, {false, true, true, true}},
    {60, RadarActivity::Unchanged, 0, {true, true, true, true}},
    {100, RadarActivity::On, kRadarReading, {true, true, true, true}},
};

// One step of a ramp that turns above `top` and below 1.
void Ramp(int& value, bool& rising, int step, int top) {
    value += rising ? step : -step;
    if (value > top) {
        rising = false;
    } else if (value < 1) {
        rising = true;
    }
}

// Seconds fraction, minutes and degrees carried like a clock.
void Advance(unsigned short& degrees, unsigned short& minutes, unsigned int& fraction) {
    fraction += 10;
    if (static_cast<int>(fraction) > 50) {
        fraction = 0;
        ++minutes;
    }
    if (minutes > 59) {
        ++degrees;
        minutes = 0;
    }
}

int Draw(const SimulatorState& state) {
    return state.draw != nullptr ? state.draw(state.drawContext) : SimulatorClockDraw();
}
int D100(const SimulatorState& state) {
    return Draw(state) % 100 + 1;
}
int D30(const SimulatorState& state) {
    return Draw(state) % 30 + 1;
}

void SimulateInputs(SimulatorState& sim, DataStore& store, unsigned int tick) {
    const int input = D30(sim);
    if (input >= 1 && input <= 6) {
        bool& flag = sim.*kInputs[input - 1].flag;
        flag = !flag;
    }
    for (const InputTags& in : kInputs) {
        store.ReportStateData(sim.*in.flag ? in.on : in.off, true, tick);
    }
}

// The shared record of a simulated fix.
void PutSimulatedFix(unsigned char* record, const GpsStatusItem& gps, unsigned short speed) {
    shared::Put(record, shared::kGpsDataValid, 1);
    PutGoodFix(record);
    // The longitude minutes slot carries the fraction, as readers of the simulated record
    // have always seen it.
    shared::PutPosition(record, gps, gps.lonMinuteFraction);
    // Without a compass the heading slot carries the speed as well.
    shared::Put(record, shared::kHeading, speed);
    shared::Put(record, shared::kSpeed, speed);
}

void SimulateGps(SimulatorState& sim, DataStore& store, unsigned char* record, unsigned int tick) {
    const int gpsDraw = D100(sim);
    GpsStatusItem& gps = sim.gps;
    if (!sim.gpsInitialized) {
        gps.latDegrees = 10;
        gps.latMinutes = 20;
        gps.latMinuteFraction = 0;
        gps.latHemisphere = 1;
        gps.lonDegrees = 15;
        gps.lonMinutes = 25;
        gps.lonMinuteFraction = 0;
        gps.lonHemisphere = 1;
        sim.gpsInitialized = true;
        if (record != nullptr) {
            PutGoodFix(record);
            shared::Put(record, shared::kSatellitesInView, 5);
        }
    }
    bool move = false;
    if (gpsDraw <= 39) {
        sim.gpsFix = true;
    } else if (gpsDraw <= 80) {
        // no change, no movement
    } else if (gpsDraw <= 90) {
        move = true;
    } else {
        sim.gpsFix = false;
        // The values a receiver gives when it has lost the fix. The record is checked
        // here and below: a bench run without the shared block must not crash.
        if (record != nullptr) {
            shared::Put(record, shared::kFixStatus, 0);
            shared::Put(record, shared::kFixMode, 0);
            shared::Put(record, shared::kSatellitesUsed, 0);
            shared::Put(record, shared::kHdop, 0x07FFFFFF);
            shared::Put(record, shared::kGeoidSeparation, -32);
        }
        move = true;
    }
    if (move) {
        Ramp(sim.speed, sim.speedRising, 5, 300);
        Advance(gps.latDegrees, gps.latMinutes, gps.latMinuteFraction);
        Advance(gps.lonDegrees, gps.lonMinutes, gps.lonMinuteFraction);
    }
    const unsigned short speed = static_cast<unsigned short>(sim.speed);
    if (sim.gpsFix) {
        store.ReportGpsState(true, true);
        store.ReportGps(gps, tick, true);
        // The simulated speed is already whole units, unlike the receiver's tenths.
        store.ReportSpeed(kSpeedFromGps, speed, true, tick, e_Tag_None);
        if (record != nullptr) {
            PutSimulatedFix(record, gps, speed);
        }
    } else {
        store.ReportGpsState(false, true);
        store.ReportValidSpeed(kSpeedFromGps, false);
        if (record != nullptr) {
            shared::Put(record, shared::kHeading, 0);
            shared::Put(record, shared::kSpeed, 0);
        }
    }
}

void SimulateMics(SimulatorState& sim, MetadataMgr& manager, unsigned int tick) {
    const int micDraw = D100(sim);
    for (int mic = 0; mic < 4; ++mic) {
        if (micDraw <= kMicBands[mic]) {
            sim.mics[mic] = !sim.mics[mic];
            break;
        }
    }
    for (unsigned int mic = 0; mic < 4; ++mic) {
        manager.ReportMicState(static_cast<e_MicrophonePosition>(mic), true, sim.mics[mic], tick,
                               true);
    }
}

void SimulateRadar(SimulatorState& sim, DataStore& store, unsigned char* record) {
    const int radarDraw = D100(sim);
    for (const RadarBand& band : kRadarBands) {
        if (radarDraw > band.upTo) {
            continue;
        }
        if (band.activity != RadarActivity::Unchanged) {
            sim.radarActive = band.activity == RadarActivity::On;
        }
        if (band.status != 0 && record != nullptr) {
            shared::Put(record, shared::kRadarStatus, band.status);
        }
        for (int counter = 0; counter < 4; ++counter) {
            if (band.step[counter]) {
                Ramp(sim.radar[counter], sim.radarRising[counter], 1, 150);
            }
        }
        break;
    }
    const unsigned short a = static_cast<unsigned short>(sim.radar[0]);
    const unsigned short b = static_cast<unsigned short>(sim.radar[1]);
    const unsigned short c = static_cast<unsigned short>(sim.radar[2]);
    const unsigned short d = static_cast<unsigned short>(sim.radar[3]);
    if (sim.radarActive) {
        store.ReportRadarState(kRadar, true, true);
        // The radar reading goes out without a tick, as it always has.
        store.ReportRadar(kRadar, c, a, d, e_RADAR_DIRECTION_None, true, 0, e_Tag_None);
        if (record != nullptr) {
            shared::Put(record, shared::kRadarPatrolSpeed, b);
            shared::Put(record, shared::kRadarTargetSpeed, c);
            shared::Put(record, shared::kRadarFastestSpeed, a);
            shared::Put(record, shared::kRadarLockedSpeed, d);
        }
    } else {
        store.ReportRadarState(kRadar, false, true);
        store.ReportValidSpeed(kSpeedFromRadar, false);
    }
}

}  // namespace

// Reseeding with the current second before each draw is deliberate: the bench has always seen
// the simulation change about once a second.
int SimulatorClockDraw() {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    return std::rand();
}

void MetadataMgr::SimulateData() {
    const unsigned int tick = systick.SystemTick();
    unsigned char* record = sharedMem.MetadataItems(true);
    if (simulator.passMark != nullptr) {
        simulator.passMark(simulator.passContext, tick);
    }
    if (!gRadarOnlyMode) {
        SimulateInputs(simulator, dataStore, tick);
        SimulateGps(simulator, dataStore, record, tick);
        SimulateMics(simulator, *this, tick);
        // A bookmark goes into the store only; subscribers of the bookmark item hear nothing.
        if (Draw(simulator) % 100 > 89) {
            dataStore.ReportBookmark(tick);
        }
    }
    SimulateRadar(simulator, dataStore, record);
}
