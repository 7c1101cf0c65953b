// Steps that check what a process leaves in the domain: its watchdog heartbeat and the shared
// metadata block.
#include "Scenario.h"

#include <cstdio>

#include "HostInspect.h"

Scenario::Result Scenario::WatchdogStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    if (options.rest.size() != 2) {
        return Error("usage: watchdog PROCESS alive|expired|absent");
    }
    const std::string& wanted = options.rest[1];
    if (wanted != "alive" && wanted != "expired" && wanted != "absent") {
        return Error("watchdog state must be alive, expired or absent");
    }
    e_Process process;
    Peer::ResolveName(options.rest[0], process);
    hostinspect::WatchdogStatus status;
    std::string state;
    auto holds = [&] {
        status = hostinspect::WatchdogStatus();
        const bool found = hostinspect::ReadWatchdog(process, e_Thread_Main, status);
        state = !found || !status.subscribed ? "absent" : status.expired ? "expired" : "alive";
        return state == wanted;
    };
    if (WaitFor(options.within >= 0 ? options.within : withinMs_, holds)) {
        return kPassed;
    }
    return Fail("watchdog of " + options.rest[0] + " is " + state + " (time-out " +
                std::to_string(status.timeoutSeconds) + " s, " + std::to_string(status.petCount) +
                " pets)");
}

Scenario::Result Scenario::ShmStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    std::vector<codec::Check> checks(options.rest.size());
    for (std::size_t i = 0; i < checks.size(); ++i) {
        if (!codec::ParseCheck(options.rest[i], checks[i], error_)) {
            return kError;
        }
    }
    Bytes block;
    std::string failed;
    auto holds = [&] {
        unsigned char raw[MetadataSharedMem::kBlockSize];
        block.clear();
        if (hostinspect::ReadSharedBlock(raw)) {
            block.assign(raw, raw + sizeof raw);
        }
        failed.clear();
        for (const codec::Check& check : checks) {
            if (!codec::Holds(check, block, NamedValues())) {
                failed += " " + check.text;
            }
        }
        return !block.empty() && failed.empty();
    };
    if (WaitFor(options.within >= 0 ? options.within : withinMs_, holds)) {
        return kPassed;
    }
    if (block.empty()) {
        return Fail("there is no shared block in this domain");
    }
    return Fail("does not hold:" + failed + "\n  block: " + codec::Hex(block, 96));
}
