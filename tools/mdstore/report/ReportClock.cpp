#include "report/ReportClock.h"

#include <cstdio>

namespace report {

void AxisClock::See(const mdj::RecordView& record) {
    anchors_.Note(record);
}

bool AxisClock::Utc(std::uint32_t tick, std::string& text) const {
    long long utcMs = 0;
    if (!anchors_.Utc(tick, utcMs)) {
        text.clear();
        return false;
    }
    text = timeanchor::FormatUtc(utcMs);
    return true;
}

std::string AxisLabel(const AxisClock& clock, std::uint32_t first, std::uint32_t tick) {
    std::string utc;
    if (clock.Utc(tick, utc) && utc.size() >= 19) {
        return utc.substr(11, 8);
    }
    const double seconds = (tick - first) / 1000.0;
    char text[48];
    if (seconds >= 120) {
        const unsigned long whole = static_cast<unsigned long>(seconds);
        std::snprintf(text, sizeof text, "+%lu min %lu s", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "+%g s", seconds);
    }
    return text;
}

std::string LongTime(const AxisClock& clock, std::uint32_t first, std::uint32_t tick) {
    std::string utc;
    char text[96];
    if (clock.Utc(tick, utc)) {
        std::snprintf(text, sizeof text, "%s (tick %u)", utc.c_str(), tick);
    } else {
        std::snprintf(text, sizeof text, "+%.1f s (tick %u)", (tick - first) / 1000.0, tick);
    }
    return text;
}

}  // namespace report
