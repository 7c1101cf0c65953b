// Interface enumerations shared by the item library and the metadata store.
#pragma once

// State entries of the metadata store (DataStore::ReportStateData, ReportStringData, ...).
enum e_Tag : unsigned int {
    e_Tag_None = 0,
    e_Tag_FillerString = 32,
    e_Tag_LightsOn = 52,
    e_Tag_LightsOff = 53,
    e_Tag_SirenOn = 54,
    e_Tag_SirenOff = 55,
    e_Tag_BrakesOn = 56,
    e_Tag_BrakesOff = 57,
    e_Tag_CovertModeEntered = 58,
    e_Tag_CovertModeLeft = 59,
    e_Tag_AuxOn = 60,
    e_Tag_AuxOff = 61,
    e_Tag_DoorOpen = 62,
    e_Tag_DoorClosed = 63,
    e_Tag_ProcessStarted = 64,
    e_Tag_CrashDetected = 66,
    e_Tag_CrashCleared = 67,
    e_Tag_IgnitionOn = 68,
    e_Tag_IgnitionOff = 69,
    e_Tag_RecordingStarted = 70,
    e_Tag_RecordingStopped = 71
};

// Software components whose versions the store records.
enum e_COMPONENT : unsigned int {
    e_COMPONENT_Unknown = 0,
    e_COMPONENT_Kernel = 1,
    e_COMPONENT_Build = 2,
    e_COMPONENT_Fpga = 3
};

enum e_MicrophonePosition : unsigned int { e_Mic_0 = 0, e_Mic_1 = 1, e_Mic_2 = 2, e_Mic_3 = 3 };

enum e_TempSensors : unsigned int { e_Temp_0 = 0, e_Temp_1 = 1, e_Temp_2 = 2, e_Temp_3 = 3 };

enum e_CameraPort : unsigned int { e_Camera_0 = 0, e_Camera_1 = 1, e_Camera_2 = 2, e_Camera_3 = 3 };

// Only 1 and 2 mean "active" to the metadata manager; the rest pass through as numbers.
enum e_CameraState : unsigned int {
    e_CameraState_Off = 0,
    e_CameraState_Recording = 1,
    e_CameraState_Streaming = 2,
    e_CameraState_Idle = 3,
    e_CameraState_Fault = 4
};

enum e_VideoStream : unsigned int {
    e_Stream_0 = 0,
    e_Stream_1 = 1,
    e_Stream_2 = 2,
    e_Stream_3 = 3
};

enum e_StreamState : unsigned int {
    e_StreamState_Stopped = 0,
    e_StreamState_Running = 1,
    e_StreamState_Paused = 2,
    e_StreamState_Error = 3
};

enum e_RADAR_DIRECTION : unsigned int {
    e_RADAR_DIRECTION_None = 0,
    e_RADAR_DIRECTION_Approaching = 1,
    e_RADAR_DIRECTION_Receding = 2
};

enum e_ThreadIds : unsigned int { e_Thread_Main = 0 };
