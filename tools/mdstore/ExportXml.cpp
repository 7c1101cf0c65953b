// The helpers the export formats share: numbers as they print them, and XML text that stays
// well-formed whatever a store's path or a record holds.
#include <cstdio>

#include "ExportFormat.h"

std::string ExportNumber(double value, const char* format) {
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string XmlText(const std::string& text) {
    std::string escaped;
    for (char c : meaning::ValidUtf8(text)) {
        const unsigned char byte = static_cast<unsigned char>(c);
        switch (c) {
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '&':
                escaped += "&amp;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                // XML 1.0 has no character for C0 controls but tab and line breaks.
                escaped += byte < 0x20 && c != '\t' && c != '\n' && c != '\r'
                               ? std::string("\xEF\xBF\xBD")
                               : std::string(1, c);
        }
    }
    return escaped;
}
