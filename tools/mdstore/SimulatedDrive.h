// The loop passes of a drive that the process simulated (MetadataMgr -s, or -s -r). Every pass
// of the simulator writes one fixed group of records: the six inputs, the GPS, the four
// microphones, maybe a bookmark, the radar (or the radar alone). Found here, together with the
// draws that make the simulator write every group again. What the groups do not show (a move
// while the GPS has no fix, a radar counter stepped while the radar is off) is placed where the
// next group that shows it says it must have happened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "TrafficRecords.h"

struct SimulatedPass {
    std::size_t first = 0;  // its first record
    std::size_t count = 0;
    std::uint32_t tick = 0;  // the clock the pass read
};

class SimulatedDrive {
public:
    // Reads the store at `path` for the simulator's passes (none: the drive is not simulated)
    // and counts its process runs. False when nothing there is readable.
    bool Find(const std::string& path, int& runs);
    bool Simulated() const { return passes_ > 0; }
    bool RadarOnly() const { return radarOnly_; }
    std::size_t PassCount() const { return passes_; }
    // The first pass at or after record k; false when there is none.
    bool NextPass(const RecWindow& recs, std::size_t k, SimulatedPass& pass) const;
    // The draws, in the order the simulator takes them (as rand() gives them), that make it
    // write every pass again, one per line to `out`. False, with `error`, at the first pass it
    // cannot have written.
    bool Draws(const std::string& path, std::FILE* out, std::string& error) const;

private:
    // The pass at record k, if one starts there.
    bool PassAt(const RecWindow& recs, std::size_t k, SimulatedPass& pass) const;

    std::size_t passes_ = 0;
    bool radarOnly_ = false;
};

// The draws worked out so far. A draw of a pass that showed nothing (no fix, radar off) is
// settled only by a later pass; every draw before the oldest unsettled one is written out and
// let go.
class DrawLog {
public:
    explicit DrawLog(std::FILE* out) : out_(out) {}
    void push_back(int draw) { held_.push_back(draw); }
    std::size_t size() const { return base_ + held_.size(); }
    int& operator[](std::size_t index) { return held_[index - base_]; }
    // Writes out every draw before `index`.
    void Settle(std::size_t index);

private:
    std::FILE* out_;
    std::deque<int> held_;
    std::size_t base_ = 0;  // the index of held_.front()
};
