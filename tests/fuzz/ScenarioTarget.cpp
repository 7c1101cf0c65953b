// linxpeer's scenario language: each line of the input is read as a step and run by a fresh
// peer in the private domain, its roles sending to each other. A stop is requested first, as
// SIGINT would, so every wait of a step ends after one pass: each step runs at once.
#include "FuzzSupport.h"
#include "Peer.h"
#include "Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Root();
    Peer::RequestStop();
    Peer peer;
    const std::vector<std::string> lines = fuzz::Split(data, size, "\n");
    for (std::size_t i = 0; i < lines.size() && i < 64; ++i) {
        Scenario scenario(peer, 0);
        if (scenario.AddLine(lines[i], "fuzz", static_cast<int>(i + 1))) {
            scenario.Run();
        }
        peer.Pump(0);
    }
    return 0;
}
