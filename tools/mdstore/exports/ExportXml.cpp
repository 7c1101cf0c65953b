// The helpers the export formats share: numbers as they print them, and XML text that stays
// well-formed whatever a store's path or a record holds.
#include <cstdio>

#include "exports/ExportFormat.h"
#include "reading/TextEscape.h"

std::string ExportNumber(double value, const char* format) {
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string XmlText(const std::string& text) {
    return textout::Xml(text);
}
