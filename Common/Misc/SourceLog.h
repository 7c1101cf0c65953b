// The one log-line shape of the system's processes: a line of mask M is written only when the
// process's level contains M, and reads "<source name>:<line> <text>".
#pragma once

#include "LogClient.h"

inline bool LogEnabled(unsigned int mask) {
    return (LogClient::Instance().Level() & mask) != 0;
}

// Usage: SOURCE_LOG("MetadataMgr", 64) << "PreInit";
// The loop runs its body at most once and needs no braces around it to stay unambiguous.
#define SOURCE_LOG(sourceName, mask)                                   \
    for (bool logOnce_ = LogEnabled(mask); logOnce_; logOnce_ = false) \
    LogMsg::Log((mask), LogClient::Instance().ProcessName()) << sourceName << ':' << __LINE__ << ' '
