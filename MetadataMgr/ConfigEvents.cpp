// Configuration records: each change becomes the store's current value of that record.
#include "Handler.h"
#include "MetadataMgr.h"

namespace {
// Every configuration record is decoded from the whole message and handed to one member.
template <typename Record, typename Member>
void RunConfigHandler(LinxIpc* ipc, void* context, const char* name, Member member) {
    RunEventHandler(ipc, context, Named(name), [member](MetadataMgr& mgr, IpcMessage& msg) {
        Record record;
        if (!payload::DecodeFromMessage(msg, record)) {
            return false;
        }
        (mgr.*member)(record);
        return true;
    });
}
}  // namespace

// A configuration change is always an event for the store.
void MetadataMgr::VehicleChanged(const VehicleInfo& info) {
    dataStore.ReportVehicleInfo(info, true);
}

void MetadataMgr::OfficerChanged(const Officer& officer) {
    dataStore.ReportOfficerInfo(officer, true);
}

void MetadataMgr::DepartmentInfoChanged(const DepartmentInfo& info) {
    dataStore.ReportDepartmentInfo(info, true);
}

void MetadataMgr::SystemInfoChanged(const SystemInfo& info) {
    dataStore.ReportSystemInfo(info, true);
}

void MetadataMgr::VideoRecordingSettingsChanged(const VideoRecordingSettings& settings) {
    dataStore.ReportVideoRecordingSettings(settings, true);
}

void MetadataMgr::VehicleInfoChangedHandler(LinxIpc* ipc, void* context) {
    RunConfigHandler<VehicleInfo>(ipc, context, "VehicleInfoChangedHandler",
                                  &MetadataMgr::VehicleChanged);
}

void MetadataMgr::OfficerChangedHandler(LinxIpc* ipc, void* context) {
    RunConfigHandler<Officer>(ipc, context, "OfficerChangedHandler", &MetadataMgr::OfficerChanged);
}

void MetadataMgr::DeptInfoChangedHandler(LinxIpc* ipc, void* context) {
    RunConfigHandler<DepartmentInfo>(ipc, context, "DeptInfoChangedHandler",
                                     &MetadataMgr::DepartmentInfoChanged);
}

void MetadataMgr::SystemInfoChangedHandler(LinxIpc* ipc, void* context) {
    RunConfigHandler<SystemInfo>(ipc, context, "SystemInfoChangedHandler",
                                 &MetadataMgr::SystemInfoChanged);
}

void MetadataMgr::VideoRecordingSettingsChangedHandler(LinxIpc* ipc, void* context) {
    RunConfigHandler<VideoRecordingSettings>(ipc, context, "VideoRecordingSettingsChangedHandler",
                                             &MetadataMgr::VideoRecordingSettingsChanged);
}
