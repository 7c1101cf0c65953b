#include "report/ReportHtml.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "reading/TextEscape.h"

namespace report {

void Append(std::string& out, const char* format, ...) {
    char line[2048];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (length >= static_cast<int>(sizeof line)) {
        // Long titles: format again into a buffer of the right size.
        std::string wide(static_cast<std::size_t>(length) + 1, '\0');
        va_start(args, format);
        std::vsnprintf(&wide[0], wide.size(), format, args);
        va_end(args);
        wide.resize(static_cast<std::size_t>(length));
        out += wide;
        return;
    }
    if (length > 0) {
        out.append(line, static_cast<std::size_t>(length));
    }
}

std::string Escape(const std::string& text) {
    return textout::Html(text);
}

double NiceStep(double span, unsigned parts) {
    if (!(span > 0) || parts == 0) {
        return 1;
    }
    const double rough = span / parts;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough) {
            return factor * power;
        }
    }
    return 10 * power;
}

double TimeAxis::X(std::uint32_t tick) const {
    const double span = last > first ? static_cast<double>(last - first) : 1;
    const double offset = tick > first ? static_cast<double>(tick - first) : 0;
    return left + offset / span * width;
}

}  // namespace report
