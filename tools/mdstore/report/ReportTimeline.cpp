// The timeline lanes and the speed plot: one time axis, so a moment lines up in both.
#include <algorithm>
#include <cmath>

#include "report/ReportHtml.h"

namespace report {

namespace {

const double kLaneHeight = 22;
const double kAxisHeight = 26;

TimeAxis MakeAxis(const Drive& drive) {
    TimeAxis axis;
    axis.first = drive.first;
    axis.last = drive.last;
    axis.left = kLabelWidth;
    axis.width = kPageWidth - kLabelWidth - 24;
    return axis;
}

// Vertical grid lines at round seconds between `top` and `bottom`, labelled above `top`.
void AppendTimeGrid(const TimeAxis& axis, const AxisClock& clock, double top, double bottom,
                    std::string& out) {
    const double span = (axis.last - axis.first) / 1000.0;
    const double step = NiceStep(span > 0 ? span : 1, 10);
    out += "<g class=\"grid\">";
    for (double s = 0; s <= span + 1e-9; s += step) {
        const std::uint32_t tick = axis.first + static_cast<std::uint32_t>(std::lround(s * 1000));
        const double x = axis.X(tick);
        Append(out, "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>", x, top, x, bottom);
        Append(out, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>", x, top - 8,
               Escape(AxisLabel(clock, axis.first, tick)).c_str());
    }
    out += "</g>";
}

void AppendBookmarkLines(const Drive& drive, const TimeAxis& axis, double top, double bottom,
                         std::string& out) {
    for (std::uint32_t tick : drive.bookmarks) {
        Append(out,
               "<line class=\"bookmark-line\" x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>",
               axis.X(tick), top, axis.X(tick), bottom);
    }
}

const char* SpanColor(const Lane& lane, int value) {
    static const char* const kCameraColors[] = {"#9e9e9e", "#2e7d32", "#00897b",
                                                "#f9a825", "#6d4c41", "#5e35b1"};
    switch (lane.kind) {
        case LaneKind::kMicrophone:
            return value == 2 ? "#1b5e20" : "#a5d6a7";
        case LaneKind::kCamera:
            return kCameraColors[static_cast<unsigned>(value) % 6];
        default:
            break;
    }
    if (lane.name == "recording") {
        return "#c62828";
    }
    if (lane.name == "covert mode") {
        return "#6a1b9a";
    }
    if (lane.name == "crash") {
        return "#000000";
    }
    return "#1565c0";
}

std::string ValueText(const Lane& lane, int value) {
    switch (lane.kind) {
        case LaneKind::kMicrophone:
            return value == 2 ? "present, active" : value == 1 ? "present, idle" : "absent";
        case LaneKind::kCamera:
            return "state " + std::to_string(value);
        default:
            return value != 0 ? "on" : "off";
    }
}

void AppendMarks(const Lane& lane, const TimeAxis& axis, const AxisClock& clock, double y,
                 std::string& out) {
    unsigned number = 0;
    for (const Change& mark : lane.changes) {
        const double x = axis.X(mark.tick);
        Append(out,
               "<polygon class=\"mark\" points=\"%.1f,%.1f %.1f,%.1f %.1f,%.1f %.1f,%.1f\">"
               "<title>bookmark %u at %s</title></polygon>",
               x, y + 2, x + 7, y + 11, x, y + 20, x - 7, y + 11, ++number,
               Escape(LongTime(clock, axis.first, mark.tick)).c_str());
    }
}

void AppendSpans(const Lane& lane, const TimeAxis& axis, const AxisClock& clock, double y,
                 std::string& out) {
    for (std::size_t i = 0; i < lane.changes.size(); ++i) {
        const Change& change = lane.changes[i];
        if (change.value == 0 || (i > 0 && lane.changes[i - 1].value == change.value)) {
            continue;
        }
        std::size_t end = i + 1;
        while (end < lane.changes.size() && lane.changes[end].value == change.value) {
            ++end;
        }
        const std::uint32_t until = end < lane.changes.size() ? lane.changes[end].tick : axis.last;
        const double x = axis.X(change.tick);
        const double width = std::max(axis.X(until) - x, 1.5);
        Append(out,
               "<rect class=\"span\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"14\" "
               "fill=\"%s\"><title>%s %s from %s to %s</title></rect>",
               x, y + 4, width, SpanColor(lane, change.value), Escape(lane.name).c_str(),
               ValueText(lane, change.value).c_str(),
               Escape(LongTime(clock, axis.first, change.tick)).c_str(),
               Escape(LongTime(clock, axis.first, until)).c_str());
    }
}

}  // namespace

void AppendTimeline(const Drive& drive, const AxisClock& clock, std::string& out) {
    const TimeAxis axis = MakeAxis(drive);
    const double bottom = kAxisHeight + kLaneHeight * static_cast<double>(drive.lanes.size());
    Append(out, "<svg id=\"timeline\" width=\"%.0f\" height=\"%.0f\" role=\"img\">", kPageWidth,
           bottom + 4);
    for (std::size_t i = 0; i < drive.lanes.size(); ++i) {
        const double y = kAxisHeight + kLaneHeight * static_cast<double>(i);
        Append(out, "<rect class=\"row%u\" x=\"0\" y=\"%.1f\" width=\"%.0f\" height=\"%.0f\"/>",
               static_cast<unsigned>(i % 2), y, kPageWidth, kLaneHeight);
    }
    AppendTimeGrid(axis, clock, kAxisHeight, bottom, out);
    AppendBookmarkLines(drive, axis, kAxisHeight, bottom, out);
    for (std::size_t i = 0; i < drive.lanes.size(); ++i) {
        const Lane& lane = drive.lanes[i];
        const double y = kAxisHeight + kLaneHeight * static_cast<double>(i);
        Append(out, "<g class=\"lane\" data-lane=\"%s\">", Escape(lane.name).c_str());
        Append(out, "<text class=\"lane-name%s\" x=\"8\" y=\"%.1f\">%s</text>",
               lane.changes.empty() ? " empty" : "", y + 15, Escape(lane.name).c_str());
        if (lane.changes.empty()) {
            Append(out, "<text class=\"none\" x=\"%.1f\" y=\"%.1f\">no reports</text>",
                   axis.left + 4, y + 15);
        } else if (lane.kind == LaneKind::kMarks) {
            AppendMarks(lane, axis, clock, y, out);
        } else {
            AppendSpans(lane, axis, clock, y, out);
        }
        out += "</g>";
    }
    out += "</svg>\n";
}

void AppendSpeedPlot(const Drive& drive, const AxisClock& clock, std::string& out) {
    const TimeAxis axis = MakeAxis(drive);
    const double top = kAxisHeight + 20;  // the key above the time labels
    const double height = 200;
    long highest = 1;
    for (const auto& source : drive.speeds) {
        for (const SpeedSample& sample : source.second) {
            highest = std::max(highest, sample.speed);
        }
    }
    const double yStep = NiceStep(static_cast<double>(highest), 5);
    const double yMax = std::ceil(static_cast<double>(highest) / yStep) * yStep;
    Append(out, "<svg id=\"speed\" width=\"%.0f\" height=\"%.0f\" role=\"img\">", kPageWidth,
           top + height + 30);
    out += "<g class=\"grid\">";
    for (double v = 0; v <= yMax + 1e-9; v += yStep) {
        const double y = top + height - v / yMax * height;
        Append(out, "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>", axis.left, y,
               axis.left + axis.width, y);
        Append(out, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%g</text>", axis.left - 6,
               y + 4, v);
    }
    out += "</g>";
    AppendTimeGrid(axis, clock, top, top + height, out);
    AppendBookmarkLines(drive, axis, top, top + height, out);
    Append(out, "<text class=\"lane-name\" x=\"8\" y=\"%.1f\">speed</text>", top + height / 2);
    double legendX = axis.left + 10;
    for (const auto& source : drive.speeds) {
        const char* name = summary::SourceName(source.first);
        Append(out, "<polyline class=\"speed-%s\" points=\"", name);
        // One point per pixel column at most: the column's lowest and highest.
        long low = 0;
        long high = 0;
        long column = -1;
        auto flush = [&]() {
            if (column >= 0) {
                Append(out, "%ld,%.1f %ld,%.1f ", column, top + height - low / yMax * height,
                       column, top + height - high / yMax * height);
            }
        };
        for (const SpeedSample& sample : source.second) {
            const long x = std::lround(axis.X(sample.tick));
            if (x != column) {
                flush();
                column = x;
                low = high = sample.speed;
            }
            low = std::min(low, sample.speed);
            high = std::max(high, sample.speed);
        }
        flush();
        out += "\"/>";
        // Few readings get a dot each, so that a lone one shows at all.
        for (std::size_t i = 0; source.second.size() <= 300 && i < source.second.size(); ++i) {
            const SpeedSample& sample = source.second[i];
            Append(out, "<circle class=\"speed-%s-key\" cx=\"%.1f\" cy=\"%.1f\" r=\"2.5\"/>", name,
                   axis.X(sample.tick), top + height - sample.speed / yMax * height);
        }
        Append(out,
               "<rect class=\"speed-%s-key\" x=\"%.1f\" y=\"%.1f\" width=\"14\" height=\"4\"/>"
               "<text x=\"%.1f\" y=\"%.1f\">%s speed (%zu readings)</text>",
               name, legendX, 8.0, legendX + 18, 13.0, name, source.second.size());
        legendX += 200;
    }
    if (drive.speeds.empty()) {
        Append(out, "<text class=\"none\" x=\"%.1f\" y=\"%.1f\">no speed readings</text>",
               axis.left + 4, top + height / 2);
    }
    out += "</svg>\n";
}

}  // namespace report
