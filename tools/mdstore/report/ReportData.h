// What the drive report draws, gathered in one pass over a store: the GPS track, the speeds,
// and one lane per state (recording, covert mode, each input, crash, each microphone and
// camera, bookmarks), all on the records' ticks.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "report/ReportClock.h"

namespace report {

// A lane's value from `tick` on, until the next change; 0 draws nothing (off, absent).
struct Change {
    std::uint32_t tick = 0;
    int value = 0;
};

enum class LaneKind { kOnOff, kMicrophone, kCamera, kMarks };

struct Lane {
    std::string name;
    LaneKind kind = LaneKind::kOnOff;
    std::vector<Change> changes;  // kMarks: one per mark, value 1
};

struct TrackPoint {
    std::uint32_t tick = 0;
    double latitude = 0;   // decimal degrees, south negative
    double longitude = 0;  // decimal degrees, west negative
    bool hasSpeed = false;
    long speed = 0;  // the GPS speed reported with the position
};

struct SpeedSample {
    std::uint32_t tick = 0;
    long speed = 0;
};

struct Drive {
    bool anyTime = false;
    std::uint32_t first = 0;  // the axis: the smallest and largest record time
    std::uint32_t last = 0;
    std::vector<TrackPoint> track;
    std::map<unsigned, std::vector<SpeedSample>> speeds;  // per source: 1 GPS, 2 radar
    std::vector<Lane> lanes;                              // top to bottom
    std::vector<std::uint32_t> bookmarks;
};

// Reads the store (or one file) at `path`; false when there is nothing to read. `clock` sees
// every record.
bool ReadDrive(const std::string& path, Drive& out, AxisClock& clock);

}  // namespace report
