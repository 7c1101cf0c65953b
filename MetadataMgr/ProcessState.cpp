#include "ProcessState.h"

#include "ProcessInitializer.h"

bool gShutdownRequested = false;
bool gSimulatorMode = false;
bool gRadarOnlyMode = false;
std::string gStateMgrName;
std::string gMetadataDir;
std::string gMetadataPath;
bool gStoreInitialized = false;
