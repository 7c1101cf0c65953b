// Process-wide state of MetadataMgr: flags and paths that the entry point sets and the
// manager reads. One thread uses them; no locking.
#pragma once

#include <string>

extern bool gShutdownRequested;    // a quit was handled; the main loop ends after this pass
extern bool gSimulatorMode;        // -s: invent metadata every pass
extern bool gRadarOnlyMode;        // -r: limit simulation to radar (does not switch it on)
extern std::string gMetadataDir;   // <media root>/metadata
extern std::string gMetadataPath;  // <media root>/metadata/metadata, the store's base path
extern bool gStoreInitialized;     // the first output to the metadata files has been made
// gStateMgrName is declared with the process initializer, which every process shares.
