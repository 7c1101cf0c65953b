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

// What the command line asks for.
struct Options {
    std::vector<std::string> roles;
    bool playVehicle = false;
    int timeoutMs = 5000;
    std::string capturePath;
    std::string replayPath;
    double speed = 1;
    const char* scenario = nullptr;  // a file, or "-" for standard input
};

// Not an exit code: the command line is read and the peer goes on.
const int kGoOn = -1;

// Reads one option into `options`: kGoOn, or the exit code (--help, --version, bad usage).
int ReadOption(int option, Options& options) {
    switch (option) {
        case 'n':
        case 'p':
            options.roles.push_back(optarg);
            return kGoOn;
        case 'v':
            options.playVehicle = true;
            return kGoOn;
        case 't':
            if (!codec::ParseNumber(optarg, options.timeoutMs) || options.timeoutMs < 0) {
                return BadUsage("--timeout needs milliseconds");
            }
            return kGoOn;
        case 'c':
            options.capturePath = optarg;
            return kGoOn;
        case 'r':
            options.replayPath = optarg;
            return kGoOn;
        case 'x': {
            const bool max = std::string(optarg) == "max";
            char* end = optarg;
            options.speed = max ? 0 : std::strtod(optarg, &end);
            if (!max && (end == optarg || *end != '\0' || !(options.speed > 0))) {
                return BadUsage("--speed needs a factor above 0, or max");
            }
            return kGoOn;
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

// Reads the command line into `options` and checks that it asks for one thing to play:
// kGoOn, or the exit code.
int ParseOptions(int argc, char** argv, Options& options) {
    static const option kOptions[] = {
        {"name", required_argument, nullptr, 'n'},    {"process", required_argument, nullptr, 'p'},
        {"vehicle", no_argument, nullptr, 'v'},       {"timeout", required_argument, nullptr, 't'},
        {"help", no_argument, nullptr, 'h'},          {"version", no_argument, nullptr, 'V'},
        {"capture", required_argument, nullptr, 'c'}, {"replay", required_argument, nullptr, 'r'},
        {"speed", required_argument, nullptr, 'x'},   {nullptr, 0, nullptr, 0}};
    int option;
    while ((option = getopt_long(argc, argv, "n:p:vt:hc:r:x:", kOptions, nullptr)) != -1) {
        const int code = ReadOption(option, options);
        if (code != kGoOn) {
            return code;
        }
    }
    if (argc - optind > 1) {
        return BadUsage("one scenario at most");
    }
    options.scenario = optind < argc ? argv[optind] : nullptr;
    const bool hasScenario = options.scenario != nullptr;
    if (!options.replayPath.empty() && (hasScenario || options.playVehicle)) {
        return BadUsage("--replay plays a capture alone, without a scenario or --vehicle");
    }
    if (!hasScenario && !options.playVehicle && options.roles.empty() &&
        options.replayPath.empty()) {
        return BadUsage(
            "nothing to play: give a scenario, --name, --process, --vehicle or --replay");
    }
    return kGoOn;
}

// Opens an endpoint for each role; false, said on stdout, when one cannot be opened.
bool OpenRoles(Peer& peer, const std::vector<std::string>& roles) {
    for (const std::string& role : roles) {
        std::string error;
        if (peer.Open(role, error) == nullptr) {
            std::printf("error: %s\n", error.c_str());
            return false;
        }
    }
    return true;
}

// Adds the steps of the scenario file `source` ("-": standard input); false when it cannot
// be read or is not a scenario.
bool LoadScenario(Scenario& scenario, const std::string& source) {
    if (source == "-") {
        return scenario.Add(std::cin, "stdin");
    }
    std::ifstream file(source);
    if (!file) {
        BadUsage("cannot read " + source);
        return false;
    }
    return scenario.Add(file, source);
}

// Plays what was asked for: the capture, the scenario, or the roles until a signal.
int Play(Peer& peer, Scenario& scenario, const Options& options) {
    if (!options.replayPath.empty()) {
        return replay::Run(peer, options.replayPath, options.speed, options.timeoutMs);
    }
    const Scenario::Result result = scenario.Run();
    if (result != Scenario::kPassed || options.scenario != nullptr) {
        std::printf("%s\n", result == Scenario::kPassed ? "passed" : "failed");
        return result;
    }
    std::printf("serving until signalled\n");
    while (peer.Pump(1000)) {
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Tests read the output while it runs.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Options options;
    const int parsed = ParseOptions(argc, argv, options);
    if (parsed != kGoOn) {
        return parsed;
    }
    Capture capture;
    std::string captureError;
    if (!options.capturePath.empty() && !capture.Open(options.capturePath, captureError)) {
        return BadUsage(captureError);
    }
    Peer peer;
    Scenario scenario(peer, options.timeoutMs);
    if (!OpenRoles(peer, options.roles) || (options.playVehicle && !vehicle::AddSetup(scenario)) ||
        (options.scenario != nullptr && !LoadScenario(scenario, options.scenario))) {
        return Scenario::kError;
    }
    InstallSignals();
    return Play(peer, scenario, options);
}
