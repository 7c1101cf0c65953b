// Subscriptions to the ten server processes. Every value a server returns at subscribe time is
// reported with the flag false, so the store is complete before the first change notice.
#include <cstddef>
#include <string>

#include "KvCommon.h"
#include "Log.h"
#include "MetadataMgr.h"
#include "StreamMgrApi.h"
#include "StreamingLvsStateItem.h"

namespace {

// One subscription made with SubscribeClient::Subscribe.
struct ItemSubscription {
    unsigned int itemId;
    unsigned int notifyId;
    LinxHandler handler;
    const char* refusal;  // logged (mask 1) when the server refuses
};

// The state manager's events carry no item id; each has its own subscribe call.
struct StateMgrSubscription {
    bool (StateMgrClient::*subscribe)(unsigned int notifyId, LinxHandler handler, void* context);
    unsigned int notifyId;
    LinxHandler handler;
    const char* refusal;
};

// The subscription table, in the order the subscriptions are made. The notification ids this
// table skips (13498, 13500..13503, 13509) are registered directly in PreInit.
//
// ConfigMgr
const ItemSubscription kConfigMgr[] = {
    {10, 13492, MetadataMgr::VehicleInfoChangedHandler,
     "MetadataMgr - Failed to subscribe to VehicleInfo"},
    {7, 13493, MetadataMgr::SystemInfoChangedHandler,
     "MetadataMgr - Failed to subscribe to SystemInfo"},
    {11, 13494, MetadataMgr::DeptInfoChangedHandler,
     "MetadataMgr - Failed to subscribe to DepartmentInfo"},
    {12, 13495, MetadataMgr::OfficerChangedHandler, "MetadataMgr - Failed to subscribe to Officer"},
    {13, 13496, MetadataMgr::VideoRecordingSettingsChangedHandler,
     "MetadataMgr - Failed to subscribe to VideoRecording"},
};
// Fpga
const ItemSubscription kFpga = {17, 13497, MetadataMgr::ExternalInputEventHandler,
                                "MetadataMgr - Failed to subscribe to External Events"};
// GpsHal
const ItemSubscription kGpsHal = {1, 13504, MetadataMgr::GpsStatusEventHandler,
                                  "MetadataMgr - Failed to subscribe to GpsStatus Events"};
// StateMgr
const StateMgrSubscription kStateMgr[] = {
    {&StateMgrClient::SubscribeForRecordStart, 13505, MetadataMgr::RecordStartHandler,
     "MetadataMgr - Failed to subscribe to StateMgr Record Start Event"},
    {&StateMgrClient::SubscribeForRecordStop, 13506, MetadataMgr::RecordStopHandler,
     "MetadataMgr - Failed to subscribe to StateMgr Record Stop Event"},
    {&StateMgrClient::SubscribeForEnterCovertMode, 13507, MetadataMgr::EnterCovertModeHandler,
     "MetadataMgr - Failed to subscribe to StateMgr Enter Covert Mode Event"},
    {&StateMgrClient::SubscribeForExitCovertMode, 13508, MetadataMgr::ExitCovertModeHandler,
     "MetadataMgr - Failed to subscribe to StateMgr Exit Cover Mode Event"},
};
// RadarHal
const ItemSubscription kRadarHal = {1, 13510, MetadataMgr::RadarEventHandler,
                                    "MetadataMgr - Failed to subscribe to RadarHal Events"};
// MicMgr
const ItemSubscription kMicMgr = {0, 13511, MetadataMgr::MicMgrStatusHandler,
                                  "Failed to subscribe to Mic Mgr Events"};
// AccelHal: the refusal text is MicMgr's; the system has always reported it so.
const ItemSubscription kAccelHal = {1, 13512, MetadataMgr::CrashDetectHandler,
                                    "Failed to subscribe to Mic Mgr Events"};
// VideoMgr
const ItemSubscription kVideoMgr[] = {
    {0, 13513, MetadataMgr::VideoMgrCameraItemHandler, "Failed to subscribe to Video Mgr Events"},
    {1, 13514, MetadataMgr::VideoMgrStreamQualityItemHandler,
     "Failed to subscribe to Video Mgr Events"},
};
// TempHal
const ItemSubscription kTempHal = {0, 13515, MetadataMgr::TempChangeHandler,
                                   "Failed to subscribe to TempHal Events"};
// ExternalMgr: one live stream each, streams 0..5.
const ItemSubscription kExternalMgr[] = {
    {16, 18952, MetadataMgr::LVSStateChangeHandler_0,
     "Failed to subscribe to ExternalMgr LVS state changes"},
    {17, 18953, MetadataMgr::LVSStateChangeHandler_1,
     "Failed to subscribe to ExternalMgr LVS state changes"},
    {18, 18954, MetadataMgr::LVSStateChangeHandler_2,
     "Failed to subscribe to ExternalMgr LVS state changes"},
    {19, 18955, MetadataMgr::LVSStateChangeHandler_3,
     "Failed to subscribe to ExternalMgr LVS state changes"},
    {20, 18956, MetadataMgr::LVSStateChangeHandler_4,
     "Failed to subscribe to ExternalMgr LVS state changes"},
    {21, 18957, MetadataMgr::LVSStateChangeHandler_5,
     "Failed to subscribe to ExternalMgr LVS state changes"},
};

// Time-outs and the watchdog period handed to the platform libraries.
const int kConfigMgrTimeout = 30000;
const int kStateMgrTimeout = 30000;
const int kExternalMgrTimeout = 2000;
const unsigned int kWatchdogSeconds = 45;
const int kStreamMgrTimeout = 60000;

// The six input bits of the FPGA's changed mask: lights, brakes, siren, aux, door, ignition.
const unsigned int kAllInputs = 0x000BE000;

// A switch counts as set when the variable exists, whatever its value.
bool SwitchedOff(const char* variable) {
    return KvGetenv(variable) != nullptr;
}

// Subscribes `rows[i]` into `items[i]`, stopping at the first refusal with its message.
bool SubscribeRows(SubscribeClient& client, const ItemSubscription* rows, Item* const* items,
                   std::size_t count, void* context) {
    for (std::size_t i = 0; i < count; ++i) {
        const ItemSubscription& row = rows[i];
        if (client.Subscribe(row.itemId, row.notifyId, *items[i], row.handler, context) != 0) {
            MM_LOG(1) << row.refusal;
            return false;
        }
    }
    return true;
}

bool SubscribeRow(SubscribeClient& client, const ItemSubscription& row, Item& item, void* context) {
    Item* const items[] = {&item};
    return SubscribeRows(client, &row, items, 1, context);
}

}  // namespace

bool MetadataMgr::SubscribeToServers(LinxIpc& ipc, bool /*flag*/) {
    MM_LOG(64) << "SubscribeToServers";

    if (!SubscribeToConfigMgr(ipc)) {
        MM_LOG(1) << "MetadataMgr - Failed to subscribe to ConfigMgr";
        return false;
    }
    // The start-up records go out once the configuration is known and before any other
    // server can report.
    InitializeStore();

    // The remaining servers, in the order they are subscribed.
    struct Step {
        bool (MetadataMgr::*subscribe)(LinxIpc&);
        const char* failure;
    };
    static const Step kSteps[] = {
        {&MetadataMgr::SubscribeToFpga, "MetadataMgr - Failed to subscribe to External Events"},
        {&MetadataMgr::SubscribeToGpsHal, "MetadataMgr - Failed to subscribe to Gps Events"},
        {&MetadataMgr::SubscribeToStateMgr, "MetadataMgr - Failed to subscribe to StateMgr Events"},
        {&MetadataMgr::SubscribeToRadarHal, "MetadataMgr - Failed to subscribe to RadarHal Events"},
        {&MetadataMgr::SubscribeToMicMgr, "MetadataMgr - Failed to subscribe to MicMgr Events"},
        {&MetadataMgr::SubscribeToVideoMgr, "MetadataMgr - Failed to subscribe to VideoMgr Events"},
        {&MetadataMgr::SubscribeToAccelHal,
         "MetadataMgr - Failed to subscribe to Accelerometer Events"},
        {&MetadataMgr::SubscribeToTempHal,
         "MetadataMgr::SubscribeToServers - Failed to subscribe to TempHal Events"},
        {&MetadataMgr::SubscribeToExternalMgr,
         "MetadataMgr - Failed to subscribe to LVS state changes"},
    };
    for (const Step& step : kSteps) {
        if (!(this->*step.subscribe)(ipc)) {
            MM_LOG(1) << step.failure;
            return false;
        }
    }

    if (!watchdog.Subscribe(kWatchdogSeconds)) {
        return false;
    }
    // A recording that started before this process came up must still be marked.
    if (!StreamMgrApi::CurrentlyRecordingREID(ipc, kStreamMgrTimeout).empty()) {
        ReportRecordingEvent(true, 0, false);
    }
    dataStore.WriteFullState(true);
    return true;
}

bool MetadataMgr::SubscribeToConfigMgr(LinxIpc& ipc) {
    MM_LOG(64) << "SubscribeToConfigMgr";
    if (SwitchedOff("NO_CONFIGMGR")) {
        MM_LOG(32) << "SubscribeToConfigMgr - set to ignore ConfigMgr ";
        return true;
    }
    if (configClient == nullptr) {
        configClient.reset(new ConfigClient(ipc, kConfigMgrTimeout));
    }
    VehicleInfo vehicle;
    SystemInfo system;
    DepartmentInfo department;
    Officer officer;
    VideoRecordingSettings recording;
    Item* const items[] = {&vehicle, &system, &department, &officer, &recording};
    if (!SubscribeRows(*configClient, kConfigMgr, items, 5, this)) {
        return false;
    }
    dataStore.ReportVehicleInfo(vehicle, false);
    dataStore.ReportSystemInfo(system, false);
    dataStore.ReportDepartmentInfo(department, false);
    dataStore.ReportOfficerInfo(officer, false);
    dataStore.ReportVideoRecordingSettings(recording, false);
    return true;
}

bool MetadataMgr::SubscribeToFpga(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToFpga";
    if (fpgaClient == nullptr) {
        fpgaClient.reset(new FpgaClient(ipc));
    }
    FpgaExternalEventItem item;
    if (!SwitchedOff("NO_FPGA") && !SubscribeRow(*fpgaClient, kFpga, item, this)) {
        return false;
    }
    // Every input's current level is stored once, whether or not the server marked it as
    // changed; the debounce word means nothing here.
    item.changedMask |= kAllInputs;
    item.debounce = 0;
    ReportExternalEvent(item, false);
    return true;
}

bool MetadataMgr::SubscribeToGpsHal(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToGpsHal";
    if (gpsHalClient == nullptr) {
        gpsHalClient.reset(new GpsHalClient(ipc));
    }
    GpsStatusItem item;
    if (!SwitchedOff("NO_GPSHAL") && !SubscribeRow(*gpsHalClient, kGpsHal, item, this)) {
        return false;
    }
    ReportGpsStatus(item, false);
    return true;
}

bool MetadataMgr::SubscribeToStateMgr(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToStateMgr";
    if (SwitchedOff("RUN_WITHOUT_STATEMGR")) {
        return true;
    }
    if (stateMgrClient == nullptr) {
        stateMgrClient.reset(new StateMgrClient(ipc, kStateMgrTimeout));
    }
    for (const StateMgrSubscription& row : kStateMgr) {
        if (!((*stateMgrClient).*row.subscribe)(row.notifyId, row.handler, this)) {
            MM_LOG(1) << row.refusal;
            return false;
        }
    }
    return true;
}

bool MetadataMgr::SubscribeToRadarHal(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToRadarHal";
    if (radarHalClient == nullptr) {
        radarHalClient.reset(new RadarHalClient(ipc));
    }
    RadarItem item;
    if (!SwitchedOff("NO_RADARHAL") && !SubscribeRow(*radarHalClient, kRadarHal, item, this)) {
        return false;
    }
    ReportRadarEvent(item, false);
    return true;
}

bool MetadataMgr::SubscribeToMicMgr(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToMicMgr";
    if (SwitchedOff("NO_MICMGR")) {
        MM_LOG(32) << "SubscribeToMicMgr - set to ignore MicMgr ";
        return true;
    }
    if (micClient == nullptr) {
        micClient.reset(new MicClient(ipc));
    }
    MicStatusResponse item;
    if (!SubscribeRow(*micClient, kMicMgr, item, this)) {
        return false;
    }
    ReportMicStatus(item, false);
    return true;
}

bool MetadataMgr::SubscribeToVideoMgr(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToVideoMgr";
    if (SwitchedOff("NO_VIDEOMGR")) {
        MM_LOG(32) << "SubscribeToVideoMgr - set to ignore VideoMgr ";
        return true;
    }
    if (videoMgrClient == nullptr) {
        videoMgrClient.reset(new VideoMgrClient(ipc));
    }
    VideoMgrCameraItem camera;
    VideoMgrStreamQualityItem quality;
    Item* const items[] = {&camera, &quality};
    // Neither value is stored unless both subscriptions hold.
    if (!SubscribeRows(*videoMgrClient, kVideoMgr, items, 2, this)) {
        return false;
    }
    ReportCameraItem(camera, false);
    ReportStreamQualityItem(quality, false);
    return true;
}

bool MetadataMgr::SubscribeToAccelHal(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToAccelHal";
    if (SwitchedOff("NO_ACCELHAL")) {
        MM_LOG(32) << "SubscribeToAccelHal - set to ignore AccelHal ";
        return true;
    }
    if (accelHalClient == nullptr) {
        accelHalClient.reset(new AccelHalClient(ipc));
    }
    CrashItem item;
    if (!SubscribeRow(*accelHalClient, kAccelHal, item, this)) {
        return false;
    }
    HandleCrash(item.crash, item.tick);
    return true;
}

bool MetadataMgr::SubscribeToTempHal(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToTempHal";
    if (SwitchedOff("NO_TEMPHAL")) {
        MM_LOG(32) << "SubscribeToTempHal - set to ignore TempHal ";
        return true;
    }
    if (tempHalClient == nullptr) {
        tempHalClient.reset(new TempHalClient(ipc));
    }
    TempStatus item;
    if (!SubscribeRow(*tempHalClient, kTempHal, item, this)) {
        return false;
    }
    ReportTempChange(item, false);
    return true;
}

bool MetadataMgr::SubscribeToExternalMgr(LinxIpc& ipc) {
    MM_LOG(128) << "SubscribeToExternalMgr";
    if (externalMgrClient == nullptr) {
        externalMgrClient.reset(new ExternalMgrApi(
            ipc, LinxServerNameList::Instance().Name(e_Process_ExternalMgr), kExternalMgrTimeout));
    }
    // The values returned are discarded: streaming state enters the store only through the
    // handlers, so one item serves all six streams.
    ExternalMgrApi::StreamingLvsStateItem item;
    Item* const items[] = {&item, &item, &item, &item, &item, &item};
    return SubscribeRows(*externalMgrClient, kExternalMgr, items, 6, this);
}
