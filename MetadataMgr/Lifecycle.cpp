// The manager's life: construction, preparation before the handshake, the first output to the
// metadata files, and the orderly end.
#include <sys/stat.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "KvCommon.h"
#include "Log.h"
#include "MetadataMgr.h"
#include "MetadataMgrServer.h"
#include "ProcessState.h"
#include "SystemInfo.h"

namespace {

// Other processes read the shared block; fields are written in native order, one by one, and
// bytes not named here keep what they hold.
template <typename V>
void Put(unsigned char* block, unsigned int offset, V value) {
    std::memcpy(block + offset, &value, sizeof value);
}

void InitSharedBlock(unsigned char* block) {
    Put<uint16_t>(block, 0, 0x0100);
    // Two 16-byte records: flag byte, 32-bit value at +4, 16-bit at +8, 32-bit at +12.
    for (unsigned int record : {8u, 24u}) {
        Put<uint8_t>(block, record, 0);
        Put<uint32_t>(block, record + 4, 0);
        Put<uint16_t>(block, record + 8, 0);
        Put<uint32_t>(block, record + 12, 0);
    }
    std::memset(block + 40, 0, 12);
    Put<uint32_t>(block, 52, 0x07FFFFFF);
    // Two 20-byte records: two 32-bit values and a 16-bit value.
    for (unsigned int record : {56u, 76u}) {
        Put<uint32_t>(block, record, 0);
        Put<uint32_t>(block, record + 4, 0);
        Put<uint16_t>(block, record + 8, 0);
    }
}

// Marks the block as no longer kept up to date by its owner.
const uint16_t kSharedBlockEndMark = 0x0001;

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
    InitSharedBlock(block);

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
        Put(block, 0, kSharedBlockEndMark);
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
