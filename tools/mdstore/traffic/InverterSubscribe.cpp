// Subscription: every server served the items it reported when the process subscribed.
#include <cstdint>
#include <memory>
#include <string>

#include "ConfigItems.h"
#include "Item.h"
#include "RecordSchema.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"
#include "traffic/Inverter.h"

namespace traffic {

const char* const kConfigRoles[] = {"ConfigMgr"};
const unsigned int kConfigItems[] = {10, 7, 11, 12, 13};
const std::uint8_t kConfigOps[] = {mdj::kOpReportVehicleInfo, mdj::kOpReportSystemInfo,
                                   mdj::kOpReportDepartmentInfo, mdj::kOpReportOfficerInfo,
                                   mdj::kOpReportVideoRecordingSettings};

// One configuration record as the item it was reported from.
std::unique_ptr<Item> ConfigItem(const Rec& rec) {
    switch (rec.op) {
        case mdj::kOpReportVehicleInfo: {
            std::unique_ptr<VehicleInfo> item(new VehicleInfo);
            item->vehicleId.Set(rec.T(0));
            item->licensePlate.Set(rec.T(1));
            item->description.Set(rec.T(2));
            return item;
        }
        case mdj::kOpReportSystemInfo: {
            std::unique_ptr<SystemInfo> item(new SystemInfo);
            item->systemName.Set(rec.T(0));
            item->unitNumber.Set(rec.T(1));
            return item;
        }
        case mdj::kOpReportDepartmentInfo: {
            std::unique_ptr<DepartmentInfo> item(new DepartmentInfo);
            item->departmentId.Set(rec.T(0));
            item->name.Set(rec.T(1));
            return item;
        }
        case mdj::kOpReportOfficerInfo: {
            std::unique_ptr<Officer> item(new Officer);
            item->officerId.Set(rec.T(0));
            item->name.Set(rec.T(1));
            return item;
        }
        default: {
            std::unique_ptr<VideoRecordingSettings> item(new VideoRecordingSettings);
            item->preEventSeconds.Set(static_cast<unsigned short>(rec.U(0)));
            item->postEventSeconds.Set(static_cast<unsigned short>(rec.U(1)));
            item->resolution.Set(static_cast<unsigned short>(rec.U(2)));
            item->frameRate.Set(static_cast<unsigned short>(rec.U(3)));
            item->recordAudio.Set(rec.U(4) != 0);
            return item;
        }
    }
}

// Four fields per stream, then the tick.
VideoMgrStreamQualityItem StreamQualityItem(const Rec& rec) {
    VideoMgrStreamQualityItem item;
    for (unsigned int s = 0; s < VideoMgrStreamQualityItem::kStreams; ++s) {
        item.streams[s].quality = rec.U(4 * s);
        item.streams[s].bitRateKbps = rec.U(4 * s + 1);
        item.streams[s].frameRate = static_cast<unsigned short>(rec.U(4 * s + 2));
        item.streams[s].resolution = static_cast<unsigned short>(rec.U(4 * s + 3));
    }
    item.tick = rec.U(16);
    return item;
}

std::size_t ConfigIndex(std::uint8_t op) {
    for (std::size_t i = 0; i < 5; ++i) {
        if (kConfigOps[i] == op) {
            return i;
        }
    }
    return 5;
}

std::size_t Inverter::Config(std::size_t k, bool flag, bool serve) {
    if (serve) {
        // All five or none: the process reports them only when all five subscriptions held.
        bool all = true;
        for (std::size_t i = 0; i < 5; ++i) {
            all = all && Is(k + i, kConfigOps[i], false);
        }
        for (std::size_t i = 0; i < 5; ++i) {
            Rec none;
            none.op = kConfigOps[i];
            std::unique_ptr<Item> item = ConfigItem(all ? recs_[k + i] : none);
            out_.Serve(kConfigRoles[0], kConfigItems[i], 13492 + static_cast<unsigned>(i), *item);
        }
        return all ? 5 : 0;
    }
    const std::size_t index = recs_.Has(k) ? ConfigIndex(recs_[k].op) : 5;
    if (index == 5 || recs_[k].v.flag != flag) {
        return 0;
    }
    out_.Sent(kConfigRoles[0], 13492 + static_cast<unsigned>(index),
              Encoded(*ConfigItem(recs_[k])));
    return 1;
}

void Inverter::InputsAt(std::size_t k, std::size_t count, FpgaExternalEventItem& item) const {
    for (std::size_t i = k; i < k + count; ++i) {
        const Input& input = kInputs[InputIndex(recs_[i].U(0))];
        item.changedMask |= input.bit;
        if (recs_[i].U(0) == input.on) {
            item.inputLevels |= input.bit;
        } else {
            item.inputLevels &= ~input.bit;
        }
        item.tick = recs_[i].U(1);
    }
}

// State, then position and speed with a fix, or the speed marked invalid without one.
std::size_t Inverter::Gps(std::size_t k, bool flag, GpsStatusItem& item) {
    if (!Is(k, mdj::kOpReportGpsState, flag)) {
        return 0;
    }
    if (recs_[k].U(0) == 0) {
        if (!Is(k + 1, mdj::kOpReportValidSpeed, false) || recs_[k + 1].U(0) != 1) {
            return 0;
        }
        item.fixStatus = 0;
        return 2;
    }
    if (!Is(k + 1, mdj::kOpReportGps, flag) || !Is(k + 2, mdj::kOpReportSpeed, flag) ||
        recs_[k + 2].U(0) != 1) {
        return 0;
    }
    const Rec& gps = recs_[k + 1];
    item.latDegrees = static_cast<unsigned short>(gps.U(0));
    item.latMinutes = static_cast<unsigned short>(gps.U(1));
    item.latMinuteFraction = gps.U(2);
    item.latHemisphere = static_cast<int>(gps.U(3));
    item.lonDegrees = static_cast<unsigned short>(gps.U(4));
    item.lonMinutes = static_cast<unsigned short>(gps.U(5));
    item.lonMinuteFraction = gps.U(6);
    item.lonHemisphere = static_cast<int>(gps.U(7));
    item.altitude = static_cast<int>(gps.U(8));
    item.speed = static_cast<unsigned short>(gps.U(9));
    item.heading = static_cast<unsigned short>(gps.U(10));
    item.magneticVariation = static_cast<unsigned short>(gps.U(11));
    item.satellitesInView = static_cast<unsigned short>(gps.U(12));
    item.fixStatus = gps.U(13);
    item.fixMode = static_cast<int>(gps.U(14));
    item.hdop = static_cast<int>(gps.U(15));
    item.satellitesUsed = static_cast<int>(gps.U(16));
    item.geoidSeparation = static_cast<int>(gps.U(17));
    item.utcTime = gps.U(18);
    item.dataValid = static_cast<unsigned char>(gps.U(19));
    item.tick = gps.U(20);
    // The handler stamps both with the item's tick and stores the speed in whole units.
    const Rec& speed = recs_[k + 2];
    if (gps.U(21) != item.tick || speed.U(2) != item.tick || speed.U(1) != item.speed / 10u ||
        item.fixStatus == 0 || item.fixStatus == 7) {
        // Not as the handler writes it (the simulator's are so): the closest notice keeps
        // the state, the speed sample and their tick, and only the position record differs.
        Lost(k + 1, "not invertible (GPS position without a fix, or with another tick or speed)");
        item.fixStatus = item.fixStatus == 0 || item.fixStatus == 7 ? 1 : item.fixStatus;
        item.speed = static_cast<unsigned short>(speed.U(1) * 10u);
        item.tick = speed.U(2);
    }
    return 3;
}

std::size_t Inverter::Radar(std::size_t k, bool flag, RadarItem& item) {
    if (!Is(k, mdj::kOpReportRadarState, flag)) {
        return 0;
    }
    if (recs_[k].U(1) == 0) {
        if (!Is(k + 1, mdj::kOpReportValidSpeed, false) || recs_[k + 1].U(0) != 2) {
            return 0;
        }
        item.status = RadarItem::kStatusInvalid;
        return 2;
    }
    if (!Is(k + 1, mdj::kOpReportRadar, flag)) {
        return 0;
    }
    const Rec& radar = recs_[k + 1];
    item.status = 0;
    item.targetSpeed = static_cast<unsigned short>(radar.U(1));
    item.fastestSpeed = static_cast<unsigned short>(radar.U(2));
    item.lockedSpeed = static_cast<unsigned short>(radar.U(3));
    item.tick = radar.U(5);
    if (!Is(k + 2, mdj::kOpReportSpeed, flag) || recs_[k + 2].U(0) != 2 ||
        recs_[k + 2].U(2) != item.tick) {
        Lost(k + 1, "not invertible (a radar reading without its speed sample)");
        return 2;
    }
    item.patrolSpeed = static_cast<unsigned short>(recs_[k + 2].U(1));
    return 3;
}

// Present and active of each microphone, in pairs with one tick.
std::size_t Inverter::Mics(std::size_t k, bool flag, MicStatusResponse& item) const {
    std::size_t i = k;
    while (Is(i, mdj::kOpReportMicPresent, flag) && Is(i + 1, mdj::kOpReportMicState, flag) &&
           recs_[i].U(0) == recs_[i + 1].U(0) && recs_[i].U(2) == recs_[i + 1].U(2) &&
           (i == k || recs_[i].U(2) == item.tick) &&
           item.Add(static_cast<e_MicrophonePosition>(recs_[i].U(0)), recs_[i].U(1) != 0,
                    recs_[i + 1].U(1) != 0)) {
        item.tick = recs_[i].U(2);
        i += 2;
    }
    return i - k;
}

// Sensors 3, 0, 1, 2 with one tick; the item holds them in the order 3, 2, 1, 0.
std::size_t Inverter::Temps(std::size_t k, bool flag, TempStatus& item) const {
    static const unsigned int kOrder[] = {3, 0, 1, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        if (!Is(k + i, mdj::kOpReportTemp, flag) || recs_[k + i].U(0) != kOrder[i] ||
            recs_[k + i].U(2) != recs_[k].U(2)) {
            return 0;
        }
        item.temperatures[3 - kOrder[i]] = static_cast<short>(recs_[k + i].v.n[1]);
    }
    item.tick = recs_[k].U(2);
    return 4;
}

void Inverter::Subscribe() {
    std::size_t k = Config(0, false, true);
    FpgaExternalEventItem fpga;
    std::size_t inputs = 0;
    while (inputs < 6 && Is(k + inputs, mdj::kOpReportStateData, false) &&
           InputIndex(recs_[k + inputs].U(0)) == static_cast<int>(inputs)) {
        ++inputs;
    }
    if (inputs == 6) {
        InputsAt(k, 6, fpga);
        fpga.changedMask = 0;
        levels_ = fpga.inputLevels;
        k += 6;
    }
    out_.Serve("FpgaHal", 17, 13497, fpga);
    GpsStatusItem gps;
    k += Gps(k, false, gps);
    out_.Serve("GpsHal", 1, 13504, gps);
    for (unsigned int item = 1; item <= 4; ++item) {
        out_.Serve("StateMgr", item, 13504 + item, SystickItem(0));
    }
    RadarItem radar;
    radar.status = RadarItem::kStatusInvalid;
    k += Radar(k, false, radar);
    out_.Serve("RadarHal", 1, 13510, radar);
    MicStatusResponse mics;
    k += Mics(k, false, mics);
    out_.Serve("MicMgr", 0, 13511, mics);
    VideoMgrCameraItem camera;
    std::size_t ports = 0;
    while (ports < 4 && Is(k + ports, mdj::kOpReportCameraState, false) &&
           recs_[k + ports].U(0) == ports) {
        camera.cameraState[ports] = static_cast<e_CameraState>(recs_[k + ports].U(1));
        camera.tick = recs_[k + ports].U(2);
        ++ports;
    }
    VideoMgrStreamQualityItem quality;
    if (ports == 4 && Is(k + 4, mdj::kOpReportStreamQualityItem, false)) {
        quality = StreamQualityItem(recs_[k + 4]);
        k += 5;
    }
    out_.Serve("VideoMgr", 0, 13513, camera);
    out_.Serve("VideoMgr", 1, 13514, quality);
    CrashItem crash;
    if (Is(k, mdj::kOpReportStateData, true) &&
        (recs_[k].U(0) == e_Tag_CrashDetected || recs_[k].U(0) == e_Tag_CrashCleared)) {
        crash.crash = recs_[k].U(0) == e_Tag_CrashDetected;
        crash.tick = recs_[k].U(1);
        ++k;
    }
    out_.Serve("AccelHal", 1, 13512, crash);
    TempStatus temp;
    k += Temps(k, false, temp);
    out_.Serve("TempHal", 0, 13515, temp);
    for (unsigned int stream = 0; stream < 6; ++stream) {
        out_.Serve("ExternalMgr", 16 + stream, 18952 + stream,
                   ExternalMgrApi::StreamingLvsStateItem());
    }
    // A recording already running when the process came up.
    std::string reid;
    if (Is(k, mdj::kOpReportStateData, false) && recs_[k].U(0) == e_Tag_RecordingStarted &&
        recs_[k].U(1) == 0) {
        reid = "replayed";
        ++k;
    }
    out_.Recv("StreamMgr", 14100);
    Bytes text(reid.begin(), reid.end());
    text.push_back(0);
    out_.Sent("StreamMgr", 14101, text);
    next_ = k;
}

}  // namespace traffic
