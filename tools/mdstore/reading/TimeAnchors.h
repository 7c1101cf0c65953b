// Wall-clock time for system ticks. The store writes time anchors (the real-time clock beside
// the tick of the same instant); a GPS fix with a UTC time serves as one too. A tick is dated
// by the latest anchor read before it, so a reader going through a store in order dates every
// record as it goes.
#pragma once

#include <cstdint>
#include <string>

#include "JournalFormat.h"

namespace timeanchor {

class TimeAnchors {
public:
    // Takes the anchor `record` carries: a TimeAnchor, the one inside a snapshot, or a GPS fix
    // with a UTC time. True when it did.
    bool Note(const mdj::RecordView& record);
    // Milliseconds since 1970-01-01 UTC of `tick`; false without an anchor.
    bool Utc(std::uint32_t tick, long long& utcMs) const;
    // The same for a record's time (its own tick, else the store's); false when the record
    // has no tick at all.
    bool RecordUtc(const mdj::RecordView& record, long long& utcMs) const;
    bool Any() const { return have_; }

private:
    bool have_ = false;
    long long utcMs_ = 0;
    std::uint32_t tick_ = 0;
};

// "2026-11-23T17:45:01.250Z"
std::string FormatUtc(long long utcMs);
// Takes "YYYY-MM-DDTHH:MM[:SS[.fff]][Z]" (a blank for the T too); false for anything else.
bool ParseUtc(const std::string& text, long long& utcMs);
// True for a UTC in seconds a clock or receiver could really have given (2020 to 2105).
bool PlausibleUtcSeconds(long long seconds);

}  // namespace timeanchor
