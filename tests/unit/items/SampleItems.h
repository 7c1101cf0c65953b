// Items filled with distinct, non-default values (negative where a field is signed), so that a
// field lost on the way shows up as a difference.
#pragma once

#include "ConfigItems.h"
#include "HalItems.h"
#include "MicItems.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"

namespace itemtest {

inline GpsStatusItem SampleGps() {
    GpsStatusItem gps;
    gps.latDegrees = 0x0102;
    gps.latMinutes = 0x0304;
    gps.latMinuteFraction = 0x05060708u;
    gps.latHemisphere = 1;
    gps.lonDegrees = 0x090A;
    gps.lonMinutes = 0x0B0C;
    gps.lonMinuteFraction = 0x0D0E0F10u;
    gps.lonHemisphere = -2;
    gps.altitude = -123456;
    gps.speed = 0x1234;
    gps.heading = 359;
    gps.magneticVariation = 0x1718;
    gps.satellitesInView = 12;
    gps.fixStatus = 0x191A1B1Cu;
    gps.fixMode = -3;
    gps.hdop = 0x1D1E1F20;
    gps.satellitesUsed = 9;
    gps.geoidSeparation = -47;
    gps.utcTime = 0x21222324u;
    gps.dataValid = 0xA5;
    gps.tick = 0xFEDCBA98u;
    return gps;
}

inline RadarItem SampleRadar() {
    RadarItem radar;
    radar.status = 0x0081;
    radar.patrolSpeed = 0x0203;
    radar.targetSpeed = 0x0405;
    radar.fastestSpeed = 0x0607;
    radar.lockedSpeed = 0x0809;
    radar.tick = 0x0A0B0C0Du;
    return radar;
}

inline FpgaExternalEventItem SampleFpga() {
    FpgaExternalEventItem fpga;
    fpga.changedMask = 0x000A8000u;
    fpga.inputLevels = 0x00008000u;
    fpga.debounce = 0xCAFEF00Du;
    fpga.tick = 0x11223344u;
    return fpga;
}

inline TempStatus SampleTemp() {
    TempStatus temp;
    temp.temperatures[0] = -40;
    temp.temperatures[1] = 85;
    temp.temperatures[2] = -32768;
    temp.temperatures[3] = 32767;
    temp.tick = 0x55667788u;
    return temp;
}

inline CrashItem SampleCrash() {
    CrashItem crash;
    crash.crash = true;
    crash.tick = 0x99AABBCCu;
    return crash;
}

inline MicStatusResponse SampleMics() {
    MicStatusResponse mics;
    mics.Add(e_Mic_2, true, true);
    mics.Add(e_Mic_0, true, false);
    mics.Add(static_cast<e_MicrophonePosition>(7), false, true);
    mics.tick = 0x01020304u;
    return mics;
}

inline VideoMgrCameraItem SampleCameras() {
    VideoMgrCameraItem cameras;
    for (unsigned int i = 0; i < VideoMgrCameraItem::kEntries; ++i) {
        cameras.cameraState[i] = static_cast<e_CameraState>(i * 0x01010101u + 1);
    }
    cameras.tick = 0xDEADBEEFu;
    return cameras;
}

inline VideoMgrStreamQualityItem SampleQuality() {
    VideoMgrStreamQualityItem quality;
    for (unsigned int i = 0; i < VideoMgrStreamQualityItem::kStreams; ++i) {
        quality.streams[i].quality = 0x10000000u + i;
        quality.streams[i].bitRateKbps = 2000 + 500 * i;
        quality.streams[i].frameRate = static_cast<unsigned short>(30 - i);
        quality.streams[i].resolution = static_cast<unsigned short>(0x0700 + i);
    }
    quality.tick = 0x0BADF00Du;
    return quality;
}

inline VehicleInfo SampleVehicle() {
    VehicleInfo vehicle;
    vehicle.vehicleId.Set("Unit 12");
    vehicle.licensePlate.Set("AB-1234");
    vehicle.description.Set("Interceptor, white");
    return vehicle;
}

inline Officer SampleOfficer() {
    Officer officer;
    officer.officerId.Set("4711");
    officer.name.Set("J. Doe");
    return officer;
}

inline DepartmentInfo SampleDepartment() {
    DepartmentInfo department;
    department.departmentId.Set("D-09");
    department.name.Set("Highway Patrol");
    return department;
}

inline SystemInfo SampleSystem() {
    SystemInfo system;
    system.systemName.Set("Recorder");
    system.unitNumber.Set("0042");
    return system;
}

inline VideoRecordingSettings SampleRecordingSettings() {
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    settings.postEventSeconds.Set(0xFFFF);
    settings.resolution.Set(0x0102);
    settings.frameRate.Set(25);
    settings.recordAudio.Set(true);
    return settings;
}

inline ExternalMgrApi::StreamingLvsStateItem SampleStream() {
    ExternalMgrApi::StreamingLvsStateItem stream;
    stream.SetEnabled(true);
    stream.SetHighQuality(false);
    stream.SetCamera(0x0102);
    stream.SetAddress("192.168.1.20");
    stream.SetPort(554);
    return stream;
}

}  // namespace itemtest
