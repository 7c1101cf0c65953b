#include "reading/TextEscape.h"

#include <cstdio>
#include <cstring>

namespace textout {

namespace {

const char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Calls `each(code, bytes, length)` for every character of `text`; `bytes` are the character's
// own when it is well-formed, else those of U+FFFD.
template <typename Each>
void ForEachCharacter(const char* text, std::size_t size, Each each) {
    for (std::size_t i = 0; i < size;) {
        std::uint32_t code = 0;
        const std::size_t length = NextCharacter(text + i, size - i, code);
        const bool replaced = code == 0xFFFD && std::memcmp(text + i, kReplacement, length) != 0;
        each(code, replaced ? kReplacement : text + i, replaced ? 3 : length);
        i += length;
    }
}

template <typename Each>
void ForEachCharacter(const std::string& text, Each each) {
    ForEachCharacter(text.data(), text.size(), each);
}

std::string Reference(const char* format, std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(code));
    return text;
}

// The entity of a character that is markup in XML and HTML, else null.
const char* Markup(std::uint32_t code) {
    switch (code) {
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '&':
            return "&amp;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default:
            return nullptr;
    }
}

}  // namespace

std::size_t NextCharacter(const char* text, std::size_t size, std::uint32_t& code) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
    const unsigned char lead = bytes[0];
    std::size_t length = 0;
    unsigned char low = 0x80;   // the range of the second byte: no overlong form, no surrogate,
    unsigned char high = 0xBF;  // nothing above U+10FFFF
    if (lead < 0x80) {
        code = lead;
        return 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    }
    code = 0xFFFD;
    if (length == 0 || size < 2 || bytes[1] < low || bytes[1] > high) {
        return 1;
    }
    std::uint32_t value = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= size || bytes[i] < 0x80 || bytes[i] > 0xBF) {
            return i;  // cut short: the bytes so far are one ill-formed sequence
        }
        value = value << 6 | (bytes[i] & 0x3F);
    }
    code = value;
    return length;
}

std::string ValidUtf8(const std::string& text) {
    std::string valid;
    ForEachCharacter(text, [&](std::uint32_t, const char* bytes, std::size_t length) {
        valid.append(bytes, length);
    });
    return valid;
}

void AppendJsonEscaped(std::string& out, const char* text, std::size_t size) {
    ForEachCharacter(text, size, [&](std::uint32_t code, const char* bytes, std::size_t length) {
        if (code == '"' || code == '\\') {
            out += '\\';
            out += static_cast<char>(code);
        } else if (code == '\n' || code == '\t' || code == '\r') {
            out += code == '\n' ? "\\n" : code == '\t' ? "\\t" : "\\r";
        } else if (code < 0x20 || (code >= 0x7F && code <= 0x9F) || code == 0x2028 ||
                   code == 0x2029) {
            out += Reference("\\u%04x", code);
        } else {
            out.append(bytes, length);
        }
    });
}

std::string Printable(const std::string& text) {
    std::string out;
    AppendJsonEscaped(out, text.data(), text.size());
    return out;
}

std::string Xml(const std::string& text) {
    std::string out;
    ForEachCharacter(text, [&](std::uint32_t code, const char* bytes, std::size_t length) {
        if (Markup(code) != nullptr) {
            out += Markup(code);
        } else if (code == '\t' || code == '\n' || code == '\r') {
            out += Reference("&#%u;", code);
        } else if (code < 0x20 || code == 0xFFFE || code == 0xFFFF) {
            out += kReplacement;
        } else {
            out.append(bytes, length);
        }
    });
    return out;
}

std::string Html(const std::string& text) {
    std::string out;
    ForEachCharacter(text, [&](std::uint32_t code, const char* bytes, std::size_t length) {
        if (Markup(code) != nullptr) {
            out += Markup(code);
        } else if ((code < 0x20 && code != '\t' && code != '\n') || code == 0x7F) {
            out += Reference("&#%u;", code);
        } else {
            out.append(bytes, length);
        }
    });
    return out;
}

}  // namespace textout
