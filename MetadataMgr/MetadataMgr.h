// The metadata manager: collects the state of the vehicle system and hands every change,
// stamped with the sender's tick, to the metadata store.
//
// Where each operation lives:
//   Lifecycle.cpp        constructor, PreInit (request handler table), InitializeStore,
//                        Shutdown, Cleanup, destructor
//   Periodic.cpp         PeriodicProcessing, watchdog, last tick
//   Subscriptions.cpp    SubscribeToServers and the ten SubscribeTo... operations
//   ProcessEvents.cpp    ProcessDied, ProcessRestarted
//   RecordingEvents.cpp  record start/stop, covert mode, bookmark
//   InputEvents.cpp      FPGA inputs
//   GpsRadarEvents.cpp   GPS and radar, mirrored into the shared record
//   SharedRecord.h       the shared record's layout, for every writer of it
//   SensorEvents.cpp     microphones, temperatures, crash
//   VideoEvents.cpp      cameras, video streams, stream quality
//   StreamingEvents.cpp  live streaming
//   ConfigEvents.cpp     configuration records
//   Requests.cpp         ping, metadata to file, last system tick
//   Simulator.cpp        simulated metadata
#pragma once

#include <memory>
#include <string>

#include "ConfigItems.h"
#include "DataStore.h"
#include "ExternalMgrApi.h"
#include "HalItems.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "MetadataSharedMem.h"
#include "MicItems.h"
#include "ServerClients.h"
#include "Simulator.h"
#include "Systick.h"
#include "VideoMgrItems.h"
#include "Watchdog.h"

class MetadataMgrServer;

class MetadataMgr {
public:
    MetadataMgr();
    ~MetadataMgr();
    MetadataMgr(const MetadataMgr&) = delete;
    MetadataMgr& operator=(const MetadataMgr&) = delete;

    // Lifecycle
    bool PreInit(LinxIpc& ipc);
    void InitializeStore();
    void Shutdown(LinxIpc& ipc);
    void Cleanup();

    // Periodic work
    Watchdog& GetWatchdog();
    void PetWatchdog();
    void PeriodicProcessing();
    unsigned int GetLastSystemTick();

    // Subscriptions
    bool SubscribeToServers(LinxIpc& ipc, bool flag);
    bool SubscribeToConfigMgr(LinxIpc& ipc);
    bool SubscribeToFpga(LinxIpc& ipc);
    bool SubscribeToGpsHal(LinxIpc& ipc);
    bool SubscribeToStateMgr(LinxIpc& ipc);
    bool SubscribeToRadarHal(LinxIpc& ipc);
    bool SubscribeToMicMgr(LinxIpc& ipc);
    bool SubscribeToVideoMgr(LinxIpc& ipc);
    bool SubscribeToAccelHal(LinxIpc& ipc);
    bool SubscribeToTempHal(LinxIpc& ipc);
    bool SubscribeToExternalMgr(LinxIpc& ipc);

    // Death and restart of other processes
    void ProcessDied(LinxIpc& ipc, e_Process process);
    void ProcessRestarted(LinxIpc& ipc, e_Process process);

    // Recording, covert mode, bookmark
    void ReportRecordingEvent(bool recordStart, unsigned int tick, bool report);
    void ReportCovertModeEvent(bool enabled, unsigned int tick, bool report);
    void ReportBookmark(unsigned int tick);
    // Vehicle inputs
    void ReportExternalEvent(const FpgaExternalEventItem& item, bool report);
    // GPS and radar
    void ReportGpsStatus(const GpsStatusItem& item, bool report);
    void ReportRadarEvent(const RadarItem& item, bool report);
    // Microphones, temperatures, crash
    void ReportMicState(e_MicrophonePosition mic, bool present, bool active, unsigned int tick,
                        bool report);
    void ReportMicStatus(const MicStatusResponse& status, bool report);
    void ReportTempChange(const TempStatus& temp, bool report);
    void HandleCrash(bool crash, unsigned int tick);
    // Cameras and streams
    void ReportVideoStreamState(unsigned int stream, e_StreamState state, unsigned int tick,
                                bool report);
    void ReportCameraState(unsigned int camera, e_CameraState state, unsigned int tick,
                           bool report);
    void ReportCameraItem(VideoMgrCameraItem& item, bool report);
    void ReportStreamQualityItem(VideoMgrStreamQualityItem& item, bool report);
    // Live streaming
    void ReportLVSStateChange(const ExternalMgrApi::StreamingLvsStateItem& item, bool report,
                              int stream, unsigned int tick);
    // Configuration records
    void VehicleChanged(const VehicleInfo& info);
    void OfficerChanged(const Officer& officer);
    void DepartmentInfoChanged(const DepartmentInfo& info);
    void SystemInfoChanged(const SystemInfo& info);
    void VideoRecordingSettingsChanged(const VideoRecordingSettings& settings);

    // Simulated metadata (simulator mode)
    void SimulateData();
    // Replaces the simulator's time-seeded draw, for reproducible runs; null restores it.
    void SetSimulatorDraw(SimulatorDraw draw, void* context = nullptr) {
        simulator.draw = draw;
        simulator.drawContext = context;
    }
    // Tells `mark` of every pass of the simulator (a log of its draws); null stops it.
    void SetSimulatorPassMark(SimulatorPassMark mark, void* context) {
        simulator.passMark = mark;
        simulator.passContext = context;
    }

    // Handlers registered on the endpoint (PreInit) ...
    static void PingHandler(LinxIpc* ipc, void* context);
    static void MetadataToFileHandler(LinxIpc* ipc, void* context);
    static void GetLastSystemTickHandler(LinxIpc* ipc, void* context);
    static void VideoStreamStateChangeHandler(LinxIpc* ipc, void* context);
    static void CliCameraStateChangedHandler(LinxIpc* ipc, void* context);
    static void MicStateChangedHandler(LinxIpc* ipc, void* context);
    static void RecordStartStopHandler(LinxIpc* ipc, void* context);
    static void BookmarkHandler(LinxIpc* ipc, void* context);
    // ... and bound to subscriptions (SubscribeTo...)
    static void VehicleInfoChangedHandler(LinxIpc* ipc, void* context);
    static void SystemInfoChangedHandler(LinxIpc* ipc, void* context);
    static void DeptInfoChangedHandler(LinxIpc* ipc, void* context);
    static void OfficerChangedHandler(LinxIpc* ipc, void* context);
    static void VideoRecordingSettingsChangedHandler(LinxIpc* ipc, void* context);
    static void ExternalInputEventHandler(LinxIpc* ipc, void* context);
    static void GpsStatusEventHandler(LinxIpc* ipc, void* context);
    static void RecordStartHandler(LinxIpc* ipc, void* context);
    static void RecordStopHandler(LinxIpc* ipc, void* context);
    static void EnterCovertModeHandler(LinxIpc* ipc, void* context);
    static void ExitCovertModeHandler(LinxIpc* ipc, void* context);
    static void RadarEventHandler(LinxIpc* ipc, void* context);
    static void MicMgrStatusHandler(LinxIpc* ipc, void* context);
    static void CrashDetectHandler(LinxIpc* ipc, void* context);
    static void VideoMgrCameraItemHandler(LinxIpc* ipc, void* context);
    static void VideoMgrStreamQualityItemHandler(LinxIpc* ipc, void* context);
    static void TempChangeHandler(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_0(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_1(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_2(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_3(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_4(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler_5(LinxIpc* ipc, void* context);
    static void LVSStateChangeHandler(LinxIpc* ipc, void* context, int stream);

    // The client this manager holds for a server process, or null (none created, or not a
    // server it subscribes to).
    SubscribeClient* ClientOf(e_Process process) const;
    MetadataMgrServer* Server() const { return server.get(); }

private:
    Watchdog watchdog;
    DataStoreNormal dataStore;
    Systick systick;
    std::unique_ptr<ConfigClient> configClient;
    std::unique_ptr<FpgaClient> fpgaClient;
    std::unique_ptr<GpsHalClient> gpsHalClient;
    std::unique_ptr<StateMgrClient> stateMgrClient;
    std::unique_ptr<MetadataMgrServer> server;
    std::unique_ptr<RadarHalClient> radarHalClient;
    std::unique_ptr<MicClient> micClient;
    std::unique_ptr<VideoMgrClient> videoMgrClient;
    std::unique_ptr<AccelHalClient> accelHalClient;
    std::unique_ptr<TempHalClient> tempHalClient;
    std::unique_ptr<ExternalMgrApi> externalMgrClient;
    bool forceMetadata;
    MetadataSharedMem sharedMem;
    // The simulator's state lives as long as the process (only one manager exists).
    SimulatorState simulator;
};
