// Payload fields as the bench peer writes and checks them: fixed-width numbers in the
// machine's own byte order, texts and raw bytes.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

typedef std::vector<unsigned char> Bytes;
// Named values of a decoded item, in the item's order.
typedef std::vector<std::pair<std::string, std::string>> NamedValues;

namespace codec {

// The system tick now, as a process of the system would stamp an event it sends.
unsigned int NowTick();

// A whole text as a number of type T (decimal, 0x hex, a leading minus for signed types; bools
// also take true/false; an unsigned 32-bit value also takes "now", the system tick). False when
// it is not a number or does not fit.
template <typename T>
bool ParseNumber(const std::string& text, T& out) {
    static_assert(std::is_integral<T>::value, "integers and bools only");
    if constexpr (std::is_same<T, unsigned int>::value) {
        if (text == "now") {
            out = NowTick();
            return true;
        }
    }
    if constexpr (std::is_same<T, bool>::value) {
        out = text == "true" || text == "1";
        return out || text == "false" || text == "0";
    }
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    if constexpr (std::is_signed<T>::value) {
        const long long value = std::strtoll(text.c_str(), &end, 0);
        if (errno != 0 || *end != '\0' ||
            value < static_cast<long long>(std::numeric_limits<T>::min()) ||
            value > static_cast<long long>(std::numeric_limits<T>::max())) {
            return false;
        }
        out = static_cast<T>(value);
        return true;
    } else {
        if (text[0] == '-') {
            return false;
        }
        const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
        if (errno != 0 || *end != '\0' ||
            value > static_cast<unsigned long long>(std::numeric_limits<T>::max())) {
            return false;
        }
        out = static_cast<T>(value);
        return true;
    }
}

// Appends one field token (u8:N u16:N u32:N i8:N i16:N i32:N text:S textN:LEN:S hex:AABB) to
// `out`. False with `error` set when the token is malformed.
bool AppendField(const std::string& token, Bytes& out, std::string& error);

// One check of a payload: "u32@4=5", "text@0=abc", "hex@2=0a0b", "len=8", or "name=value" for
// a field of a decoded item.
struct Check {
    std::string text;  // as written
    enum Kind { kBytes, kText, kLength, kNamed } kind = kBytes;
    std::size_t offset = 0;
    Bytes bytes;  // kBytes: expected bytes at offset; kText: the text
    std::size_t length = 0;
    std::string name;   // kNamed
    std::string value;  // kNamed
};
bool ParseCheck(const std::string& token, Check& check, std::string& error);
// True when `data` (and, for named checks, the decoded values) satisfy the check.
bool Holds(const Check& check, const Bytes& data, const NamedValues& decoded);

// Lower-case hex of at most `limit` bytes, "..." after a longer payload.
std::string Hex(const Bytes& data, std::size_t limit = 64);
// The payload read with a layout ("u32 u8", "text1024 u32"): "u32@0=19 u8@4=1". Fields past
// the end of the payload are left out.
std::string Fields(const char* layout, const Bytes& data);

}  // namespace codec
