#include "LinxServerNameList.h"

LinxServerNameList& LinxServerNameList::Instance() {
    static LinxServerNameList list;
    return list;
}

LinxServerNameList::LinxServerNameList() {
    static const char* const kNames[e_Process_Count] = {
        "Unknown",    "SysMgr",      "StateMgr",  "ConfigMgr", "FpgaHal",    "UiMgr",
        "NetMgr",     "RadarHal",    "UsbMgr",    "AudioMgr",  "PowerMgr",   "MicMgr",
        "GpsHal",     "AccelHal",    "TempHal",   "UploadMgr", "LogMgr",     "Watchdog",
        "Cli",        "MetadataMgr", "StreamMgr", "VideoMgr",  "StorageMgr", "UpdateMgr",
        "DisplayMgr", "WifiMgr",     "CellMgr",   "BtMgr",     "LedMgr",     "ExternalMgr"};
    for (unsigned int i = 0; i < e_Process_Count; ++i) {
        names_[i] = kNames[i];
    }
}

const std::string& LinxServerNameList::Name(unsigned int process) {
    if (process < e_Process_Count) {
        return names_[process];
    }
    other_ = "Process" + std::to_string(process);
    return other_;
}

e_Process LinxServerNameList::Find(const std::string& name) const {
    for (unsigned int i = 1; i < e_Process_Count; ++i) {
        if (names_[i] == name) {
            return static_cast<e_Process>(i);
        }
    }
    return e_Process_Unknown;
}
