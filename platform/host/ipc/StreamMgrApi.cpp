#include "StreamMgrApi.h"

#include <cstring>

#include "IpcInternal.h"
#include "LinxServerNameList.h"

const unsigned int StreamMgrApi::kCurrentlyRecordingRequest;
const unsigned int StreamMgrApi::kCurrentlyRecordingResponse;

std::string StreamMgrApi::CurrentlyRecordingREID(LinxIpc& ipc, int timeoutMs) {
    const std::string& server = LinxServerNameList::Instance().Name(e_Process_StreamMgr);
    hostipc::SeamBypass bypass;
    IpcMessage message;
    if (message.Allocate(kCurrentlyRecordingRequest, 0, nullptr) != 0 ||
        ipc.Notify(server, message, true) != 0) {
        return std::string();
    }
    // Selective: other traffic meanwhile is held back for the caller's loop.
    if (ipc.Receive(timeoutMs, kCurrentlyRecordingResponse, server, &message) != 0 ||
        message.DataPtr() == nullptr) {
        return std::string();
    }
    const char* text = reinterpret_cast<const char*>(message.DataPtr());
    const void* end = std::memchr(text, '\0', message.Size());
    return std::string(text,
                       end != nullptr ? static_cast<const char*>(end) - text : message.Size());
}
