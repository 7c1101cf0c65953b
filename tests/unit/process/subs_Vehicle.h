// The vehicle's servers with recognisable values, and lookups in the store's records.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "ConfigItems.h"
#include "HalItems.h"
#include "MicItems.h"
#include "ServerClients.h"
#include "StoreRecords.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"
#include "subs_Servers.h"

// Every server of the vehicle with recognisable values.
struct Vehicle {
    VehicleInfo vehicle;
    SystemInfo system;
    DepartmentInfo department;
    Officer officer;
    VideoRecordingSettings recording;
    FpgaExternalEventItem inputs;
    GpsStatusItem gps;
    SystickItem stateEvent{77};
    RadarItem radar;
    MicStatusResponse mics;
    VideoMgrCameraItem cameras;
    VideoMgrStreamQualityItem quality;
    CrashItem crash;
    TempStatus temps;
    ExternalMgrApi::StreamingLvsStateItem stream;

    Vehicle() {
        vehicle.vehicleId.Set("CAR-17");
        officer.name.Set("Kowalski");
        recording.preEventSeconds.Set(30);
        // The server marks nothing as changed: the levels must be stored all the same.
        inputs.changedMask = 0;
        inputs.inputLevels = 0x8000 | 0x20000;  // lights and siren on
        inputs.debounce = 0x55;
        inputs.tick = 1234;
        gps.fixStatus = 1;
        gps.speed = 190;
        gps.latDegrees = 51;
        gps.tick = 2000;
        radar.status = 1;
        radar.patrolSpeed = 50;
        radar.targetSpeed = 61;
        radar.tick = 2100;
        mics.Add(e_Mic_1, true, false);
        mics.tick = 2200;
        cameras.cameraState[0] = e_CameraState_Recording;
        cameras.tick = 2300;
        quality.streams[0].bitRateKbps = 4000;
        quality.tick = 2400;
        crash.crash = true;
        crash.tick = 3000;
        temps.temperatures[0] = -5;
        temps.tick = 2500;
    }

    // Opens every server's endpoint, except those listed.
    void Populate(ServerFarm& farm, const std::set<e_Process>& absent = {}) const {
        auto add = [&](e_Process process) -> ItemServer* {
            return absent.count(process) != 0 ? nullptr : &farm.Add(process);
        };
        if (ItemServer* s = add(e_Process_ConfigMgr)) {
            s->Serve(10, vehicle);
            s->Serve(7, system);
            s->Serve(11, department);
            s->Serve(12, officer);
            s->Serve(13, recording);
        }
        if (ItemServer* s = add(e_Process_Fpga)) {
            s->Serve(17, inputs);
        }
        if (ItemServer* s = add(e_Process_GpsHal)) {
            s->Serve(1, gps);
        }
        if (ItemServer* s = add(e_Process_StateMgr)) {
            for (unsigned int id = 1; id <= 4; ++id) {
                s->Serve(id, stateEvent);
            }
        }
        if (ItemServer* s = add(e_Process_RadarHal)) {
            s->Serve(1, radar);
        }
        if (ItemServer* s = add(e_Process_MicMgr)) {
            s->Serve(0, mics);
        }
        if (ItemServer* s = add(e_Process_VideoMgr)) {
            s->Serve(0, cameras);
            s->Serve(1, quality);
        }
        if (ItemServer* s = add(e_Process_AccelHal)) {
            s->Serve(1, crash);
        }
        if (ItemServer* s = add(e_Process_TempHal)) {
            s->Serve(0, temps);
        }
        if (ItemServer* s = add(e_Process_ExternalMgr)) {
            for (unsigned int id = 16; id <= 21; ++id) {
                s->Serve(id, stream);
            }
        }
    }
};

// Index of the first record at or after `from` with `op` and, when given, key == value; -1.
inline int Find(const std::vector<StoreRecord>& records, int from, const std::string& op,
                const std::string& key = "", const std::string& value = "") {
    for (int i = from < 0 ? 0 : from; i < static_cast<int>(records.size()); ++i) {
        if (records[i].Op() == op && (key.empty() || records[i].Get(key) == value)) {
            return i;
        }
    }
    return -1;
}

inline std::set<long long> TagsWithFlag(const std::vector<StoreRecord>& records,
                                        const std::string& flag) {
    std::set<long long> tags;
    for (const StoreRecord& r : WithOp(records, "ReportStateData")) {
        if (r.Get("flag") == flag) {
            tags.insert(r.Int("tag"));
        }
    }
    return tags;
}

// The op of the last record before the harness closed the store, "" when there is none; a
// snapshot shows as "WriteFullState/<cause>".
inline std::string LastOp(const std::vector<StoreRecord>& records) {
    for (auto it = records.rbegin(); it != records.rend(); ++it) {
        if (it->Op() == "WriteFullState") {
            return it->Op() + "/" + it->Get("cause");
        }
        if (it->Op() != "ReportShutdownData") {
            return it->Op();
        }
    }
    return std::string();
}
