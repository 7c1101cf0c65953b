// The report's time axis: the store's ticks, labelled as seconds from the first record, and as
// wall-clock time once the store holds an anchor that ties a tick to the real-time clock.
#pragma once

#include <cstdint>
#include <string>

#include "JournalFormat.h"
#include "reading/TimeAnchors.h"

namespace report {

class AxisClock {
public:
    // Every record of the store, oldest first: where anchors are picked up.
    void See(const mdj::RecordView& record);
    // The UTC time of `tick` as "2026-11-23T17:45:01.250Z"; false while no anchor is known.
    bool Utc(std::uint32_t tick, std::string& text) const;

private:
    timeanchor::TimeAnchors anchors_;
};

// The axis label of `tick`: "17:45:01" when its UTC time is known, else seconds after `first`
// ("+12 s", "+2 min 5 s" for long spans).
std::string AxisLabel(const AxisClock& clock, std::uint32_t first, std::uint32_t tick);
// The full time of `tick` for tooltips and headings: UTC with the tick, or the tick alone.
std::string LongTime(const AxisClock& clock, std::uint32_t first, std::uint32_t tick);

}  // namespace report
