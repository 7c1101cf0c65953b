// Narrow test seams of the host platform: failures the real platform cannot produce on demand,
// and what it did that no file or message shows.
// Tests of the real binary use the environment settings listed in docs/host-platform.md.
#pragma once

#include <string>

namespace hostseam {

// IpcMessage::Allocate refuses the next `count` calls (0 = none).
void FailNextAllocations(unsigned int count);

// The data syncs (fdatasync) this process made on one file: how many succeeded and the file's
// size at the last of them. Zeros for a file never synced (or that cannot be found).
struct DataSyncs {
    unsigned int count = 0;
    long long bytesAtLast = 0;
};
DataSyncs DataSyncsOf(const std::string& path);

}  // namespace hostseam
