// The parts of the drive report's page and what they share: text escaping, number formatting
// and the one time axis that the lanes and the speed plot are drawn on.
#pragma once

#include <cstdint>
#include <string>

#include "report/ReportData.h"
#include "verbs/Summary.h"

namespace report {

void Append(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
// `text` as HTML text or attribute value (TextEscape.h): the DOM holds `text` itself.
std::string Escape(const std::string& text);
// A round step (1, 2 or 5 times a power of ten) that cuts `span` into at most `parts` pieces.
double NiceStep(double span, unsigned parts);

// Where a tick lands across the drawing width of the lanes and the speed plot.
struct TimeAxis {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    double left = 0;   // x of `first`
    double width = 0;  // x of `last` is left + width
    double X(std::uint32_t tick) const;
};

// The width of the page's drawings in pixels; the lane names take kLabelWidth of it.
const double kPageWidth = 1100;
const double kLabelWidth = 130;

void AppendMap(const Drive& drive, const AxisClock& clock, std::string& out);
void AppendTimeline(const Drive& drive, const AxisClock& clock, std::string& out);
void AppendSpeedPlot(const Drive& drive, const AxisClock& clock, std::string& out);
// The whole page: heading, key figures, map, timeline, speed plot, the full summary.
void AppendPage(const summary::StoreSummary& summary, const Drive& drive, const AxisClock& clock,
                std::string& out);

}  // namespace report
