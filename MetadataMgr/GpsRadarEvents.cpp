// GPS and radar readings: the store gets the source's state, the position or radar speeds and a
// vehicle speed sample; the shared record gets the raw fields for processes that only look.
#include <cstring>

#include "Handler.h"
#include "MetadataMgr.h"

namespace {
// Speed sources of the store.
const unsigned char kSpeedFromGps = 1;
const unsigned char kSpeedFromRadar = 2;
// The vehicle carries one radar.
const unsigned char kRadar = 1;

// Offsets in the shared record; other processes read this layout.
namespace shared {
const unsigned int kGpsDataValid = 0x04;
const unsigned int kLatHemisphere = 0x08;
const unsigned int kLatDegrees = 0x0C;
const unsigned int kLatMinutes = 0x10;
const unsigned int kLatMinuteFraction = 0x14;
const unsigned int kLonHemisphere = 0x18;
const unsigned int kLonDegrees = 0x1C;
const unsigned int kLonMinutes = 0x20;
const unsigned int kLonMinuteFraction = 0x24;
const unsigned int kHeading = 0x28;
const unsigned int kSatellitesInView = 0x2A;
const unsigned int kFixStatus = 0x2C;
const unsigned int kFixMode = 0x30;
const unsigned int kHdop = 0x34;
const unsigned int kSatellitesUsed = 0x38;
const unsigned int kGeoidSeparation = 0x3C;
const unsigned int kSpeed = 0x40;
const unsigned int kMagneticVariation = 0x42;
const unsigned int kUtcTime = 0x44;
const unsigned int kAltitude = 0x48;
const unsigned int kRadarStatus = 0x4C;
const unsigned int kRadarPatrolSpeed = 0x4E;
const unsigned int kRadarTargetSpeed = 0x50;
const unsigned int kRadarFastestSpeed = 0x52;
const unsigned int kRadarLockedSpeed = 0x54;
}  // namespace shared

template <typename T>
void Put(unsigned char* record, unsigned int offset, T value) {
    std::memcpy(record + offset, &value, sizeof value);
}

bool HasFix(unsigned int fixStatus) {
    return fixStatus != 0 && fixStatus != 7;
}

void WriteGps(unsigned char* record, const GpsStatusItem& gps) {
    Put<unsigned char>(record, shared::kGpsDataValid, gps.dataValid);
    Put<char>(record, shared::kLatHemisphere, gps.latHemisphere == 1 ? 'N' : 'S');
    Put<unsigned int>(record, shared::kLatDegrees, gps.latDegrees);
    Put<unsigned short>(record, shared::kLatMinutes, gps.latMinutes);
    Put<unsigned int>(record, shared::kLatMinuteFraction, gps.latMinuteFraction);
    Put<char>(record, shared::kLonHemisphere, gps.lonHemisphere == 1 ? 'E' : 'W');
    Put<unsigned int>(record, shared::kLonDegrees, gps.lonDegrees);
    Put<unsigned short>(record, shared::kLonMinutes, gps.lonMinutes);
    Put<unsigned int>(record, shared::kLonMinuteFraction, gps.lonMinuteFraction);
    Put<unsigned short>(record, shared::kHeading, gps.heading);
    Put<unsigned short>(record, shared::kSatellitesInView, gps.satellitesInView);
    Put<unsigned int>(record, shared::kFixStatus, gps.fixStatus);
    Put<int>(record, shared::kFixMode, gps.fixMode);
    Put<int>(record, shared::kHdop, gps.hdop);
    Put<int>(record, shared::kSatellitesUsed, gps.satellitesUsed);
    Put<int>(record, shared::kGeoidSeparation, gps.geoidSeparation);
    Put<unsigned short>(record, shared::kSpeed, gps.speed);
    Put<unsigned short>(record, shared::kMagneticVariation, gps.magneticVariation);
    Put<unsigned int>(record, shared::kUtcTime, gps.utcTime);
    Put<int>(record, shared::kAltitude, gps.altitude);
}

void WriteRadar(unsigned char* record, const RadarItem& radar) {
    Put<unsigned short>(record, shared::kRadarStatus, radar.status);
    Put<unsigned short>(record, shared::kRadarPatrolSpeed, radar.patrolSpeed);
    Put<unsigned short>(record, shared::kRadarTargetSpeed, radar.targetSpeed);
    Put<unsigned short>(record, shared::kRadarFastestSpeed, radar.fastestSpeed);
    Put<unsigned short>(record, shared::kRadarLockedSpeed, radar.lockedSpeed);
}
}  // namespace

void MetadataMgr::ReportGpsStatus(const GpsStatusItem& item, bool report) {
    MM_LOG(128) << "Add in SystemTick to GpsStatusItem - tick = " << item.tick;
    if (!HasFix(item.fixStatus)) {
        dataStore.ReportGpsState(false, report);
        dataStore.ReportValidSpeed(kSpeedFromGps, false);
    } else {
        dataStore.ReportGpsState(true, report);
        dataStore.ReportGps(item, item.tick, report);
        // The GPS gives tenths; the store keeps whole units.
        dataStore.ReportSpeed(kSpeedFromGps, static_cast<unsigned short>(item.speed / 10), report,
                              item.tick, e_Tag_None);
    }
    // Readers of the shared record want the latest reading even without a fix.
    unsigned char* record = sharedMem.MetadataItems(true);
    if (record != nullptr) {
        WriteGps(record, item);
    }
}

void MetadataMgr::ReportRadarEvent(const RadarItem& item, bool report) {
    MM_LOG(128) << "Add in SystemTick to RadarItem - tick = " << item.tick;
    if ((item.status & RadarItem::kStatusInvalid) != 0) {
        dataStore.ReportRadarState(kRadar, false, report);
        dataStore.ReportValidSpeed(kSpeedFromRadar, false);
    } else {
        dataStore.ReportRadarState(kRadar, true, report);
        dataStore.ReportRadar(kRadar, item.targetSpeed, item.fastestSpeed, item.lockedSpeed,
                              e_RADAR_DIRECTION_None, report, item.tick, e_Tag_None);
        dataStore.ReportSpeed(kSpeedFromRadar, item.patrolSpeed, report, item.tick, e_Tag_None);
    }
    unsigned char* record = sharedMem.MetadataItems(true);
    if (record != nullptr) {
        WriteRadar(record, item);
    }
}

void MetadataMgr::GpsStatusEventHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("GpsStatusEventHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        GpsStatusItem item;
                        if (!payload::DecodeFromMessage(msg, item)) {
                            return false;
                        }
                        mgr.ReportGpsStatus(item, true);
                        return true;
                    });
}

void MetadataMgr::RadarEventHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("RadarEventHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        RadarItem item;
                        if (!payload::DecodeFromMessage(msg, item)) {
                            return false;
                        }
                        mgr.ReportRadarEvent(item, true);
                        return true;
                    });
}
