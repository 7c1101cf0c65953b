// The drive walked in store order: change by change, or loop pass by loop pass when simulated.
#include <cstdint>
#include <string>

#include "Item.h"
#include "VideoMgrItems.h"
#include "traffic/Inverter.h"
#include "traffic/PassRecords.h"

namespace traffic {

int Inverter::Run() {
    // The process starts at the drive's first time.
    std::uint32_t start = 0;
    for (std::size_t k = 0; recs_.Has(k) && start == 0; ++k) {
        start = recs_[k].time;
    }
    out_.Tick(start);
    out_.Recv("StateMgr", 13232);
    Bytes flag(1, 1);
    out_.Sent("StateMgr", 13233, flag);
    Subscribe();
    out_.Recv("StateMgr", 13234);
    out_.Sent("StateMgr", 13235, Bytes());
    if (draws_ != nullptr) {
        RunPasses();
    } else {
        RunChanges();
    }
    out_.Sent("StateMgr", kShutdownNotice, Bytes());
    out_.Recv("StateMgr", 13239);
    return lost_;
}

void Inverter::RunChanges() {
    // Changes keep their distances in time; a clock that went back counts as no time.
    const std::uint32_t base = recs_.Has(next_) ? recs_[next_].time : 0;
    unsigned long long ms = 0;
    for (std::size_t k = next_; recs_.Has(k); recs_.Forget(k)) {
        const std::uint32_t time = recs_[k].time;
        if (time - base > ms && time - base < 0x80000000u) {
            ms = time - base;
        }
        out_.At(ms);
        out_.Tick(time);
        const std::size_t count = Change(k);
        if (count == 0) {
            Lost(k, "not invertible (no notice or request produces it here)");
        }
        k += count > 0 ? count : 1;
    }
    out_.Ping();
}

void Inverter::RunPasses() {
    out_.Comment(std::string("simulator ") + (draws_->RadarOnly() ? "-s -r" : "-s"));
    out_.Comment("a simulated drive of " + std::to_string(draws_->Passes()) +
                 " loop passes: each is driven by the message before it (a ping where the "
                 "loop woke without one) and a sync, so that it reads the clock of its records");
    std::uint32_t base = 0;
    unsigned long long ms = 0;
    std::size_t k = next_;
    LoggedPass pass;
    PassRecords found;
    std::string error;  // CheckPassRecords found every pass before
    while (draws_->Next(pass) &&
           FindPassRecords(recs_, k, draws_->RadarOnly(), pass, found, error)) {
        base = pass.number == 1 ? pass.tick : base;
        if (pass.tick - base > ms && pass.tick - base < 0x80000000u) {
            ms = pass.tick - base;
        }
        out_.At(ms);
        out_.Tick(pass.tick);
        // Records after the last pass came from a message that the quit was right behind: no
        // pass followed it. That message and the quit are sent while the last pass still runs,
        // so that both wait in the queue when the loop reads the message.
        const bool quitBehind =
            pass.number == draws_->Passes() && recs_.Has(found.first + found.count);
        if (Message(k, found.first) == 0) {
            if (quitBehind) {
                out_.Sent("Cli", kPing, Bytes());
            } else {
                out_.Ping();
            }
        }
        if (!quitBehind) {
            out_.Sync();
        }
        k = found.first + found.count;
        recs_.Forget(k);
    }
    Message(k, TailEnd(k));
}

std::size_t Inverter::TailEnd(std::size_t k) const {
    // Past the longest message that is one item (a microphone list), no end changes how the
    // records are sent.
    const std::size_t longest = 2 * MicStatusResponse::kMaxEntries + 1;
    std::size_t end = k;
    while (end < k + longest && recs_.Has(end)) {
        ++end;
    }
    return recs_.Has(end) ? kNoLimit : end;
}

unsigned long Inverter::Message(std::size_t k, std::size_t end) {
    const unsigned long before = out_.SentCount();
    limit_ = end;
    if (!OneItem(k, end)) {
        while (k < end && recs_.Has(k)) {
            const std::size_t count = Change(k);
            if (count == 0) {
                Lost(k, "not invertible (no notice or request produces it here)");
            }
            k += count > 0 ? count : 1;
            recs_.Forget(k);
        }
    }
    limit_ = kNoLimit;
    const unsigned long messages = out_.SentCount() - before;
    if (messages > 1) {
        out_.Comment("the " + std::to_string(messages) +
                     " messages above wrote what one message wrote before one loop pass: the "
                     "replay makes a loop pass after each");
        ++lost_;
    }
    return messages;
}

bool Inverter::OneItem(std::size_t k, std::size_t end) {
    if (end - k == 4) {
        VideoMgrCameraItem camera;
        bool ports = true;
        for (std::size_t port = 0; port < 4; ++port) {
            const Rec& rec = recs_[k + port];
            ports = ports && Is(k + port, mdj::kOpReportCameraState, true) && rec.U(0) == port &&
                    rec.U(2) == recs_[k].U(2);
            camera.cameraState[port] = static_cast<e_CameraState>(rec.U(1));
        }
        camera.tick = recs_[k].U(2);
        if (ports) {
            out_.Sent("VideoMgr", 13513, Encoded(camera));
            return true;
        }
    }
    MicStatusResponse mics;
    if (end - k > 2 && Mics(k, true, mics) == end - k) {
        out_.Sent("MicMgr", 13511, Encoded(mics));
        return true;
    }
    return false;
}

}  // namespace traffic
