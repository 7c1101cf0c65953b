// What a bench engineer wants to know about a store at a glance, gathered in one pass over its
// records: segments, tick range, counts per operation, GPS track extent, speeds, inputs,
// recordings, bookmarks, radar, microphones, temperatures, video states, configuration,
// shutdowns and damage. Snapshot entries repeat earlier records and are not counted again.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "JournalReader.h"

namespace summary {

// Smallest and largest of a series of numbers.
struct Range {
    unsigned long long count = 0;
    long long min = 0;
    long long max = 0;
    void Add(long long value);
};

// One GPS coordinate as the receiver gives it: degrees, minutes, minute fraction (ten
// thousandths) and the hemisphere letter.
struct Coordinate {
    std::uint32_t degrees = 0;
    std::uint32_t minutes = 0;
    std::uint32_t fraction = 0;
    char hemisphere = '?';
    // Signed position in ten thousandths of a minute; south and west are negative.
    long long Signed() const;
    std::string Text() const;
};

struct CoordinateRange {
    bool any = false;
    Coordinate min;
    Coordinate max;
    void Add(const Coordinate& value);
};

struct OnOff {
    unsigned long long on = 0;
    unsigned long long off = 0;
};

struct Segment {
    std::string path;
    std::uint32_t number = 0;
    unsigned long long bytes = 0;
    unsigned long long records = 0;
};

struct StartupRecord {
    bool seen = false;
    bool previousRunFound = false;
    bool clean = false;
    std::uint32_t lastTick = 0;
};

struct Damage {
    std::string place;
    unsigned long long bytes = 0;
};

// "gps" for speed source 1, "radar" for 2.
const char* SourceName(unsigned source);

// Input names in the order the FPGA process reports them.
const unsigned kInputCount = 6;
extern const char* const kInputNames[kInputCount];
// The input that a ReportStateData tag belongs to, and whether it means on; -1 for others.
int InputOfTag(long long tag, bool& on);

struct StoreSummary {
    std::string path;
    std::vector<Segment> segments;
    unsigned long long bytes = 0;
    unsigned long long records = 0;
    // The ticks the records carry (their own tick, else the store's tick when written).
    bool anyTick = false;
    std::uint32_t firstTick = 0;
    std::uint32_t lastTick = 0;
    // The store's own clock ("at") over the records written while it had a tick: the time
    // the store was recording, whatever ticks the senders put in their events.
    bool anyAt = false;
    std::uint32_t firstAt = 0;
    std::uint32_t lastAt = 0;
    std::map<std::string, unsigned long long> perOp;

    OnOff gpsStates;  // ReportGpsState valid / invalid
    unsigned long long gpsPositions = 0;
    CoordinateRange latitude;
    CoordinateRange longitude;
    std::map<unsigned, Range> speeds;                      // per source: 1 GPS, 2 radar
    std::map<unsigned, unsigned long long> invalidSpeeds;  // ReportValidSpeed false per source
    OnOff radarStates;
    unsigned long long radarReadings = 0;
    Range radarSpeeds[3];  // speedA, speedB, speedC

    OnOff inputs[kInputCount];                          // live reports (flag true)
    unsigned long long inputToggles[kInputCount] = {};  // level changes, any report
    OnOff recordings;                                   // tags 70 / 71
    OnOff covert;                                       // tags 58 / 59
    OnOff crash;                                        // tags 66 / 67
    unsigned long long bookmarks = 0;
    Range bookmarkTicks;

    std::map<unsigned, OnOff> micPresent;  // per microphone
    std::map<unsigned, OnOff> micActive;
    std::map<unsigned, Range> temperatures;                                   // per sensor
    std::map<unsigned, std::map<unsigned, unsigned long long>> cameraStates;  // port -> state
    std::map<unsigned, std::map<unsigned, unsigned long long>> streamStates;  // stream -> state
    unsigned long long streamQuality = 0;
    std::map<unsigned, OnOff> lvsEnabled;                     // per LVS stream
    std::map<std::string, unsigned long long> configuration;  // per configuration record

    unsigned long long shutdowns = 0;
    bool lastRecordShutdown = false;  // the last record read is ReportShutdownData
    StartupRecord startup;            // the most recent ReportShutdownDataAtStartup
    std::vector<Damage> damage;
    unsigned long long damageBytes = 0;

    double DurationSeconds() const;
};

// Reads the store (or one file) at `path`; false when there is nothing to read.
bool Summarize(const std::string& path, StoreSummary& out);

void PrintText(const StoreSummary& summary, std::string& out);
void PrintJson(const StoreSummary& summary, std::string& out);

}  // namespace summary
