// The loop passes of a drive that the process simulated (MetadataMgr -s, or -s -r). Every pass
// of the simulator writes one fixed group of records: the six inputs, the GPS, the four
// microphones, maybe a bookmark, the radar (or the radar alone). Found here, together with the
// draws that make the simulator write every group again. What the groups do not show (a move
// while the GPS has no fix, a radar counter stepped while the radar is off) is placed where the
// next group that shows it says it must have happened.
#pragma once

#include <cstddef>
#include <cstdint>
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
    // Finds the simulator's passes among records [from, end); none: the drive is not simulated.
    void Find(const std::vector<Rec>& recs, std::size_t from);
    bool Simulated() const { return !passes_.empty(); }
    bool RadarOnly() const { return radarOnly_; }
    const std::vector<SimulatedPass>& Passes() const { return passes_; }
    // The draws, in the order the simulator takes them (as rand() gives them), that make it
    // write every pass again. False, with `error`, at the first pass it cannot have written.
    bool Draws(const std::vector<Rec>& recs, std::vector<int>& draws, std::string& error) const;

private:
    std::vector<SimulatedPass> passes_;
    bool radarOnly_ = false;
};
