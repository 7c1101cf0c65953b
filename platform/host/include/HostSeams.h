// Narrow test seams of the host platform: failures the real platform cannot produce on demand.
// Tests of the real binary use the environment settings listed in docs/host-platform.md.
#pragma once

namespace hostseam {

// IpcMessage::Allocate refuses the next `count` calls (0 = none).
void FailNextAllocations(unsigned int count);

}  // namespace hostseam
