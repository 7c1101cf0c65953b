#include "Messages.h"

#include <cstdio>
#include <cstring>

#include "FieldCodec.h"
#include "HostSync.h"
#include "LinxIpc.h"

namespace {

const MessageInfo kMessages[] = {
    // The state manager's start-up handshake and process control.
    {13232, "Started", "StateMgrProcessMsg_Started", "u32"},
    {13233, "Subscribe", "StateMgrProcessMsg_Subscribe", "u8"},
    {13234, "Subscribed", "StateMgrProcessMsg_Subscribed", "u8"},
    {13235, "FullRun", "StateMgrProcessMsg_FullRun", ""},
    {13236, "Restarted", "StateMgrProcessMsg_Restarted", "u32"},
    {13239, "ShutdownResponse", "StateMgrProcessMsg_ShutdownResponse", ""},
    {13244, "FailedStart", "StateMgrProcessMsg_FailedStart", "u32"},
    {LinxIpc::kShutdownNotice, "Shutdown", "", ""},
    {LinxIpc::kProcessDiedNotice, "ProcessDied", "", "u32"},
    // Log level and ping.
    {1872, "LogLevelSet", "LogLevelMsg_Set", "u32"},
    {1873, "LogLevelGet", "LogLevelMsg_Get", "u32"},
    {1874, "LogLevelResponse", "LogLevelMsg_Response", "u32"},
    {13488, "Ping", "MetadataMgrMsg_Ping", ""},
    {13489, "PingResponse", "MetadataMgrMsg_PingResponse", ""},
    // Requests and events the metadata manager serves.
    {13490, "MetadataToFile", "", "text1024 u32 u32"},
    {13491, "MetadataToFileResponse", "", "u8"},
    {13498, "GetLastSystemTick", "", ""},
    {13499, "LastSystemTick", "", "u32 u8"},
    {13500, "VideoStreamState", "", "u32 u32 u32"},
    {13501, "CameraState", "", "u32 u32 u32"},
    {13502, "MicState", "", "u32 u32 u8 u8"},
    {13503, "RecordStartStop", "", "u32 u8"},
    {13509, "Bookmark", "", "u32"},
    // The stream manager.
    {14100, "CurrentlyRecording", "", ""},
    {14101, "CurrentlyRecordingResponse", "", "text"},
    // The subscribe protocol.
    {LinxIpc::kSubscribeRequest, "SubscribeRequest", "", "u32 u32"},
    {LinxIpc::kSubscribeReply, "SubscribeReply", "", "u32 u32 u32"},
    {LinxIpc::kUnsubscribeRequest, "UnsubscribeRequest", "", ""},
    // The host platform's sync round trip (HostSync.h).
    {hostipc::kSyncRequest, "SyncRequest", "", ""},
    {hostipc::kSyncReply, "SyncReply", "", ""},
};

// The reserved types of the IPC layer read better in hex.
std::string Number(unsigned int type) {
    if (type < 0xFFFFFF00u) {
        return std::to_string(type);
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", type);
    return text;
}

}  // namespace

namespace messages {

const MessageInfo* Find(unsigned int type) {
    for (const MessageInfo& info : kMessages) {
        if (info.type == type) {
            return &info;
        }
    }
    return nullptr;
}

bool ParseType(const std::string& text, unsigned int& type) {
    for (const MessageInfo& info : kMessages) {
        if (text == info.name || (info.alias[0] != '\0' && text == info.alias)) {
            type = info.type;
            return true;
        }
    }
    return codec::ParseNumber(text, type);
}

std::string Describe(unsigned int type) {
    const MessageInfo* info = Find(type);
    std::string text = Number(type);
    if (info != nullptr) {
        text += ' ';
        text += info->name;
    }
    return text;
}

std::string Table() {
    std::string text;
    char line[160];
    for (const MessageInfo& info : kMessages) {
        std::snprintf(line, sizeof line, "  %-26s %-10s %s\n", info.name, Number(info.type).c_str(),
                      info.layout[0] != '\0' ? info.layout : "-");
        text += line;
    }
    return text;
}

}  // namespace messages
