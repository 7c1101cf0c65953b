// What a record means to the people who read it: names for the codes (tags, states, sources),
// dotted IPv4 addresses, N/S/E/W and positions in decimal degrees. cat, export and report
// print these beside the raw fields.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "JournalFormat.h"

namespace meaning {

// One decoded value of a record: printed under `key` after the record's own fields.
struct DecodedField {
    std::string key;   // "tagName", "latitude", ...
    std::string text;  // the value as printed
    bool number;       // a JSON number when true, else a string
};

// A fix's position: decimal degrees, south and west negative.
struct Position {
    double latitude = 0;
    double longitude = 0;
    long long altitude = 0;
    double speed = 0;  // the receiver's speed, whole units (it gives tenths)
};

// The decoded fields of `record` in a fixed order per operation (none when every field
// speaks for itself); false when the record does not decode.
bool Decode(const mdj::RecordView& record, std::vector<DecodedField>& out);
// A short phrase for the record ("brakes on", "camera 1 streaming", "59.325000 N 18.070833 E").
std::string Phrase(const mdj::RecordView& record);
// The position of a ReportGps record; false for any other record.
bool GpsPosition(const mdj::RecordView& record, Position& out);

const char* TagName(std::uint32_t tag);
const char* CameraStateName(std::uint32_t state);
const char* StreamStateName(std::uint32_t state);
const char* SpeedSourceName(std::uint32_t source);
const char* RadarDirectionName(std::uint32_t direction);
const char* ComponentName(std::uint32_t component);
const char* AnchorReasonName(std::uint32_t reason);
// "192.168.1.20" of a stored ReportLvsState address (network order as a big-endian number).
std::string Ipv4Text(std::uint32_t address);
// `text` with each ill-formed UTF-8 sequence replaced by U+FFFD (see TextEscape.h).
std::string ValidUtf8(const std::string& text);
// Degrees, minutes and minute fraction (ten thousandths) as decimal degrees.
double DecimalDegrees(long long degrees, long long minutes, long long fraction, bool negative);

}  // namespace meaning
