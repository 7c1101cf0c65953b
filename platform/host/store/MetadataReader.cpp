#include "MetadataReader.h"

#include "ExportTarget.h"
#include "LogClient.h"
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

const unsigned int kRefusedMask = 2;

}  // namespace

MetadataReader::MetadataReader() = default;

bool MetadataReader::ReadToNewFile(const std::string& source, const std::string& destination,
                                   unsigned int first, unsigned int second, Watchdog* watchdog) {
    LogClient& log = LogClient::Instance();
    mdj::ExportTarget target;
    std::string why = "the range's first tick is after its second";
    if (first > second || !mdj::OpenExportTarget(source, destination, target, why)) {
        if ((log.Level() & kRefusedMask) != 0) {
            LogMsg::Log(kRefusedMask, log.ProcessName())
                << "MetadataReader: copy to \"" << destination << "\" refused: " << why;
        }
        return false;
    }
    // Records this process reported and still holds for its next batch belong in the copy.
    hostsystem::WritePending();
    WatchdogProgress progress(watchdog);
    const bool ok = mdj::CopyRangeInto(source, target.fd, first, second, &progress);
    if (!ok && (log.Level() & kRefusedMask) != 0) {
        LogMsg::Log(kRefusedMask, log.ProcessName())
            << "MetadataReader: copy to " << target.path << " failed; nothing kept";
    }
    mdj::CloseExportTarget(target, ok);
    return ok;
}
