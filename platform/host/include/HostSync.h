// The sync round trip of the host IPC layer, for bench tools that drive a process's main loop
// pass by pass. An endpoint whose unfiltered receive (type 0, no sender: the main loop's) takes
// a sync request in its turn answers the sender with a sync reply and goes on waiting in the
// same call, dispatching nothing. So the reply says that every message that arrived before the
// request has been handled and that the loop came back to its receive, without the request
// costing the loop a pass of its own. Selective receives hold sync requests back like any other
// message. Both carry no payload (what a request carries is ignored).
#pragma once

namespace hostipc {

const unsigned int kSyncRequest = 0xFFFFFF20u;
const unsigned int kSyncReply = 0xFFFFFF21u;

}  // namespace hostipc
