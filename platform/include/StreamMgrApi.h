// The stream manager's request interface.
#pragma once

#include <string>

#include "LinxIpc.h"

class StreamMgrApi {
public:
    // Request: no payload. Response: the recording's REID as NUL-terminated text, empty when
    // nothing is being recorded.
    static const unsigned int kCurrentlyRecordingRequest = 14100;
    static const unsigned int kCurrentlyRecordingResponse = 14101;

    // Asks the stream manager which recording is in progress; empty when none is, or when no
    // stream manager answers within timeoutMs.
    static std::string CurrentlyRecordingREID(LinxIpc& ipc, int timeoutMs);
};
