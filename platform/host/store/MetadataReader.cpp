#include "MetadataReader.h"

#include "PendingWrites.h"
#include "RangeCopy.h"
#include "Watchdog.h"

namespace {

// A long copy runs inside one handler of the process; petting from here keeps the watchdog
// from expiring while it works.
class WatchdogProgress : public mdj::CopyProgress {
public:
    explicit WatchdogProgress(Watchdog* watchdog) : watchdog_(watchdog) {}
    void Working(unsigned long long, unsigned long long) override {
        if (watchdog_ != nullptr) {
            watchdog_->PetWatchdog();
        }
    }

private:
    Watchdog* watchdog_;
};

}  // namespace

MetadataReader::MetadataReader() = default;

bool MetadataReader::ReadToNewFile(const std::string& source, const std::string& destination,
                                   unsigned int first, unsigned int second, Watchdog* watchdog) {
    // Records this process reported and still holds for its next batch belong in the copy.
    hostsystem::WritePending();
    WatchdogProgress progress(watchdog);
    return mdj::CopyRange(source, destination, first, second, &progress);
}
