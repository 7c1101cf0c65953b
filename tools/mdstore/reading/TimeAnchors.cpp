#include "reading/TimeAnchors.h"

#include <cctype>
#include <cstdio>
#include <ctime>

#include "BigEndian.h"
#include "RecordSchema.h"

namespace timeanchor {

namespace {

const long long kEarliestSeconds = 1577836800LL;  // 2020-01-01
const long long kLatestSeconds = 4291747200LL;    // 2106-01-01, the end of 32-bit seconds

// The TimeAnchor body: utcSeconds u32, utcMilliseconds u16, tick u32, reason u8.
bool ParseAnchor(const unsigned char* body, std::size_t size, long long& utcMs,
                 std::uint32_t& tick) {
    mdj::BodyReader in(body, size);
    std::uint32_t seconds = 0;
    std::uint16_t millis = 0;
    std::uint8_t reason = 0;
    if (!in.U32(seconds) || !in.U16(millis) || !in.U32(tick) || !in.U8(reason) || millis > 999) {
        return false;
    }
    utcMs = static_cast<long long>(seconds) * 1000 + millis;
    return true;
}

// The anchor entry of a snapshot body (force, cause, count, then type/length/body entries).
bool SnapshotAnchor(const unsigned char* body, std::size_t size, long long& utcMs,
                    std::uint32_t& tick) {
    mdj::BodyReader in(body, size);
    std::uint8_t force = 0;
    std::uint8_t cause = 0;
    std::uint16_t count = 0;
    if (!in.U8(force) || !in.U8(cause) || !in.U16(count)) {
        return false;
    }
    for (unsigned i = 0; i < count; ++i) {
        std::uint8_t op = 0;
        std::uint16_t length = 0;
        const unsigned char* entry = nullptr;
        if (!in.U8(op) || !in.U16(length) || !in.Bytes(entry, length)) {
            return false;
        }
        if (op == mdj::kOpTimeAnchor) {
            return ParseAnchor(entry, length, utcMs, tick);
        }
    }
    return false;
}

// A fix whose receiver gave a UTC time (whole seconds) is dated by the record's own tick. Read
// in place, as every fix of a drive passes here: the item opens the body, fixStatus 36 and
// utcTime 56 bytes into it (the order of the GPS item's fields in RecordSchema).
bool GpsAnchor(const mdj::RecordView& record, long long& utcMs, std::uint32_t& tick) {
    mdj::BodyReader in(record.body, record.size);
    const unsigned char* skipped = nullptr;
    std::uint32_t fix = 0;
    std::uint32_t seconds = 0;
    if (!in.Bytes(skipped, 36) || !in.U32(fix) || !in.Bytes(skipped, 16) || !in.U32(seconds) ||
        fix == 0 || fix == 7 || !PlausibleUtcSeconds(seconds)) {
        return false;
    }
    tick = mdj::RecordTime(record.op, record.stamp, record.body, record.size);
    utcMs = static_cast<long long>(seconds) * 1000;
    return tick != 0;
}

}  // namespace

bool PlausibleUtcSeconds(long long seconds) {
    return seconds >= kEarliestSeconds && seconds < kLatestSeconds;
}

bool TimeAnchors::Note(const mdj::RecordView& record) {
    long long utcMs = 0;
    std::uint32_t tick = 0;
    bool found = false;
    if (record.op == mdj::kOpTimeAnchor) {
        found = ParseAnchor(record.body, record.size, utcMs, tick);
    } else if (record.op == mdj::kOpWriteFullState) {
        found = SnapshotAnchor(record.body, record.size, utcMs, tick);
    } else if (record.op == mdj::kOpReportGps) {
        found = GpsAnchor(record, utcMs, tick);
    }
    if (found) {
        have_ = true;
        utcMs_ = utcMs;
        tick_ = tick;
    }
    return found;
}

bool TimeAnchors::Utc(std::uint32_t tick, long long& utcMs) const {
    if (!have_ || tick == 0xFFFFFFFFu) {
        return false;
    }
    // Signed difference: ticks on either side of the anchor, across a wrap of the counter.
    utcMs = utcMs_ + static_cast<std::int32_t>(tick - tick_);
    return true;
}

bool TimeAnchors::RecordUtc(const mdj::RecordView& record, long long& utcMs) const {
    const std::uint32_t time = mdj::RecordTime(record.op, record.stamp, record.body, record.size);
    if (time == 0 && record.stamp == 0xFFFFFFFFu) {
        return false;
    }
    return Utc(time, utcMs);
}

std::string FormatUtc(long long utcMs) {
    const long long seconds = utcMs >= 0 ? utcMs / 1000 : (utcMs - 999) / 1000;
    const std::time_t whole = static_cast<std::time_t>(seconds);
    struct tm parts;
    char text[48];
    if (gmtime_r(&whole, &parts) == nullptr) {
        return "";
    }
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(utcMs - seconds * 1000));
    return text;
}

bool ParseUtc(const std::string& text, long long& utcMs) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
    char separator = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d%n", &year, &month, &day, &separator, &hour,
                    &minute, &used) != 6 ||
        (separator != 'T' && separator != ' ')) {
        return false;
    }
    std::size_t pos = static_cast<std::size_t>(used);
    int millis = 0;
    if (pos < text.size() && text[pos] == ':') {
        if (pos + 3 > text.size() || !std::isdigit(static_cast<unsigned char>(text[pos + 1])) ||
            !std::isdigit(static_cast<unsigned char>(text[pos + 2]))) {
            return false;
        }
        second = (text[pos + 1] - '0') * 10 + (text[pos + 2] - '0');
        pos += 3;
        if (pos < text.size() && text[pos] == '.') {
            int scale = 100;
            for (++pos; pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]));
                 ++pos, scale /= 10) {
                millis += (text[pos] - '0') * scale;
            }
        }
    }
    if (pos < text.size() && text[pos] == 'Z') {
        ++pos;
    }
    if (pos != text.size() || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
        minute > 59 || second > 60) {
        return false;
    }
    struct tm parts = {};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    utcMs = static_cast<long long>(timegm(&parts)) * 1000 + millis;
    return true;
}

}  // namespace timeanchor
