// Every report becomes one record: its arguments in call order (see RecordSchema.cpp).
#include "DataStore.h"

#include <cstring>

#include "BigEndian.h"
#include "DataStoreJournal.h"
#include "ItemCodec.h"
#include "RecordSchema.h"

DataStore::~DataStore() = default;

namespace {

// Encodes one record's body with `fill` into the journal's scratch buffer and appends it.
template <typename Fill>
bool Record(DataStoreJournal& journal, std::uint8_t op, Fill fill) {
    if (!journal.IsOpen()) {
        return false;
    }
    mdj::BodyWriter body(journal.Scratch(), DataStoreJournal::kScratchBytes);
    fill(body);
    return body.Ok() && journal.Append(op, journal.Scratch(), body.Size());
}

}  // namespace

DataStoreNormal::DataStoreNormal(const std::string& basePath)
    : journal_(new DataStoreJournal(basePath)) {}

DataStoreNormal::~DataStoreNormal() = default;

bool DataStoreNormal::Open() {
    return journal_->Open();
}

void DataStoreNormal::Close() {
    journal_->Close();
}

void DataStoreNormal::TimerTick(unsigned int tick) {
    journal_->TimerTick(tick);
}

unsigned int DataStoreNormal::GetCurrentSystemTick() const {
    return journal_->CurrentTick();
}

bool DataStoreNormal::ReportShutdownDataAtStartup() {
    return journal_->ReportStartup();
}

bool DataStoreNormal::ReportShutdownData() {
    return Record(*journal_, mdj::kOpReportShutdownData, [](mdj::BodyWriter&) {});
}

bool DataStoreNormal::WriteFullState(bool force) {
    return journal_->WriteFullState(force);
}

bool DataStoreNormal::ReportMac(unsigned char* mac, bool report) {
    if (mac == nullptr) {
        return false;
    }
    return Record(*journal_, mdj::kOpReportMac, [&](mdj::BodyWriter& b) {
        b.Bytes(mac, 6);
        b.Bool(report);
    });
}

bool DataStoreNormal::ReportSystemSerialNum(const std::string& serial) {
    return Record(*journal_, mdj::kOpReportSystemSerialNum,
                  [&](mdj::BodyWriter& b) { b.Text(serial.c_str()); });
}

bool DataStoreNormal::ReportVersion(e_COMPONENT component, const char* version) {
    return Record(*journal_, mdj::kOpReportVersion, [&](mdj::BodyWriter& b) {
        b.U32(component);
        b.Text(version);
    });
}

bool DataStoreNormal::ReportConfiguration(bool report) {
    return Record(*journal_, mdj::kOpReportConfiguration,
                  [&](mdj::BodyWriter& b) { b.Bool(report); });
}

bool DataStoreNormal::ReportStringData(e_Tag tag, const char* text) {
    return Record(*journal_, mdj::kOpReportStringData, [&](mdj::BodyWriter& b) {
        b.U32(tag);
        b.Text(text);
    });
}

bool DataStoreNormal::ReportStateData(e_Tag tag, bool report, unsigned int tick) {
    return Record(*journal_, mdj::kOpReportStateData, [&](mdj::BodyWriter& b) {
        b.U32(tag);
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportBookmark(unsigned int tick) {
    return Record(*journal_, mdj::kOpReportBookmark, [&](mdj::BodyWriter& b) { b.U32(tick); });
}

bool DataStoreNormal::ReportGpsState(bool valid, bool report) {
    return Record(*journal_, mdj::kOpReportGpsState, [&](mdj::BodyWriter& b) {
        b.Bool(valid);
        b.Bool(report);
    });
}

bool DataStoreNormal::ReportGps(const GpsStatusItem& gps, unsigned int tick, bool report) {
    return Record(*journal_, mdj::kOpReportGps, [&](mdj::BodyWriter& b) {
        mdj::PutItem(b, gps);
        b.U32(tick);
        b.Bool(report);
    });
}

bool DataStoreNormal::ReportValidSpeed(unsigned char source, bool valid) {
    return Record(*journal_, mdj::kOpReportValidSpeed, [&](mdj::BodyWriter& b) {
        b.U8(source);
        b.Bool(valid);
    });
}

bool DataStoreNormal::ReportSpeed(unsigned char source, unsigned short speed, bool report,
                                  unsigned int tick, e_Tag tag) {
    return Record(*journal_, mdj::kOpReportSpeed, [&](mdj::BodyWriter& b) {
        b.U8(source);
        b.U16(speed);
        b.Bool(report);
        b.U32(tick);
        b.U32(tag);
    });
}

bool DataStoreNormal::ReportRadarState(unsigned char radar, bool valid, bool report) {
    return Record(*journal_, mdj::kOpReportRadarState, [&](mdj::BodyWriter& b) {
        b.U8(radar);
        b.Bool(valid);
        b.Bool(report);
    });
}

bool DataStoreNormal::ReportRadar(unsigned char radar, unsigned short speedA, unsigned short speedB,
                                  unsigned short speedC, e_RADAR_DIRECTION direction, bool report,
                                  unsigned int tick, e_Tag tag) {
    return Record(*journal_, mdj::kOpReportRadar, [&](mdj::BodyWriter& b) {
        b.U8(radar);
        b.U16(speedA);
        b.U16(speedB);
        b.U16(speedC);
        b.U32(direction);
        b.Bool(report);
        b.U32(tick);
        b.U32(tag);
    });
}

bool DataStoreNormal::ReportMicPresent(e_MicrophonePosition mic, bool present, bool report,
                                       unsigned int tick) {
    return Record(*journal_, mdj::kOpReportMicPresent, [&](mdj::BodyWriter& b) {
        b.U32(mic);
        b.Bool(present);
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportMicState(e_MicrophonePosition mic, bool active, bool report,
                                     unsigned int tick) {
    return Record(*journal_, mdj::kOpReportMicState, [&](mdj::BodyWriter& b) {
        b.U32(mic);
        b.Bool(active);
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportTemp(e_TempSensors sensor, short value, bool report,
                                 unsigned int tick) {
    return Record(*journal_, mdj::kOpReportTemp, [&](mdj::BodyWriter& b) {
        b.U32(sensor);
        b.U16(static_cast<std::uint16_t>(value));
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportVideoStreamState(e_VideoStream stream, e_StreamState state, bool report,
                                             unsigned int tick) {
    return Record(*journal_, mdj::kOpReportVideoStreamState, [&](mdj::BodyWriter& b) {
        b.U32(stream);
        b.U32(state);
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportCameraState(e_CameraPort port, e_CameraState state, bool report,
                                        unsigned int tick) {
    return Record(*journal_, mdj::kOpReportCameraState, [&](mdj::BodyWriter& b) {
        b.U32(port);
        b.U32(state);
        b.Bool(report);
        b.U32(tick);
    });
}

bool DataStoreNormal::ReportStreamQualityItem(VideoMgrStreamQualityItem& item, bool report) {
    return Record(*journal_, mdj::kOpReportStreamQualityItem, [&](mdj::BodyWriter& b) {
        mdj::PutItem(b, item);
        b.Bool(report);
    });
}

bool DataStoreNormal::ReportLvsState(e_VideoStream stream, unsigned char camera, bool highQuality,
                                     bool enabled, unsigned int address, unsigned short port,
                                     bool report, unsigned int tick) {
    return Record(*journal_, mdj::kOpReportLvsState, [&](mdj::BodyWriter& b) {
        b.U32(stream);
        b.U8(camera);
        b.Bool(highQuality);
        b.Bool(enabled);
        // inet_addr's value is the address in network order in memory, whatever the
        // processor: stored as those bytes, it reads as the same address on any machine.
        unsigned char network[4];
        std::memcpy(network, &address, sizeof network);
        b.Bytes(network, sizeof network);
        b.U16(port);
        b.Bool(report);
        b.U32(tick);
    });
}

namespace {
template <typename ItemT>
bool ConfigRecord(DataStoreJournal& journal, std::uint8_t op, const ItemT& item, bool report) {
    return Record(journal, op, [&](mdj::BodyWriter& b) {
        mdj::PutItem(b, item);
        b.Bool(report);
    });
}
}  // namespace

bool DataStoreNormal::ReportVehicleInfo(const VehicleInfo& info, bool report) {
    return ConfigRecord(*journal_, mdj::kOpReportVehicleInfo, info, report);
}

bool DataStoreNormal::ReportSystemInfo(const SystemInfo& info, bool report) {
    return ConfigRecord(*journal_, mdj::kOpReportSystemInfo, info, report);
}

bool DataStoreNormal::ReportDepartmentInfo(const DepartmentInfo& info, bool report) {
    return ConfigRecord(*journal_, mdj::kOpReportDepartmentInfo, info, report);
}

bool DataStoreNormal::ReportOfficerInfo(const Officer& officer, bool report) {
    return ConfigRecord(*journal_, mdj::kOpReportOfficerInfo, officer, report);
}

bool DataStoreNormal::ReportVideoRecordingSettings(const VideoRecordingSettings& settings,
                                                   bool report) {
    return ConfigRecord(*journal_, mdj::kOpReportVideoRecordingSettings, settings, report);
}
