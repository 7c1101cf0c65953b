// MetadataMgr: collects the state of the vehicle system into the metadata files.
#include <getopt.h>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "KvCommon.h"
#include "LinxServerNameList.h"
#include "Log.h"
#include "LogClient.h"
#include "MediaRoot.h"
#include "MetadataMgr.h"
#include "ProcessInitializer.h"
#include "ProcessState.h"
#include "SimulatorDrawFile.h"
#include "SimulatorDrawLog.h"

namespace {

void Usage(const char* program) {
    std::cerr << "Usage:" << std::endl;
    std::cerr << program
              << " [-l OR --loglevel LEVEL] [-s OR --simulator] [-r OR --radar Radar Only "
                 "Simulation] "
              << std::endl;
    std::cerr << "    LEVEL = LogLevel for this process" << std::endl;
    MM_LOG(1) << "MetadataMgr abnormal shutdown due to "
              << "Invalid Usage";
}

const option kLongOptions[] = {
    {"loglevel", required_argument, nullptr, 'l'},
    {"help", no_argument, nullptr, 'h'},
    {"simulator", no_argument, nullptr, 's'},
    {"radar", no_argument, nullptr, 'r'},
    {nullptr, 0, nullptr, 0},
};

// False on help or any option it does not know: the caller prints the usage and stops.
bool ParseOptions(int argc, char* argv[], unsigned int& level) {
    int option;
    while ((option = getopt_long(argc, argv, "rsl:h?", kLongOptions, nullptr)) != -1) {
        switch (option) {
            case 'l':
                // Base 10 and unchecked: "0x10" and "abc" both mean what strtol makes of them.
                level = static_cast<unsigned int>(std::strtol(optarg, nullptr, 10));
                break;
            case 's':
                std::cout << "Running Simulation Mode" << std::endl;
                gSimulatorMode = true;
                break;
            case 'r':
                std::cout << "Simulate Radar Only Mode" << std::endl;
                gRadarOnlyMode = true;
                break;
            default:
                return false;
        }
    }
    return true;
}

#ifdef HOST_PLATFORM
// A bench replaying a simulated drive gives the simulator the drive's draws (SIMULATOR_DRAWS);
// a bench that may replay this one has them written down as they are taken
// (SIMULATOR_DRAWS_LOG).
void GiveSimulatorItsDraws(MetadataMgr& manager, SimulatorDrawFile& draws, SimulatorDrawLog& log) {
    if (!gSimulatorMode) {
        return;
    }
    SimulatorDraw draw = nullptr;
    const char* drawPath = std::getenv("SIMULATOR_DRAWS");
    if (drawPath != nullptr && *drawPath != '\0' && draws.Open(drawPath)) {
        draw = SimulatorDrawFile::Next;
        manager.SetSimulatorDraw(draw, &draws);
    }
    const char* logPath = std::getenv("SIMULATOR_DRAWS_LOG");
    if (logPath != nullptr && *logPath != '\0') {
        log.Start(logPath, gRadarOnlyMode, draw, &draws);
        manager.SetSimulatorDraw(SimulatorDrawLog::Next, &log);
        manager.SetSimulatorPassMark(SimulatorDrawLog::Pass, &log);
    }
}
#endif

}  // namespace

int main(int argc, char* argv[]) {
    unsigned int level = LogClient::Instance().Level();

    gMetadataDir = MediaRoot();
    gMetadataDir += "/";
    gMetadataDir += "metadata";
    gMetadataPath = gMetadataDir;
    gMetadataPath += "/metadata";

    if (!ParseOptions(argc, argv, level)) {
        Usage(argv[0]);
        return 1;
    }

    int status = 1;
    {
        SimulatorDrawFile draws;
        SimulatorDrawLog drawLog;
        MetadataMgr manager;
#ifdef HOST_PLATFORM
        GiveSimulatorItsDraws(manager, draws, drawLog);
#endif
        ProcessInitializer<MetadataMgr> initializer(manager, e_Process_MetadataMgr);
        std::set_terminate(KorvaneTerminateHandler);
        gStateMgrName = LinxServerNameList::Instance().Name(e_Process_StateMgr);

        if (initializer.Init("MetadataMgr", level)) {
            LinxIpc& ipc = initializer.Ipc();
            while (!gShutdownRequested) {
                // Time-outs and receive errors alike only end the wait.
                ipc.Receive(1000, 0, LinxIpc::emptyString, nullptr);
                manager.PetWatchdog();
                manager.PeriodicProcessing();
            }
            status = 0;
        } else {
            MM_LOG(1) << "Unable to initialize MetadataMgr";
        }
        MM_LOG(128) << "Exiting " << status;
    }
    return status;
}
