// Where the records of each pass of a draws log lie in the store. The simulator writes last in
// its loop pass, after the one message the loop took, one group of a fixed shape: the six
// inputs with the pass's tick, in their order; the GPS (its state with a fix, the position and
// the speed with the tick; or its state without a fix and the speed marked invalid); the four
// microphones (present, state) with the tick; a bookmark with the tick when its draw says so;
// the radar (its state and a reading without a tick; or its state off and the speed marked
// invalid). Radar only, the radar group alone. So a pass's records are the first group of that
// shape (with the pass's tick) after the records of the pass before it, and what lies between
// two passes is the message that woke the loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "traffic/DrawsLog.h"
#include "traffic/TrafficRecords.h"

struct PassRecords {
    std::size_t first = 0;  // its first record
    std::size_t count = 0;
};

// A pass's records are looked for this far after the pass before: past the longest message
// (a microphone list) and the filler of FORCE_METADATA.
const std::size_t kPassSearch = 256;

// The records of `pass`, the first group at or after record k; false, with `error`, when there
// is none within kPassSearch records.
bool FindPassRecords(const RecWindow& recs, std::size_t k, bool radarOnly, const LoggedPass& pass,
                     PassRecords& found, std::string& error);

// Every pass of `log` found in the store at `path`, `log` read to its end; false with `error`
// at the first pass whose records are not there.
bool CheckPassRecords(const std::string& path, DrawsLog& log, std::string& error);
