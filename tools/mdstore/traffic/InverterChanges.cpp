// The changes after subscription, by record family, as the notices and requests that made them.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "Item.h"
#include "RecordSchema.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"
#include "traffic/Inverter.h"

namespace traffic {

// An input, crash, recording or covert-mode state: the notice that made it.
std::size_t Inverter::StateChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    Bytes raw;
    if (!rec.v.flag) {
        return 0;
    }
    if (InputIndex(tag) >= 0) {
        // Inputs changed together: one notice, reported in table order with one tick.
        std::size_t count = 1;
        while (Is(k + count, mdj::kOpReportStateData, true) &&
               InputIndex(recs_[k + count].U(0)) > InputIndex(recs_[k + count - 1].U(0)) &&
               recs_[k + count].U(1) == rec.U(1)) {
            ++count;
        }
        FpgaExternalEventItem item;
        item.inputLevels = levels_;
        InputsAt(k, count, item);
        levels_ = item.inputLevels;
        out_.Sent("FpgaHal", 13497, Encoded(item));
        return count;
    }
    if (tag == e_Tag_CrashDetected || tag == e_Tag_CrashCleared) {
        CrashItem item;
        item.crash = tag == e_Tag_CrashDetected;
        item.tick = rec.U(1);
        out_.Sent("AccelHal", 13512, Encoded(item));
        return 1;
    }
    if (tag == e_Tag_RecordingStarted && rec.U(1) == 0) {
        // The state manager's start with tick 0 is dropped; the direct message is not.
        Put(raw, 0u);
        raw.push_back(1);
        out_.Sent("Cli", 13503, raw);
        return 1;
    }
    // Record start, stop, covert mode entered, left: the state manager's items 1-4.
    static const unsigned int kStateTags[] = {e_Tag_RecordingStarted, e_Tag_RecordingStopped, 58,
                                              59};
    for (unsigned int i = 0; i < 4; ++i) {
        if (tag == kStateTags[i]) {
            out_.Sent("StateMgr", 13505 + i, Encoded(SystickItem(rec.U(1))));
            return 1;
        }
    }
    return 0;
}

// A microphone present and its state: the direct message, or the manager's status item.
std::size_t Inverter::MicChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    Bytes raw;
    if (!Is(k + 1, mdj::kOpReportMicState, rec.v.flag) || !rec.v.flag || recs_[k + 1].U(0) != tag ||
        recs_[k + 1].U(2) != rec.U(2)) {
        return 0;
    }
    if (tag > 3) {
        // Beyond what the direct message accepts: the manager's status item.
        MicStatusResponse item;
        const std::size_t count = Mics(k, true, item);
        out_.Sent("MicMgr", 13511, Encoded(item));
        return count;
    }
    Put(raw, rec.U(2));
    Put(raw, tag);
    raw.push_back(static_cast<unsigned char>(rec.U(1)));
    raw.push_back(static_cast<unsigned char>(recs_[k + 1].U(1)));
    out_.Sent("Cli", 13502, raw);
    return 2;
}

// A live stream's state: the external manager's item for that stream.
std::size_t Inverter::LvsChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    if (!rec.v.flag || tag > 5) {
        return 0;
    }
    // The handler stamps it with the process's own last tick: set the clock and let
    // a loop pass read it first (in a simulated drive the pass before did).
    if (draws_ == nullptr) {
        out_.Tick(rec.U(6));
        out_.Ping();
    }
    ExternalMgrApi::StreamingLvsStateItem item;
    item.SetCamera(static_cast<unsigned short>(rec.U(1)));
    item.SetHighQuality(rec.U(2) != 0);
    item.SetEnabled(rec.U(3) != 0);
    // The number inet_addr gave, back to the text it came from on this machine.
    in_addr address;
    address.s_addr = htonl(rec.U(4));  // stored as the address's bytes in network order
    item.SetAddress(address.s_addr == INADDR_NONE ? "" : inet_ntoa(address));
    item.SetPort(static_cast<unsigned short>(rec.U(5)));
    out_.Sent("ExternalMgr", 18952 + tag, Encoded(item));
    return 1;
}

std::size_t Inverter::Change(std::size_t k) {
    const Rec& rec = recs_[k];
    Bytes raw;
    switch (rec.op) {
        case mdj::kOpReportStateData:
            return StateChange(k);
        case mdj::kOpReportBookmark:
            Put(raw, rec.U(0));
            out_.Sent("Cli", 13509, raw);
            return 1;
        case mdj::kOpReportGpsState: {
            GpsStatusItem item;
            const std::size_t count = Gps(k, true, item);
            if (count > 0) {
                out_.Sent("GpsHal", 13504, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportRadarState: {
            RadarItem item;
            const std::size_t count = Radar(k, true, item);
            if (count > 0) {
                out_.Sent("RadarHal", 13510, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportMicPresent:
            return MicChange(k);
        case mdj::kOpReportTemp: {
            TempStatus item;
            const std::size_t count = Temps(k, true, item);
            if (count > 0) {
                out_.Sent("TempHal", 13515, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportVideoStreamState:
        case mdj::kOpReportCameraState:
            if (!rec.v.flag) {
                return 0;
            }
            // A camera item's four ports and the direct message store alike; the direct
            // message takes one port at a time.
            Put(raw, rec.U(2));
            Put(raw, rec.U(0));
            Put(raw, rec.U(1));
            out_.Sent("Cli", rec.op == mdj::kOpReportCameraState ? 13501 : 13500, raw);
            return 1;
        case mdj::kOpReportStreamQualityItem: {
            if (!rec.v.flag) {
                return 0;
            }
            out_.Sent("VideoMgr", 13514, Encoded(StreamQualityItem(rec)));
            return 1;
        }
        case mdj::kOpReportLvsState:
            return LvsChange(k);
        default:
            return Config(k, true, false);
    }
}

}  // namespace traffic
