// The processes of the vehicle system and their endpoint names.
#pragma once

#include <string>

enum e_Process : unsigned int {
    e_Process_Unknown = 0,
    e_Process_SysMgr = 1,
    e_Process_StateMgr = 2,
    e_Process_ConfigMgr = 3,
    e_Process_Fpga = 4,
    e_Process_UiMgr = 5,
    e_Process_NetMgr = 6,
    e_Process_RadarHal = 7,
    e_Process_UsbMgr = 8,
    e_Process_AudioMgr = 9,
    e_Process_PowerMgr = 10,
    e_Process_MicMgr = 11,
    e_Process_GpsHal = 12,
    e_Process_AccelHal = 13,
    e_Process_TempHal = 14,
    e_Process_UploadMgr = 15,
    e_Process_LogMgr = 16,
    e_Process_Watchdog = 17,
    e_Process_Cli = 18,
    e_Process_MetadataMgr = 19,
    e_Process_StreamMgr = 20,
    e_Process_VideoMgr = 21,
    e_Process_StorageMgr = 22,
    e_Process_UpdateMgr = 23,
    e_Process_DisplayMgr = 24,
    e_Process_WifiMgr = 25,
    e_Process_CellMgr = 26,
    e_Process_BtMgr = 27,
    e_Process_LedMgr = 28,
    e_Process_ExternalMgr = 29,
    e_Process_Count = 30
};

class LinxServerNameList {
public:
    static LinxServerNameList& Instance();
    // Endpoint name of a process; "Process<N>" for a number outside the list.
    const std::string& Name(unsigned int process);
    // The e_Process whose endpoint is `name`, or e_Process_Unknown.
    e_Process Find(const std::string& name) const;

private:
    LinxServerNameList();
    std::string names_[e_Process_Count];
    std::string other_;
};
