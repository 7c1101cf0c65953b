// The simulator's draws file (SIMULATOR_DRAWS): the input is the file, and a fresh manager on
// a fresh store simulates a pass for every few lines of it, drawing from the file until it ends
// or holds a line that is no draw.
#include <algorithm>
#include <string>

#include "FuzzSupport.h"
#include "LinxIpc.h"
#include "MediaRoot.h"
#include "MetadataMgr.h"
#include "ProcessState.h"
#include "SimulatorDrawFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Root();
    static LinxIpc ipc("MetadataMgr");
    if (ipc.Init() != 0) {
        return 0;
    }
    gSimulatorMode = true;
    gStoreInitialized = false;
    gMetadataDir = std::string(MediaRoot()) + "/metadata";
    gMetadataPath = gMetadataDir + "/metadata";
    fuzz::Empty(gMetadataDir);
    const std::string path = fuzz::Path("draws");
    fuzz::WriteFile(path, data, size);
    SimulatorDrawFile draws;
    MetadataMgr manager;
    if (!draws.Open(path.c_str()) || !manager.PreInit(ipc)) {
        return 0;
    }
    manager.SetSimulatorDraw(SimulatorDrawFile::Next, &draws);
    const long lines = std::count(data, data + size, '\n');
    for (long pass = 0; pass <= std::min(lines / 4, 32L); ++pass) {
        manager.SimulateData();
    }
    manager.Cleanup();
    return 0;
}
