// The metadata store: every report becomes a record in the metadata files kept beside the
// recorded video. Report results are informational; callers may ignore them.
#pragma once

#include <memory>
#include <string>

#include "ConfigItems.h"
#include "HalItems.h"
#include "PlatformTypes.h"
#include "VideoMgrItems.h"

class DataStore {
public:
    virtual ~DataStore();

    virtual bool Open() = 0;
    virtual void Close() = 0;

    // The system tick moves on; the store flushes on its own schedule of ticks.
    virtual void TimerTick(unsigned int tick) = 0;
    // The tick the store holds as current (the last one given to TimerTick).
    virtual unsigned int GetCurrentSystemTick() const = 0;

    // Records whether the previous run ended with ReportShutdownData.
    virtual bool ReportShutdownDataAtStartup() = 0;
    virtual bool ReportShutdownData() = 0;
    // Writes the current value of every state as one snapshot record.
    virtual bool WriteFullState(bool force) = 0;

    virtual bool ReportMac(unsigned char* mac, bool report) = 0;  // 6 bytes
    virtual bool ReportSystemSerialNum(const std::string& serial) = 0;
    virtual bool ReportVersion(e_COMPONENT component, const char* version) = 0;
    virtual bool ReportConfiguration(bool report) = 0;
    virtual bool ReportStringData(e_Tag tag, const char* text) = 0;
    virtual bool ReportStateData(e_Tag tag, bool report, unsigned int tick) = 0;
    virtual bool ReportBookmark(unsigned int tick) = 0;

    virtual bool ReportGpsState(bool valid, bool report) = 0;
    virtual bool ReportGps(const GpsStatusItem& gps, unsigned int tick, bool report) = 0;
    virtual bool ReportValidSpeed(unsigned char source, bool valid) = 0;
    virtual bool ReportSpeed(unsigned char source, unsigned short speed, bool report,
                             unsigned int tick, e_Tag tag) = 0;
    virtual bool ReportRadarState(unsigned char radar, bool valid, bool report) = 0;
    virtual bool ReportRadar(unsigned char radar, unsigned short speedA, unsigned short speedB,
                             unsigned short speedC, e_RADAR_DIRECTION direction, bool report,
                             unsigned int tick, e_Tag tag) = 0;

    virtual bool ReportMicPresent(e_MicrophonePosition mic, bool present, bool report,
                                  unsigned int tick) = 0;
    virtual bool ReportMicState(e_MicrophonePosition mic, bool active, bool report,
                                unsigned int tick) = 0;
    virtual bool ReportTemp(e_TempSensors sensor, short value, bool report, unsigned int tick) = 0;

    virtual bool ReportVideoStreamState(e_VideoStream stream, e_StreamState state, bool report,
                                        unsigned int tick) = 0;
    virtual bool ReportCameraState(e_CameraPort port, e_CameraState state, bool report,
                                   unsigned int tick) = 0;
    virtual bool ReportStreamQualityItem(VideoMgrStreamQualityItem& item, bool report) = 0;
    virtual bool ReportLvsState(e_VideoStream stream, unsigned char camera, bool highQuality,
                                bool enabled, unsigned int address, unsigned short port,
                                bool report, unsigned int tick) = 0;

    virtual bool ReportVehicleInfo(const VehicleInfo& info, bool report) = 0;
    virtual bool ReportSystemInfo(const SystemInfo& info, bool report) = 0;
    virtual bool ReportDepartmentInfo(const DepartmentInfo& info, bool report) = 0;
    virtual bool ReportOfficerInfo(const Officer& officer, bool report) = 0;
    virtual bool ReportVideoRecordingSettings(const VideoRecordingSettings& settings,
                                              bool report) = 0;
};

class DataStoreJournal;

// The store as the vehicle runs it: an append-only journal of segments beside `basePath`.
class DataStoreNormal : public DataStore {
public:
    explicit DataStoreNormal(const std::string& basePath);
    ~DataStoreNormal() override;
    DataStoreNormal(const DataStoreNormal&) = delete;
    DataStoreNormal& operator=(const DataStoreNormal&) = delete;

    bool Open() override;
    void Close() override;
    void TimerTick(unsigned int tick) override;
    unsigned int GetCurrentSystemTick() const override;
    bool ReportShutdownDataAtStartup() override;
    bool ReportShutdownData() override;
    bool WriteFullState(bool force) override;
    bool ReportMac(unsigned char* mac, bool report) override;
    bool ReportSystemSerialNum(const std::string& serial) override;
    bool ReportVersion(e_COMPONENT component, const char* version) override;
    bool ReportConfiguration(bool report) override;
    bool ReportStringData(e_Tag tag, const char* text) override;
    bool ReportStateData(e_Tag tag, bool report, unsigned int tick) override;
    bool ReportBookmark(unsigned int tick) override;
    bool ReportGpsState(bool valid, bool report) override;
    bool ReportGps(const GpsStatusItem& gps, unsigned int tick, bool report) override;
    bool ReportValidSpeed(unsigned char source, bool valid) override;
    bool ReportSpeed(unsigned char source, unsigned short speed, bool report, unsigned int tick,
                     e_Tag tag) override;
    bool ReportRadarState(unsigned char radar, bool valid, bool report) override;
    bool ReportRadar(unsigned char radar, unsigned short speedA, unsigned short speedB,
                     unsigned short speedC, e_RADAR_DIRECTION direction, bool report,
                     unsigned int tick, e_Tag tag) override;
    bool ReportMicPresent(e_MicrophonePosition mic, bool present, bool report,
                          unsigned int tick) override;
    bool ReportMicState(e_MicrophonePosition mic, bool active, bool report,
                        unsigned int tick) override;
    bool ReportTemp(e_TempSensors sensor, short value, bool report, unsigned int tick) override;
    bool ReportVideoStreamState(e_VideoStream stream, e_StreamState state, bool report,
                                unsigned int tick) override;
    bool ReportCameraState(e_CameraPort port, e_CameraState state, bool report,
                           unsigned int tick) override;
    bool ReportStreamQualityItem(VideoMgrStreamQualityItem& item, bool report) override;
    bool ReportLvsState(e_VideoStream stream, unsigned char camera, bool highQuality, bool enabled,
                        unsigned int address, unsigned short port, bool report,
                        unsigned int tick) override;
    bool ReportVehicleInfo(const VehicleInfo& info, bool report) override;
    bool ReportSystemInfo(const SystemInfo& info, bool report) override;
    bool ReportDepartmentInfo(const DepartmentInfo& info, bool report) override;
    bool ReportOfficerInfo(const Officer& officer, bool report) override;
    bool ReportVideoRecordingSettings(const VideoRecordingSettings& settings, bool report) override;

private:
    std::unique_ptr<DataStoreJournal> journal_;
};
