// linxpeer: the bench peer that plays other processes of the vehicle system.
#include <getopt.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Capture.h"
#include "Peer.h"
#include "ProjectVersion.h"
#include "Replay.h"
#include "Scenario.h"
#include "Usage.h"
#include "Vehicle.h"

namespace {

void OnSignal(int /*signal*/) {
    Peer::RequestStop();
}

void InstallSignals() {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int BadUsage(const std::string& message) {
    std::fprintf(stderr, "linxpeer: %s (linxpeer --help for usage)\n", message.c_str());
    return Scenario::kError;
}

}  // namespace

int main(int argc, char** argv) {
    // Tests read the output while it runs.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    static const option kOptions[] = {
        {"name", required_argument, nullptr, 'n'},    {"process", required_argument, nullptr, 'p'},
        {"vehicle", no_argument, nullptr, 'v'},       {"timeout", required_argument, nullptr, 't'},
        {"help", no_argument, nullptr, 'h'},          {"version", no_argument, nullptr, 'V'},
        {"capture", required_argument, nullptr, 'c'}, {"replay", required_argument, nullptr, 'r'},
        {"speed", required_argument, nullptr, 'x'},   {nullptr, 0, nullptr, 0}};
    std::vector<std::string> roles;
    bool playVehicle = false;
    int timeoutMs = 5000;
    std::string capturePath;
    std::string replayPath;
    double speed = 1;
    int option;
    while ((option = getopt_long(argc, argv, "n:p:vt:hc:r:x:", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'n':
            case 'p':
                roles.push_back(optarg);
                break;
            case 'v':
                playVehicle = true;
                break;
            case 't':
                if (!codec::ParseNumber(optarg, timeoutMs) || timeoutMs < 0) {
                    return BadUsage("--timeout needs milliseconds");
                }
                break;
            case 'c':
                capturePath = optarg;
                break;
            case 'r':
                replayPath = optarg;
                break;
            case 'x': {
                const bool max = std::string(optarg) == "max";
                char* end = optarg;
                speed = max ? 0 : std::strtod(optarg, &end);
                if (!max && (end == optarg || *end != '\0' || !(speed > 0))) {
                    return BadUsage("--speed needs a factor above 0, or max");
                }
                break;
            }
            case 'h':
                std::fputs(UsageText().c_str(), stdout);
                return 0;
            case 'V':
                std::printf("linxpeer %s\n", PROJECT_VERSION_TEXT);
                return 0;
            default:
                return BadUsage("unknown option");
        }
    }
    if (argc - optind > 1) {
        return BadUsage("one scenario at most");
    }
    const bool hasScenario = optind < argc;
    if (!replayPath.empty() && (hasScenario || playVehicle)) {
        return BadUsage("--replay plays a capture alone, without a scenario or --vehicle");
    }
    if (!hasScenario && !playVehicle && roles.empty() && replayPath.empty()) {
        return BadUsage(
            "nothing to play: give a scenario, --name, --process, --vehicle or --replay");
    }

    Capture capture;
    std::string captureError;
    if (!capturePath.empty() && !capture.Open(capturePath, captureError)) {
        return BadUsage(captureError);
    }
    Peer peer;
    Scenario scenario(peer, timeoutMs);
    for (const std::string& role : roles) {
        std::string error;
        if (peer.Open(role, error) == nullptr) {
            std::printf("error: %s\n", error.c_str());
            return Scenario::kError;
        }
    }
    if (playVehicle && !vehicle::AddSetup(scenario)) {
        return Scenario::kError;
    }
    if (hasScenario) {
        const std::string source = argv[optind];
        bool ok;
        if (source == "-") {
            ok = scenario.Add(std::cin, "stdin");
        } else {
            std::ifstream file(source);
            if (!file) {
                return BadUsage("cannot read " + source);
            }
            ok = scenario.Add(file, source);
        }
        if (!ok) {
            return Scenario::kError;
        }
    }
    InstallSignals();
    if (!replayPath.empty()) {
        return replay::Run(peer, replayPath, speed, timeoutMs);
    }
    const Scenario::Result result = scenario.Run();
    if (result != Scenario::kPassed || hasScenario) {
        std::printf("%s\n", result == Scenario::kPassed ? "passed" : "failed");
        return result;
    }
    std::printf("serving until signalled\n");
    while (peer.Pump(1000)) {
    }
    return 0;
}
