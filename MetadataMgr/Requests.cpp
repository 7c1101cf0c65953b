// Requests other processes send straight to this endpoint: ping, copy of stored metadata into a
// new file, and the last system tick. Each answer goes to the requester under the request's id
// plus one.
#include <cstring>
#include <string>

#include "Log.h"
#include "MetadataMgr.h"
#include "MetadataReader.h"
#include "ProcessState.h"

namespace {
const unsigned int kPingResponse = 13489;
const unsigned int kMetadataToFileResponse = 13491;
const unsigned int kLastSystemTickResponse = 13499;

// Metadata-to-file request: a NUL-terminated destination name in the first 1024 bytes, then
// the two range values handed to the reader.
const unsigned int kNameField = 1024;
const unsigned int kFirstRangeOffset = 1024;
const unsigned int kSecondRangeOffset = 1028;
const unsigned int kMetadataToFileSize = 1032;

// Last-system-tick answer: the tick, a validity byte and three bytes of padding.
const unsigned int kLastSystemTickSize = 8;

// The requester's name, copied before the message is reused for the answer. Ping and tick
// requests come often; one buffer serves them all, so a name too long to be held in place
// costs an allocation only the first time.
const std::string& CopySender(const IpcMessage& msg) {
    static std::string sender;
    sender.assign(msg.GetSender());
    return sender;
}
}  // namespace

void MetadataMgr::PingHandler(LinxIpc* ipc, void* /*context*/) {
    MM_LOG(64) << "Ping Handler";
    IpcMessage& msg = ipc->CurrentMessage();
    // The answer is built in the received message, so the sender must be taken first.
    const std::string& sender = CopySender(msg);
    if (msg.Allocate(kPingResponse, 0, nullptr) != 0) {
        MM_LOG(1) << "Error Allocating Message";
        return;
    }
    if (ipc->Notify(sender, msg, true) != 0) {
        MM_LOG(1) << "Error Sending Response";
    }
}

void MetadataMgr::MetadataToFileHandler(LinxIpc* ipc, void* context) {
    MM_LOG(64) << "MetadataToFile";
    if (context == nullptr) {
        MM_LOG(2) << "MetadataToFileHandler"
                  << " invalid argument";
        return;
    }
    MetadataMgr& mgr = *static_cast<MetadataMgr*>(context);
    IpcMessage& msg = ipc->CurrentMessage();
    const unsigned char* data = msg.DataPtr();
    if (data == nullptr) {
        MM_LOG(2) << "MetadataToFileHandler: error, DataPtr is null";
        return;
    }
    const std::string sender = msg.GetSender();
    unsigned char copied = 0;
    const void* nul =
        msg.Size() < kMetadataToFileSize ? nullptr : std::memchr(data, '\0', kNameField);
    if (msg.Size() < kMetadataToFileSize) {
        // Too short to hold both range values: nothing is copied, but the requester still gets
        // its answer rather than waiting out its own time-out.
        MM_LOG(2) << "MetadataToFileHandler: error, payload too short (" << msg.Size()
                  << " bytes), answered 0";
    } else if (nul == nullptr) {
        // A name that fills its whole field has no end the requester meant; nothing is copied.
        MM_LOG(2) << "MetadataToFileHandler: error, file name not terminated";
    } else {
        const std::string name(data, static_cast<const unsigned char*>(nul));
        unsigned int first = 0;
        unsigned int second = 0;
        std::memcpy(&first, data + kFirstRangeOffset, sizeof first);
        std::memcpy(&second, data + kSecondRangeOffset, sizeof second);
        MetadataReader reader;
        // The copy can take long; the reader pets the watchdog while it runs.
        copied =
            reader.ReadToNewFile(gMetadataPath, name, first, second, &mgr.GetWatchdog()) ? 1 : 0;
    }
    char answer = static_cast<char>(copied);
    if (msg.Allocate(kMetadataToFileResponse, 1, &answer) != 0) {
        MM_LOG(1) << "MetadataToFileHandler: Cannot allocate response";
        return;
    }
    if (ipc->Notify(sender, msg, true) != 0) {
        MM_LOG(2) << "MetadataToFileHandler: Failed to send response";
    }
}

void MetadataMgr::GetLastSystemTickHandler(LinxIpc* ipc, void* context) {
    MM_LOG(128) << "GetLastSystemTickHandler";
    if (context == nullptr) {
        MM_LOG(2) << "GetLastSystemTickHandler invalid argument";
        return;
    }
    MetadataMgr& mgr = *static_cast<MetadataMgr*>(context);
    IpcMessage& msg = ipc->CurrentMessage();
    const std::string& sender = CopySender(msg);
    const unsigned int tick = mgr.GetLastSystemTick();
    char answer[kLastSystemTickSize] = {};
    std::memcpy(answer, &tick, sizeof tick);
    answer[4] = tick == Systick::kUnavailable ? 0 : 1;
    if (msg.Allocate(kLastSystemTickResponse, kLastSystemTickSize, answer) != 0) {
        MM_LOG(1) << "GetLastSystemTickHandler: Cannot allocate response";
        return;
    }
    if (ipc->Notify(sender, msg, true) != 0) {
        MM_LOG(2) << "GetLastSystemTickHandler: Failed to send response";
    }
}
