#include "traffic/PassRecords.h"

namespace {

// "Speed of `source` invalid" at k: what the simulator writes for no fix or no radar.
bool InvalidSpeed(const RecWindow& recs, std::size_t k, unsigned int source) {
    return RecIs(recs, k, mdj::kOpReportValidSpeed, false) && recs[k].U(0) == source &&
           recs[k].U(1) == 0;
}

// The radar group at k: its length, 0 when there is none.
std::size_t RadarGroup(const RecWindow& recs, std::size_t k) {
    if (!RecIs(recs, k, mdj::kOpReportRadarState, true) || recs[k].U(0) != 1) {
        return 0;
    }
    if (recs[k].U(1) == 0) {
        return InvalidSpeed(recs, k + 1, 2) ? 2 : 0;
    }
    // Radar 1, no direction, no tick, no tag.
    return RecIs(recs, k + 1, mdj::kOpReportRadar, true) && recs[k + 1].U(0) == 1 &&
                   recs[k + 1].U(4) == 0 && recs[k + 1].U(5) == 0 && recs[k + 1].U(6) == 0
               ? 2
               : 0;
}

// The GPS group at k with tick `tick`: its length, 0 when there is none.
std::size_t GpsGroup(const RecWindow& recs, std::size_t k, std::uint32_t tick) {
    if (!RecIs(recs, k, mdj::kOpReportGpsState, true)) {
        return 0;
    }
    if (recs[k].U(0) == 0) {
        return InvalidSpeed(recs, k + 1, 1) ? 2 : 0;
    }
    return RecIs(recs, k + 1, mdj::kOpReportGps, true) && recs[k + 1].U(21) == tick &&
                   RecIs(recs, k + 2, mdj::kOpReportSpeed, true) && recs[k + 2].U(0) == 1 &&
                   recs[k + 2].U(2) == tick
               ? 3
               : 0;
}

// A full pass's group at k with tick `tick`: its length, 0 when there is none.
std::size_t FullGroup(const RecWindow& recs, std::size_t k, std::uint32_t tick) {
    for (std::size_t i = 0; i < 6; ++i) {
        if (!RecIs(recs, k + i, mdj::kOpReportStateData, true) ||
            InputIndex(recs[k + i].U(0)) != static_cast<int>(i) || recs[k + i].U(1) != tick) {
            return 0;
        }
    }
    const std::size_t gps = GpsGroup(recs, k + 6, tick);
    std::size_t n = 6 + gps;
    for (unsigned int mic = 0; gps > 0 && mic < 4; ++mic, n += 2) {
        if (!RecIs(recs, k + n, mdj::kOpReportMicPresent, true) ||
            !RecIs(recs, k + n + 1, mdj::kOpReportMicState, true) || recs[k + n].U(0) != mic ||
            recs[k + n].U(1) != 1 || recs[k + n].U(2) != tick || recs[k + n + 1].U(0) != mic ||
            recs[k + n + 1].U(2) != tick) {
            return 0;
        }
    }
    if (gps == 0) {
        return 0;
    }
    if (RecIs(recs, k + n, mdj::kOpReportBookmark, false) && recs[k + n].U(0) == tick) {
        ++n;
    }
    const std::size_t radar = RadarGroup(recs, k + n);
    return radar == 0 ? 0 : n + radar;
}

}  // namespace

bool FindPassRecords(const RecWindow& recs, std::size_t k, bool radarOnly, const LoggedPass& pass,
                     PassRecords& found, std::string& error) {
    for (std::size_t at = k; at < k + kPassSearch && recs.Has(at); ++at) {
        found.first = at;
        found.count = radarOnly ? RadarGroup(recs, at) : FullGroup(recs, at, pass.tick);
        if (found.count > 0) {
            return true;
        }
    }
    error = "pass " + std::to_string(pass.number) + " (tick " + std::to_string(pass.tick) +
            ") of the draws log: no records of the simulator " +
            (recs.Has(k) ? "within " + std::to_string(kPassSearch) + " records after record " +
                               std::to_string(recs.Raw(k).number)
                         : std::string("left in the store")) +
            "; is the log this drive's?";
    return false;
}

bool CheckPassRecords(const std::string& path, DrawsLog& log, std::string& error) {
    DriveReader reader;
    if (!reader.Open(path)) {
        error = "nothing readable at " + path;
        return false;
    }
    RecWindow recs(reader);
    LoggedPass pass;
    PassRecords found;
    for (std::size_t k = 0; log.Next(pass); recs.Forget(k)) {
        if (!FindPassRecords(recs, k, log.RadarOnly(), pass, found, error)) {
            return false;
        }
        k = found.first + found.count;
    }
    return true;
}
