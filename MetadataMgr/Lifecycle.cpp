// The manager's life: construction, preparation before the handshake, the first output to the
// metadata files, and the orderly end.
#include <sys/stat.h>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "KvCommon.h"
#include "Log.h"
#include "MetadataMgr.h"
#include "MetadataMgrServer.h"
#include "ProcessState.h"
#include "SharedRecord.h"
#include "SystemInfo.h"

namespace {

// The start-up reset of the shared record: position, fix, speed and radar cleared, the
// dilution at its "unknown" value, the state mark set. Fields not listed keep what they hold.
struct FieldValue {
    shared::Field field;
    uint32_t value;
};
const FieldValue kSharedReset[] = {
    {shared::kStateMark, shared::kManagerRunning},
    {shared::kLatHemisphere, 0},
    {shared::kLatDegrees, 0},
    {shared::kLatMinutes, 0},
    {shared::kLatMinuteFraction, 0},
    {shared::kLonHemisphere, 0},
    {shared::kLonDegrees, 0},
    {shared::kLonMinutes, 0},
    {shared::kLonMinuteFraction, 0},
    {shared::kHeading, 0},
    {shared::kSatellitesInView, 0},
    {shared::kFixStatus, 0},
    {shared::kFixMode, 0},
    {shared::kHdop, 0x07FFFFFF},
    {shared::kSatellitesUsed, 0},
    {shared::kGeoidSeparation, 0},
    {shared::kSpeed, 0},
    {shared::kRadarStatus, 0},
    {shared::kRadarPatrolSpeed, 0},
    {shared::kRadarTargetSpeed, 0},
    {shared::kRadarFastestSpeed, 0},
    {shared::kRadarLockedSpeed, 0},
};

struct RequestHandler {
    unsigned int id;
    LinxHandler handler;
    bool managerContext;  // false: the handler takes no context
};

// Requests and notices sent straight to this process, registered in this order.
const RequestHandler kRequestHandlers[] = {
    {13488, &MetadataMgr::PingHandler, false},
    {13490, &MetadataMgr::MetadataToFileHandler, true},
    {13498, &MetadataMgr::GetLastSystemTickHandler, true},
    {13500, &MetadataMgr::VideoStreamStateChangeHandler, true},
    {13501, &MetadataMgr::CliCameraStateChangedHandler, true},
    {13502, &MetadataMgr::MicStateChangedHandler, true},
    {13503, &MetadataMgr::RecordStartStopHandler, true},
    {13509, &MetadataMgr::BookmarkHandler, true},
};

template <typename C>
void Unsubscribe(const std::unique_ptr<C>& client) {
    if (client != nullptr) {
        client->UnsubscribeAll(false);
    }
}

}  // namespace

MetadataMgr::MetadataMgr()
    : watchdog(e_Process_MetadataMgr, e_Thread_Main),
      dataStore(gMetadataPath),
      systick(),
      configClient(),
      fpgaClient(),
      gpsHalClient(),
      stateMgrClient(),
      server(),
      radarHalClient(),
      micClient(),
      videoMgrClient(),
      accelHalClient(),
      tempHalClient(),
      externalMgrClient(),
      forceMetadata(false),
      sharedMem(),
      simulator() {
    if (KvGetenv("FORCE_METADATA") != nullptr) {
        MM_LOG(4) << "Forcing fake periodic metadata";
        forceMetadata = true;
    }
}

bool MetadataMgr::PreInit(LinxIpc& ipc) {
    MM_LOG(64) << "PreInit";

    struct stat info;
    if (::stat(gMetadataDir.c_str(), &info) != 0 && ::mkdir(gMetadataDir.c_str(), 0770) != 0) {
        const int error = errno;  // taken before the log line is built
        MM_LOG(1) << "Error Creating directory" << error;
        return false;
    }

    unsigned char* block = sharedMem.MetadataItems(false);
    if (block == nullptr) {
        MM_LOG(1) << "Shared Memory attachment failure";
        return false;
    }
    MM_LOG(128) << "Connected to shared Memory";
    for (const FieldValue& reset : kSharedReset) {
        shared::Put(block, reset.field, reset.value);
    }

    for (const RequestHandler& entry : kRequestHandlers) {
        ipc.RegisterHandler(entry.id, entry.handler, entry.managerContext ? this : nullptr);
    }

    if (!dataStore.Open()) {
        return false;
    }

    server.reset(new MetadataMgrServer(ipc));
    return true;
}

void MetadataMgr::InitializeStore() {
    if (gStoreInitialized) {
        return;
    }
    const unsigned int tick = systick.SystemTick();
    if (tick == Systick::kUnavailable) {
        MM_LOG(2) << "SystemTick not correct in InitializeStore";
        return;
    }
    MM_LOG(64) << "Starting first output to metadata files at system tick " << tick;

    dataStore.ReportShutdownDataAtStartup();
    dataStore.TimerTick(tick);

    unsigned char mac[6] = {0, 0, 0, 0, 0, 0};
    SystemInformation::GetShortMacAddress(mac);
    dataStore.ReportMac(mac, false);

    dataStore.ReportStateData(e_Tag_ProcessStarted, true, 0);

    std::string serial;
    if (!MfgItem::GetSystemSerialNumber(serial)) {
        serial.clear();
    }
    dataStore.ReportSystemSerialNum(serial);

    std::vector<VersionEntry> entries;
    VersionApi::GetAllVersions(entries, VersionApi::versionFile);
    for (const VersionEntry& entry : entries) {
        if (entry.Name().find("BUILD") != std::string::npos) {
            dataStore.ReportVersion(e_COMPONENT_Build, entry.asString_sw().c_str());
        }
    }

    dataStore.ReportConfiguration(false);

    gStoreInitialized = true;
    MM_LOG(64) << "finished first output to metadata files";
}

void MetadataMgr::Shutdown(LinxIpc& /*ipc*/) {
    MM_LOG(64) << "Shutdown Requested";
    Cleanup();
    gShutdownRequested = true;
}

void MetadataMgr::Cleanup() {
    dataStore.ReportShutdownData();
    dataStore.Close();

    // The state manager's client goes last: it is the one that told us to stop.
    Unsubscribe(configClient);
    Unsubscribe(fpgaClient);
    Unsubscribe(gpsHalClient);
    Unsubscribe(radarHalClient);
    Unsubscribe(videoMgrClient);
    Unsubscribe(tempHalClient);
    Unsubscribe(accelHalClient);
    Unsubscribe(micClient);
    Unsubscribe(externalMgrClient);
    Unsubscribe(stateMgrClient);

    watchdog.Unsubscribe();
}

MetadataMgr::~MetadataMgr() {
    unsigned char* block = sharedMem.MetadataItems(true);
    if (block != nullptr) {
        shared::Put(block, shared::kStateMark, shared::kManagerEnded);
    }
    // The members go in reverse declaration order: the shared block, the clients and the
    // server (the state manager's after the others), the tick source, the store, the watchdog.
}

SubscribeClient* MetadataMgr::ClientOf(e_Process process) const {
    switch (process) {
        case e_Process_ConfigMgr:
            return configClient.get();
        case e_Process_Fpga:
            return fpgaClient.get();
        case e_Process_GpsHal:
            return gpsHalClient.get();
        case e_Process_StateMgr:
            return stateMgrClient.get();
        case e_Process_RadarHal:
            return radarHalClient.get();
        case e_Process_MicMgr:
            return micClient.get();
        case e_Process_VideoMgr:
            return videoMgrClient.get();
        case e_Process_AccelHal:
            return accelHalClient.get();
        case e_Process_TempHal:
            return tempHalClient.get();
        case e_Process_ExternalMgr:
            return externalMgrClient.get();
        default:
            return nullptr;
    }
}
