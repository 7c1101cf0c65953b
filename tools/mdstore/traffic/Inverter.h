// The inverter: a drive's records turned back, in store order, into the messages that wrote
// them. Subscribe (InverterSubscribe.cpp) serves each server's items as reported at
// subscription; the changes after it (InverterChanges.cpp) become notices and requests; the run
// (InverterRun.cpp) walks the drive, change by change or, for a simulated drive, loop pass by
// loop pass with the simulator's draws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "HalItems.h"
#include "MicItems.h"
#include "VideoMgrItems.h"
#include "traffic/CaptureWriter.h"
#include "traffic/DrawsLog.h"
#include "traffic/TrafficRecords.h"

namespace traffic {

// No end given: the records run on to the end of the drive.
const std::size_t kNoLimit = static_cast<std::size_t>(-1);

// A stream quality record as the item it was reported from (InverterSubscribe.cpp).
VideoMgrStreamQualityItem StreamQualityItem(const Rec& rec);

class Inverter {
public:
    // `draws` null: a drive without the simulator's draws.
    Inverter(RecWindow& recs, DrawsLog* draws, CaptureWriter& out)
        : recs_(recs), draws_(draws), out_(out) {}

    // Returns the number of records that no traffic reproduces exactly.
    int Run();

private:
    // Records beyond `limit_` belong to what comes next: no message takes them.
    bool Is(std::size_t k, std::uint8_t op, bool flag) const {
        return k < limit_ && RecIs(recs_, k, op, flag);
    }
    void Lost(std::size_t k, const char* why) {
        out_.Comment(std::string(why) + ": record " + std::to_string(recs_.Raw(k).number) + " " +
                     recs_.Raw(k).Text());
        ++lost_;
    }

    // Subscription: each reads the values its server reported at subscription, if there.
    void Subscribe();
    std::size_t Config(std::size_t k, bool flag, bool serve);
    void InputsAt(std::size_t k, std::size_t count, FpgaExternalEventItem& item) const;
    std::size_t Gps(std::size_t k, bool flag, GpsStatusItem& item);
    std::size_t Radar(std::size_t k, bool flag, RadarItem& item);
    std::size_t Mics(std::size_t k, bool flag, MicStatusResponse& item) const;
    std::size_t Temps(std::size_t k, bool flag, TempStatus& item) const;
    // A change from the records at k: the number of records its traffic produces (0: none).
    std::size_t Change(std::size_t k);
    std::size_t StateChange(std::size_t k);
    std::size_t MicChange(std::size_t k);
    std::size_t LvsChange(std::size_t k);
    // Every change, each at its own time, then the quit.
    void RunChanges();
    // A simulated drive, loop pass by loop pass: before each, the one message (or a ping) that
    // the loop received, then the process's own simulated records.
    void RunPasses();
    // The records [k, end) as the one message that wrote them; returns how many it took.
    unsigned long Message(std::size_t k, std::size_t end);
    // The end of the drive when it is near enough after k to matter to Message, else kNoLimit.
    std::size_t TailEnd(std::size_t k) const;
    // Records one message writes that are otherwise sent one by one: a camera item's four
    // ports, a microphone list.
    bool OneItem(std::size_t k, std::size_t end);

    RecWindow& recs_;
    DrawsLog* draws_;
    CaptureWriter& out_;
    std::size_t limit_ = kNoLimit;
    std::size_t next_ = 0;
    unsigned int levels_ = 0;  // the inputs' levels as the last notice left them
    int lost_ = 0;
};

}  // namespace traffic
