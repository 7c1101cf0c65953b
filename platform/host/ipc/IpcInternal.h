// What the subscribe protocol and the request helpers of the host platform need from the
// endpoint beyond its public interface.
#pragma once

#include <string>

#include "HostSync.h"
#include "LinxIpc.h"

namespace hostipc {

// Non-zero results of LinxIpc::Notify.
const int kNotifyNoEndpoint = 1;             // no socket of that name, or nobody listens on it
const int kNotifyQueueFull = 2;              // the receiver's queue stayed full for kNotifyWaitMs
const int kNotifySendFailed = 3;             // bad destination name or another transport error
const int kNotifyNotOpen = LinxIpc::kError;  // the sending endpoint was never opened
const int kNotifyWaitMs = 1000;
// Types from here up are the platform's own (LinxIpc::kShutdownNotice ... kUnsubscribeRequest,
// the sync round trip of HostSync.h).
const unsigned int kFirstReservedType = 0xFFFFFF00u;

// A receive's type filter. 0 takes any message but a sync request: the unfiltered receive
// answers those itself, and a receive for one sender holds them back like the rest.
inline bool TypeMatches(unsigned int wanted, unsigned int type) {
    return wanted == 0 ? type != kSyncRequest : type == wanted;
}

// Copies the platform makes for itself (held-back messages, protocol replies) are not
// refused by hostseam::FailNextAllocations: the seam stands for the caller's own allocations.
class SeamBypass {
public:
    SeamBypass();
    ~SeamBypass();
    SeamBypass(const SeamBypass&) = delete;
    SeamBypass& operator=(const SeamBypass&) = delete;
};

// True while `ipc` is a constructed endpoint. Objects that may outlive the endpoint they were
// built on (servers deleted after the process's endpoint) check this before touching it.
bool EndpointAlive(const LinxIpc* ipc);

// True when `ipc` currently dispatches `type` to `handler` with `context`.
bool HandlerIs(const LinxIpc& ipc, unsigned int type, LinxHandler handler, void* context);

// Notify without waiting for room in a full receiver queue.
int NotifyNoWait(LinxIpc& ipc, const std::string& destination, IpcMessage& message);

}  // namespace hostipc
