#include "FieldCodec.h"

#include "Systick.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>

namespace codec {

unsigned int NowTick() {
    static Systick systick;
    return systick.SystemTick();
}

namespace {

struct Width {
    const char* kind;
    std::size_t bytes;
    bool isSigned;
};

const Width kWidths[] = {{"u8", 1, false}, {"u16", 2, false}, {"u32", 4, false},
                         {"i8", 1, true},  {"i16", 2, true},  {"i32", 4, true}};

const Width* FindWidth(const std::string& kind) {
    for (const Width& width : kWidths) {
        if (kind == width.kind) {
            return &width;
        }
    }
    return nullptr;
}

template <typename T>
bool AppendAs(const std::string& text, Bytes& out) {
    T value;
    if (!ParseNumber(text, value)) {
        return false;
    }
    unsigned char raw[sizeof value];
    std::memcpy(raw, &value, sizeof value);
    out.insert(out.end(), raw, raw + sizeof value);
    return true;
}

bool AppendNumber(const Width& width, const std::string& text, Bytes& out) {
    switch (width.bytes * 2 + (width.isSigned ? 1 : 0)) {
        case 2:
            return AppendAs<std::uint8_t>(text, out);
        case 3:
            return AppendAs<std::int8_t>(text, out);
        case 4:
            return AppendAs<std::uint16_t>(text, out);
        case 5:
            return AppendAs<std::int16_t>(text, out);
        case 8:
            return AppendAs<std::uint32_t>(text, out);
        default:
            return AppendAs<std::int32_t>(text, out);
    }
}

template <typename T>
std::string ReadAs(const Bytes& data, std::size_t offset) {
    T value;
    std::memcpy(&value, data.data() + offset, sizeof value);
    return std::is_signed<T>::value ? std::to_string(static_cast<long long>(value))
                                    : std::to_string(static_cast<unsigned long long>(value));
}

std::string ReadNumber(const Width& width, const Bytes& data, std::size_t offset) {
    switch (width.bytes * 2 + (width.isSigned ? 1 : 0)) {
        case 2:
            return ReadAs<std::uint8_t>(data, offset);
        case 3:
            return ReadAs<std::int8_t>(data, offset);
        case 4:
            return ReadAs<std::uint16_t>(data, offset);
        case 5:
            return ReadAs<std::int16_t>(data, offset);
        case 8:
            return ReadAs<std::uint32_t>(data, offset);
        default:
            return ReadAs<std::int32_t>(data, offset);
    }
}

bool AppendHex(const std::string& text, Bytes& out) {
    if (text.size() % 2 != 0) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned char byte;
        if (!ParseNumber("0x" + text.substr(i, 2), byte)) {
            return false;
        }
        out.push_back(byte);
    }
    return true;
}

// The NUL-terminated text at offset, ending at the payload's end at the latest.
std::string TextAt(const Bytes& data, std::size_t offset, std::size_t limit) {
    std::string text;
    for (std::size_t i = offset; i < data.size() && i < offset + limit && data[i] != 0; ++i) {
        text += static_cast<char>(data[i]);
    }
    return text;
}

}  // namespace

bool AppendField(const std::string& token, Bytes& out, std::string& error) {
    const std::size_t colon = token.find(':');
    if (colon == std::string::npos) {
        error = "field '" + token + "' is not KIND:VALUE";
        return false;
    }
    const std::string kind = token.substr(0, colon);
    const std::string value = token.substr(colon + 1);
    if (const Width* width = FindWidth(kind)) {
        if (AppendNumber(*width, value, out)) {
            return true;
        }
        error = "field '" + token + "': not a " + kind + " number";
        return false;
    }
    if (kind == "text") {
        out.insert(out.end(), value.begin(), value.end());
        out.push_back(0);
        return true;
    }
    if (kind == "textN") {
        const std::size_t second = value.find(':');
        unsigned int length = 0;
        if (second == std::string::npos || !ParseNumber(value.substr(0, second), length) ||
            length > 65536) {
            error = "field '" + token + "' is not textN:LEN:TEXT";
            return false;
        }
        // Cut or padded with NULs to LEN bytes; LEN 0 gives no bytes at all.
        std::string field = value.substr(second + 1, length);
        field.resize(length, '\0');
        out.insert(out.end(), field.begin(), field.end());
        return true;
    }
    if (kind == "hex") {
        if (AppendHex(value, out)) {
            return true;
        }
        error = "field '" + token + "': hex needs pairs of hex digits";
        return false;
    }
    error = "field '" + token + "': unknown kind '" + kind + "'";
    return false;
}

bool ParseCheck(const std::string& token, Check& check, std::string& error) {
    check = Check();
    check.text = token;
    const std::size_t equals = token.find('=');
    if (equals == std::string::npos || equals == 0) {
        error = "check '" + token + "' is not NAME=VALUE or KIND@OFFSET=VALUE";
        return false;
    }
    const std::string left = token.substr(0, equals);
    const std::string value = token.substr(equals + 1);
    if (left == "len") {
        check.kind = Check::kLength;
        if (ParseNumber(value, check.length)) {
            return true;
        }
        error = "check '" + token + "': length is not a number";
        return false;
    }
    const std::size_t at = left.find('@');
    if (at == std::string::npos) {
        check.kind = Check::kNamed;
        check.name = left;
        check.value = value;
        return true;
    }
    const std::string kind = left.substr(0, at);
    if (!ParseNumber(left.substr(at + 1), check.offset) || check.offset > 65536) {
        error = "check '" + token + "': bad offset";
        return false;
    }
    if (kind == "text") {
        check.kind = Check::kText;
        check.bytes.assign(value.begin(), value.end());
        return true;
    }
    bool ok = false;
    if (kind == "hex") {
        ok = AppendHex(value, check.bytes);
    } else if (const Width* width = FindWidth(kind)) {
        ok = AppendNumber(*width, value, check.bytes);
    } else {
        error = "check '" + token + "': unknown kind '" + kind + "'";
        return false;
    }
    if (!ok) {
        error = "check '" + token + "': bad value for " + kind;
    }
    return ok;
}

bool Holds(const Check& check, const Bytes& data, const NamedValues& decoded) {
    switch (check.kind) {
        case Check::kLength:
            return data.size() == check.length;
        case Check::kNamed:
            for (const auto& named : decoded) {
                if (named.first == check.name) {
                    return named.second == check.value;
                }
            }
            return false;
        case Check::kText:
            return check.offset <= data.size() &&
                   TextAt(data, check.offset, data.size()) ==
                       std::string(check.bytes.begin(), check.bytes.end());
        case Check::kBytes:
        default:
            // Compared by iterators: an empty check on an empty payload has no data pointer.
            return check.offset + check.bytes.size() <= data.size() &&
                   std::equal(check.bytes.begin(), check.bytes.end(),
                              data.begin() + static_cast<std::ptrdiff_t>(check.offset));
    }
}

std::string Hex(const Bytes& data, std::size_t limit) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < data.size() && i < limit; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 0x0F];
    }
    if (data.size() > limit) {
        text += "...";
    }
    return text;
}

std::string Fields(const char* layout, const Bytes& data) {
    std::istringstream kinds(layout);
    std::string kind;
    std::string text;
    std::size_t offset = 0;
    while (kinds >> kind && offset < data.size()) {
        std::string field;
        if (const Width* width = FindWidth(kind)) {
            if (offset + width->bytes > data.size()) {
                break;
            }
            field = kind + "@" + std::to_string(offset) + "=" + ReadNumber(*width, data, offset);
            offset += width->bytes;
        } else if (kind.compare(0, 4, "text") == 0) {
            std::size_t length = data.size() - offset;
            if (kind.size() > 4 && !ParseNumber(kind.substr(4), length)) {
                break;
            }
            field = "text@" + std::to_string(offset) + "=" + TextAt(data, offset, length);
            offset += length;
        } else {
            break;
        }
        text += text.empty() ? "" : " ";
        text += field;
    }
    return text;
}

}  // namespace codec
