// GPS and radar readings: the store gets the source's state, the position or radar speeds and a
// vehicle speed sample; the shared record gets the raw fields for processes that only look.
#include "Handler.h"
#include "MetadataMgr.h"
#include "SharedRecord.h"

namespace {
// Speed sources of the store.
const unsigned char kSpeedFromGps = 1;
const unsigned char kSpeedFromRadar = 2;
// The vehicle carries one radar.
const unsigned char kRadar = 1;

bool HasFix(unsigned int fixStatus) {
    return fixStatus != 0 && fixStatus != 7;
}

void WriteGps(unsigned char* record, const GpsStatusItem& gps) {
    shared::Put(record, shared::kGpsDataValid, gps.dataValid);
    shared::PutPosition(record, gps, gps.lonMinutes);
    shared::Put(record, shared::kHeading, gps.heading);
    shared::Put(record, shared::kSatellitesInView, gps.satellitesInView);
    shared::Put(record, shared::kFixStatus, gps.fixStatus);
    shared::Put(record, shared::kFixMode, gps.fixMode);
    shared::Put(record, shared::kHdop, gps.hdop);
    shared::Put(record, shared::kSatellitesUsed, gps.satellitesUsed);
    shared::Put(record, shared::kGeoidSeparation, gps.geoidSeparation);
    shared::Put(record, shared::kSpeed, gps.speed);
    shared::Put(record, shared::kMagneticVariation, gps.magneticVariation);
    shared::Put(record, shared::kUtcTime, gps.utcTime);
    shared::Put(record, shared::kAltitude, gps.altitude);
}

void WriteRadar(unsigned char* record, const RadarItem& radar) {
    shared::Put(record, shared::kRadarStatus, radar.status);
    shared::Put(record, shared::kRadarPatrolSpeed, radar.patrolSpeed);
    shared::Put(record, shared::kRadarTargetSpeed, radar.targetSpeed);
    shared::Put(record, shared::kRadarFastestSpeed, radar.fastestSpeed);
    shared::Put(record, shared::kRadarLockedSpeed, radar.lockedSpeed);
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
