// The GPS track as a map without tiles: an equirectangular drawing of the positions with a
// degree grid, a scale bar, the speed as colour, start, end and bookmarks. A position far
// from the rest (a receiver glitch, a test push) would shrink the drive to a dot, so the map
// shows the largest stretch without jumps and names the positions it leaves out.
#include <algorithm>
#include <cmath>

#include "report/ReportHtml.h"

namespace report {

namespace {

const double kMapHeight = 480;
const double kPad = 36;
const double kJumpMetres = 50000;
const double kPi = 3.14159265358979323846;

// Cosine of a latitude (|radians| <= pi/2) by its series. The C library's trigonometry of the
// powerpc build uses an instruction that qemu-ppc, which runs the target tests, does not know.
double Cosine(double radians) {
    const double x2 = radians * radians;
    double term = 1;
    double sum = 1;
    for (int n = 1; n <= 8; ++n) {
        term *= -x2 / ((2 * n - 1) * (2 * n));
        sum += term;
    }
    return sum;
}

// Distance on the ground, flat-earth: within a few metres over the 50 km that matter here.
double Metres(const TrackPoint& a, const TrackPoint& b) {
    double dLon = b.longitude - a.longitude;
    dLon += dLon > 180 ? -360 : dLon < -180 ? 360 : 0;
    const double east = dLon * Cosine((a.latitude + b.latitude) / 2 * kPi / 180);
    const double north = b.latitude - a.latitude;
    return 111195.0 * std::sqrt(east * east + north * north);
}

std::string Place(double latitude, double longitude, int decimals) {
    char text[80];
    std::snprintf(text, sizeof text, "%.*f\u00b0 %c, %.*f\u00b0 %c", decimals, std::fabs(latitude),
                  latitude < 0 ? 'S' : 'N', decimals, std::fabs(longitude),
                  longitude < 0 ? 'W' : 'E');
    return text;
}

struct Leg {
    std::size_t begin = 0;
    std::size_t end = 0;  // one past the last point
    std::size_t group = 0;
};

// Cuts the track at jumps and puts a stretch in the group of an earlier one when it carries on
// near where that one stopped (a glitch in the middle of a drive). The legs of the group with
// the most positions are the drive that is drawn.
std::vector<Leg> DrawnLegs(const std::vector<TrackPoint>& track) {
    std::vector<Leg> legs(1);
    for (std::size_t i = 1; i <= track.size(); ++i) {
        if (i == track.size() || Metres(track[i - 1], track[i]) > kJumpMetres) {
            legs.back().end = i;
            if (i < track.size()) {
                legs.push_back(Leg{i, i, legs.size()});
            }
        }
    }
    std::vector<std::size_t> sizes(legs.size(), 0);
    for (std::size_t j = 0; j < legs.size(); ++j) {
        for (std::size_t k = j; k-- > 0;) {
            if (Metres(track[legs[k].end - 1], track[legs[j].begin]) <= kJumpMetres) {
                legs[j].group = legs[k].group;
                break;
            }
        }
        sizes[legs[j].group] += legs[j].end - legs[j].begin;
    }
    const std::size_t main =
        static_cast<std::size_t>(std::max_element(sizes.begin(), sizes.end()) - sizes.begin());
    std::vector<Leg> drawn;
    for (const Leg& leg : legs) {
        if (leg.group == main) {
            drawn.push_back(leg);
        }
    }
    return drawn;
}

struct Projection {
    double minLat = 0, maxLat = 0, minLon = 0, maxLon = 0;
    double kx = 1;     // cos(latitude): a degree of longitude is shorter than one of latitude
    double scale = 1;  // pixels per degree of latitude
    double x0 = 0, y0 = 0;
    double X(double lon) const { return x0 + (lon - minLon) * kx * scale; }
    double Y(double lat) const { return y0 - (lat - minLat) * scale; }
};

Projection Fit(const std::vector<TrackPoint>& track, const std::vector<Leg>& legs) {
    Projection p;
    p.minLat = p.maxLat = track[legs[0].begin].latitude;
    p.minLon = p.maxLon = track[legs[0].begin].longitude;
    for (const Leg& leg : legs) {
        for (std::size_t i = leg.begin; i < leg.end; ++i) {
            p.minLat = std::min(p.minLat, track[i].latitude);
            p.maxLat = std::max(p.maxLat, track[i].latitude);
            p.minLon = std::min(p.minLon, track[i].longitude);
            p.maxLon = std::max(p.maxLon, track[i].longitude);
        }
    }
    p.kx = std::max(0.05, Cosine((p.minLat + p.maxLat) / 2 * kPi / 180));
    // At least about 60 m across, so a car standing still is not one pixel blown up.
    const double minSpan = 0.0005;
    double height = std::max(p.maxLat - p.minLat, minSpan);
    double width = std::max((p.maxLon - p.minLon) * p.kx, minSpan);
    p.scale = std::min((kPageWidth - 2 * kPad) / width, (kMapHeight - 2 * kPad) / height);
    height = (p.maxLat - p.minLat) * p.scale;
    width = (p.maxLon - p.minLon) * p.kx * p.scale;
    p.x0 = (kPageWidth - width) / 2;
    p.y0 = (kMapHeight + height) / 2;
    return p;
}

void AppendGrid(const Projection& p, std::string& out) {
    const double latSpan = kMapHeight / p.scale;
    const double step = NiceStep(latSpan, 6);
    const int decimals = std::max(0, static_cast<int>(std::ceil(-std::log10(step))));
    const double lat0 = p.minLat - (kMapHeight - p.y0) / p.scale;  // at the bottom edge
    const double lon0 = p.minLon - p.x0 / (p.kx * p.scale);
    const double lon1 = lon0 + kPageWidth / (p.kx * p.scale);
    out += "<g class=\"grid\">";
    for (double lat = std::ceil(lat0 / step) * step; lat < lat0 + latSpan; lat += step) {
        const double y = p.Y(lat);
        Append(out, "<line x1=\"0\" y1=\"%.1f\" x2=\"%.0f\" y2=\"%.1f\"/>", y, kPageWidth, y);
        Append(out, "<text x=\"4\" y=\"%.1f\">%.*f\u00b0 %c</text>", y - 3, decimals,
               std::fabs(lat), lat < 0 ? 'S' : 'N');
    }
    for (double lon = std::ceil(lon0 / step) * step; lon < lon1; lon += step) {
        const double x = p.X(lon);
        Append(out, "<line x1=\"%.1f\" y1=\"0\" x2=\"%.1f\" y2=\"%.0f\"/>", x, x, kMapHeight);
        Append(out, "<text x=\"%.1f\" y=\"%.0f\">%.*f\u00b0 %c</text>", x + 3, kMapHeight - 4,
               decimals, std::fabs(lon), lon < 0 ? 'W' : 'E');
    }
    out += "</g>";
    // Scale bar: a round distance near 120 pixels.
    const double metresPerPixel = 111320.0 / p.scale;
    const double metres = NiceStep(metresPerPixel * 120, 1);
    const double pixels = metres / metresPerPixel;
    Append(out,
           "<g class=\"scale\"><line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>"
           "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%g %s</text>"
           "<text x=\"%.1f\" y=\"24\" text-anchor=\"middle\">N \u2191</text></g>",
           kPageWidth - 30 - pixels, kMapHeight - 24, kPageWidth - 30, kMapHeight - 24,
           kPageWidth - 30 - pixels / 2, kMapHeight - 30, metres >= 1000 ? metres / 1000 : metres,
           metres >= 1000 ? "km" : "m", kPageWidth - 30);
}

// Colour of a speed between the drive's lowest and highest: blue (slow) to red (fast).
std::string SpeedColor(const TrackPoint& point, long low, long high) {
    if (!point.hasSpeed) {
        return "#757575";
    }
    const double f = high > low ? static_cast<double>(point.speed - low) / (high - low) : 0;
    const int hue = static_cast<int>(std::lround(240 - 240 * std::floor(f * 7.999) / 7));
    return "hsl(" + std::to_string(hue) + ",80%,42%)";
}

// The drawn position nearest in time to `tick`.
const TrackPoint& Nearest(const std::vector<TrackPoint>& track, const std::vector<Leg>& legs,
                          std::uint32_t tick) {
    const auto gap = [tick](std::uint32_t t) { return t > tick ? t - tick : tick - t; };
    const TrackPoint* best = &track[legs[0].begin];
    for (const Leg& leg : legs) {
        for (std::size_t i = leg.begin; i < leg.end; ++i) {
            best = gap(track[i].tick) < gap(best->tick) ? &track[i] : best;
        }
    }
    return *best;
}

// A labelled circle on the position; `lift` raises it on a stem so that bookmarks leave the
// start and end marks and the track beneath them visible.
void AppendMarker(const Projection& p, const TrackPoint& at, const char* cls, const char* label,
                  const std::string& title, double lift, std::string& out) {
    const double x = p.X(at.longitude);
    const double y = p.Y(at.latitude);
    Append(out,
           "<g class=\"%s\"><line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>"
           "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"9\"/>"
           "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text><title>%s</title></g>",
           cls, x, y, x, y - lift, x, y - lift, x, y - lift + 4, label, Escape(title).c_str());
}

struct SpeedRange {
    bool any = false;
    long low = 0;
    long high = 0;
};

// The track: one polyline per run of points of one speed colour, never across a jump; a dot
// with its place, time and speed on every position while they are few enough to point at.
void AppendTrack(const Drive& drive, const AxisClock& clock, const std::vector<Leg>& legs,
                 const Projection& p, const SpeedRange& speed, std::string& out) {
    const std::vector<TrackPoint>& track = drive.track;
    for (const Leg& leg : legs) {
        std::string color;
        for (std::size_t i = leg.begin; i < leg.end; ++i) {
            const std::string next = SpeedColor(track[i], speed.low, speed.high);
            if (i == leg.begin || next != color) {
                if (i != leg.begin) {
                    out += "\"/>";
                }
                color = next;
                Append(out, "<polyline class=\"track\" stroke=\"%s\" points=\"", color.c_str());
                const TrackPoint& from = track[i > leg.begin ? i - 1 : i];
                Append(out, "%.1f,%.1f ", p.X(from.longitude), p.Y(from.latitude));
            }
            Append(out, "%.1f,%.1f ", p.X(track[i].longitude), p.Y(track[i].latitude));
        }
        out += "\"/>";
    }
    if (track.size() > 2000) {
        return;
    }
    for (const Leg& leg : legs) {
        for (std::size_t i = leg.begin; i < leg.end; ++i) {
            const TrackPoint& point = track[i];
            Append(out,
                   "<circle class=\"fix\" cx=\"%.1f\" cy=\"%.1f\" r=\"2.5\"><title>%s at %s%s"
                   "</title></circle>",
                   p.X(point.longitude), p.Y(point.latitude),
                   Place(point.latitude, point.longitude, 5).c_str(),
                   Escape(LongTime(clock, drive.first, point.tick)).c_str(),
                   point.hasSpeed ? (", speed " + std::to_string(point.speed)).c_str() : "");
        }
    }
}

}  // namespace

void AppendMap(const Drive& drive, const AxisClock& clock, std::string& out) {
    const std::vector<TrackPoint>& track = drive.track;
    if (track.empty()) {
        out += "<p class=\"none\" id=\"map\">No GPS positions were recorded.</p>\n";
        return;
    }
    const std::vector<Leg> legs = DrawnLegs(track);
    const Projection p = Fit(track, legs);
    std::size_t drawn = 0;
    double metres = 0;
    SpeedRange speed;
    for (const Leg& leg : legs) {
        drawn += leg.end - leg.begin;
        for (std::size_t i = leg.begin; i < leg.end; ++i) {
            metres += i > leg.begin ? Metres(track[i - 1], track[i]) : 0;
            if (track[i].hasSpeed) {
                speed.low = speed.any ? std::min(speed.low, track[i].speed) : track[i].speed;
                speed.high = speed.any ? std::max(speed.high, track[i].speed) : track[i].speed;
                speed.any = true;
            }
        }
    }
    const TrackPoint& start = track[legs.front().begin];
    const TrackPoint& end = track[legs.back().end - 1];

    Append(out, "<svg id=\"map\" width=\"%.0f\" height=\"%.0f\" role=\"img\">", kPageWidth,
           kMapHeight);
    Append(out, "<rect class=\"land\" width=\"%.0f\" height=\"%.0f\"/>", kPageWidth, kMapHeight);
    AppendGrid(p, out);
    AppendTrack(drive, clock, legs, p, speed, out);
    AppendMarker(p, start, "start", "S",
                 "start of the track: " + Place(start.latitude, start.longitude, 5) + " at " +
                     LongTime(clock, drive.first, start.tick),
                 0, out);
    AppendMarker(p, end, "end", "E",
                 "end of the track: " + Place(end.latitude, end.longitude, 5) + " at " +
                     LongTime(clock, drive.first, end.tick),
                 0, out);
    for (std::size_t i = 0; i < drive.bookmarks.size(); ++i) {
        const TrackPoint& at = Nearest(track, legs, drive.bookmarks[i]);
        const std::string label = std::to_string(i + 1);
        AppendMarker(p, at, "bookmark", label.c_str(),
                     "bookmark " + label + " at " +
                         LongTime(clock, drive.first, drive.bookmarks[i]) +
                         ", the position nearest in time: " + Place(at.latitude, at.longitude, 5),
                     22, out);
    }
    out += "</svg>\n<p class=\"caption\">";
    Append(out, "%zu positions over %.*f %s, from %s to %s.", drawn, metres < 1000 ? 0 : 2,
           metres < 1000 ? metres : metres / 1000, metres < 1000 ? "m" : "km",
           Place(start.latitude, start.longitude, 5).c_str(),
           Place(end.latitude, end.longitude, 5).c_str());
    if (speed.any) {
        Append(out,
               " Colour is GPS speed: <span class=\"slow\">blue %ld</span> to "
               "<span class=\"fast\">red %ld</span>.",
               speed.low, speed.high);
    }
    if (drawn != track.size()) {
        // The first position of another group: before the drawn ones, or in a gap between them.
        std::size_t first = 0;
        for (const Leg& leg : legs) {
            first = first == leg.begin ? leg.end : first;
        }
        Append(out,
               " <strong>%zu more positions, over %.0f km away, are not drawn</strong>"
               " (the first: %s at %s).",
               track.size() - drawn, kJumpMetres / 1000,
               Place(track[first].latitude, track[first].longitude, 5).c_str(),
               Escape(LongTime(clock, drive.first, track[first].tick)).c_str());
    }
    out += "</p>\n";
}

}  // namespace report
