// linxpeer's capture files, replayed by a fresh peer in the private domain as fast as it goes.
// An input without the capture's first line gets this machine's, so the seeds serve both byte
// orders. A stop is requested first, as SIGINT would: a message that has not come yet ends the
// replay at once instead of being waited for.
#include <cstdlib>
#include <string>

#include "Capture.h"
#include "FuzzSupport.h"
#include "Peer.h"
#include "Replay.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = fuzz::Path("capture");
    ::setenv("HOST_SYSTICK_FILE", fuzz::Path("tick").c_str(), 1);
    std::string text(reinterpret_cast<const char*>(data), size);
    if (text.compare(0, 16, Capture::kMagic) != 0) {
        text = std::string(Capture::kMagic) + " 1 " + Capture::NativeOrder() + "\n" + text;
    }
    fuzz::WriteFile(path, text.data(), text.size());
    Peer::RequestStop();
    Peer peer;
    replay::Run(peer, path, 0, 0);
    return 0;
}
