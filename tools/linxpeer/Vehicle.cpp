#include "Vehicle.h"

namespace vehicle {

namespace {

// Item ids and classes per server as the metadata manager subscribes to them; values are
// those of a parked patrol car with a GPS fix, ignition on and nothing recording, each
// stamped with the tick at which the vehicle starts serving it.
const char* const kSetup[] = {
    "statemgr flag=1 fullrun=1",
    "streammgr",
    "serve ConfigMgr 10 VehicleInfo vehicleId=UNIT-7 licensePlate=\"KV 1234\" "
    "description=\"Patrol car 7\"",
    "serve ConfigMgr 7 SystemInfo systemName=Korvane unitNumber=7",
    "serve ConfigMgr 11 DepartmentInfo departmentId=D-12 name=\"Metro Police\"",
    "serve ConfigMgr 12 Officer officerId=4711 name=\"J. Smith\"",
    "serve ConfigMgr 13 VideoRecordingSettings preEventSeconds=30 postEventSeconds=60 "
    "resolution=1080 frameRate=30 recordAudio=1",
    "serve FpgaHal 17 FpgaExternalEventItem changedMask=0 inputLevels=0x2000 tick=now",
    "serve GpsHal 1 GpsStatusItem latDegrees=59 latMinutes=19 latMinuteFraction=5000 "
    "latHemisphere=1 lonDegrees=18 lonMinutes=4 lonMinuteFraction=2500 lonHemisphere=1 "
    "altitude=28 speed=0 heading=90 satellitesInView=9 fixStatus=1 fixMode=3 hdop=1 "
    "satellitesUsed=7 dataValid=1 tick=now",
    "serve RadarHal 1 RadarItem status=0x80 tick=now",
    "serve MicMgr 0 MicStatusResponse mics=0:1:0,1:1:0 tick=now",
    "serve AccelHal 1 CrashItem crash=0 tick=now",
    "serve VideoMgr 0 VideoMgrCameraItem camera0=3 camera1=3 camera2=0 camera3=0 tick=now",
    "serve VideoMgr 1 VideoMgrStreamQualityItem quality0=1 bitRateKbps0=4000 frameRate0=30 "
    "resolution0=1080 tick=now",
    "serve TempHal 0 TempStatus temperature0=35 temperature1=38 temperature2=41 temperature3=22 "
    "tick=now",
    "serve ExternalMgr 16 StreamingLvsStateItem",
    "serve ExternalMgr 17 StreamingLvsStateItem",
    "serve ExternalMgr 18 StreamingLvsStateItem",
    "serve ExternalMgr 19 StreamingLvsStateItem",
    "serve ExternalMgr 20 StreamingLvsStateItem",
    "serve ExternalMgr 21 StreamingLvsStateItem",
};

}  // namespace

bool AddSetup(Scenario& scenario) {
    int line = 0;
    for (const char* text : kSetup) {
        if (!scenario.AddLine(text, "vehicle", ++line)) {
            return false;
        }
    }
    return true;
}

}  // namespace vehicle
