#include "SimulatedDrive.h"

#include <algorithm>

namespace {

// The draws that select each branch of the simulator, as rand() values: a d30 shows the value
// plus one, a d100 likewise, the bookmark draw the value itself.
const int kInputUnchanged = 6;  // d30 7..30
const int kGpsFixKept = 0;      // d100 1..39: fix (no movement)
const int kGpsStill = 40;       // 41..80: no change
const int kGpsMove = 80;        // 81..90: move
const int kGpsLoseFix = 90;     // 91..100: fix lost, move
const int kMicToggle[] = {0, 4, 9, 14};
const int kMicsUnchanged = 19;  // 20..100
const int kBookmark = 90;       // above 89
const int kNoBookmark = 0;
const int kRadarOff = 0;     // 1..4: off, nothing stepped
const int kRadarOn = 4;      // 5..20: on, nothing stepped
const int kRadarOnBD = 20;   // 21..24: on, B and D stepped
const int kRadarBD = 24;     // 25..40: B and D stepped
const int kRadarBCD = 40;    // 41..50: B, C and D stepped
const int kRadarAll = 50;    // 51..60: all stepped
const int kRadarOnAll = 60;  // 61..100: on, all stepped

// A ramp of the simulator: a step moves it one way, it turns above `top` and below 1.
struct Ramp {
    int value = 0;
    bool rising = true;
    void Step(int by, int top) {
        value += rising ? by : -by;
        if (value > top) {
            rising = false;
        } else if (value < 1) {
            rising = true;
        }
    }
    // As the store holds it: 16 bits.
    unsigned int Shown() const { return static_cast<unsigned int>(value) & 0xFFFF; }
};

// The simulated position and speed: both follow from the number of moves.
struct Track {
    unsigned int lat[3] = {10, 20, 0};  // degrees, minutes, fraction
    unsigned int lon[3] = {15, 25, 0};
    Ramp speed{100, true};

    static void Advance(unsigned int* part) {
        part[2] += 10;
        if (part[2] > 50) {
            part[2] = 0;
            part[1] = (part[1] + 1) & 0xFFFF;
        }
        if (part[1] > 59) {
            part[0] = (part[0] + 1) & 0xFFFF;
            part[1] = 0;
        }
    }
    void Move() {
        speed.Step(5, 300);
        Advance(lat);
        Advance(lon);
    }
    bool Shows(const Rec& gps, const Rec& speedRec) const {
        return gps.U(0) == lat[0] && gps.U(1) == lat[1] && gps.U(2) == lat[2] &&
               gps.U(4) == lon[0] && gps.U(5) == lon[1] && gps.U(6) == lon[2] &&
               speedRec.U(1) == speed.Shown();
    }
};

// The radar counters are A, B, C, D; B is never stored, so only A, C and D are followed.
const int kA = 0;
const int kC = 2;
const int kD = 3;

// What a radar group shows: active, and C, A, D.
struct RadarView {
    bool active = false;
    unsigned int a = 0;
    unsigned int c = 0;
    unsigned int d = 0;
};

// "Speed of `source` invalid" at k: what the simulator writes for no fix or no radar.
bool InvalidSpeed(const RecWindow& recs, std::size_t k, unsigned int source) {
    return RecIs(recs, k, mdj::kOpReportValidSpeed, false) && recs[k].U(0) == source &&
           recs[k].U(1) == 0;
}

// The radar part of a pass at k: its length, 0 when there is none.
std::size_t RadarPart(const RecWindow& recs, std::size_t k) {
    if (!RecIs(recs, k, mdj::kOpReportRadarState, true) || recs[k].U(0) != 1) {
        return 0;
    }
    if (recs[k].U(1) == 0) {
        return InvalidSpeed(recs, k + 1, 2) ? 2 : 0;
    }
    // A reading without a tick, direction or tag: no radar sends one so.
    const bool simulated = RecIs(recs, k + 1, mdj::kOpReportRadar, true) && recs[k + 1].U(0) == 1 &&
                           recs[k + 1].U(4) == 0 && recs[k + 1].U(5) == 0 && recs[k + 1].U(6) == 0;
    return simulated ? 2 : 0;
}

RadarView ViewRadar(const RecWindow& recs, std::size_t k) {
    RadarView view;
    view.active = recs[k].U(1) != 0;
    if (view.active) {
        view.c = recs[k + 1].U(1);
        view.a = recs[k + 1].U(2);
        view.d = recs[k + 1].U(3);
    }
    return view;
}

// The GPS part of a full pass at k with tick `tick`: its length, 0 when there is none.
std::size_t GpsPart(const RecWindow& recs, std::size_t k, std::uint32_t tick) {
    if (!RecIs(recs, k, mdj::kOpReportGpsState, true)) {
        return 0;
    }
    if (recs[k].U(0) == 0) {
        return InvalidSpeed(recs, k + 1, 1) ? 2 : 0;
    }
    if (!RecIs(recs, k + 1, mdj::kOpReportGps, true) || recs[k + 1].U(21) != tick ||
        !RecIs(recs, k + 2, mdj::kOpReportSpeed, true) || recs[k + 2].U(0) != 1 ||
        recs[k + 2].U(2) != tick || recs[k + 2].U(3) != 0) {
        return 0;
    }
    // The simulated position carries nothing but the position.
    for (std::size_t field = 8; field <= 20; ++field) {
        if (recs[k + 1].U(field) != 0) {
            return 0;
        }
    }
    return 3;
}

// A full pass at k: its length, 0 when there is none.
std::size_t FullPass(const RecWindow& recs, std::size_t k) {
    if (!recs.Has(k)) {
        return 0;
    }
    const std::uint32_t tick = recs[k].U(1);
    for (std::size_t i = 0; i < 6; ++i) {
        if (!RecIs(recs, k + i, mdj::kOpReportStateData, true) ||
            InputIndex(recs[k + i].U(0)) != static_cast<int>(i) || recs[k + i].U(1) != tick) {
            return 0;
        }
    }
    std::size_t n = 6;
    const std::size_t gps = GpsPart(recs, k + n, tick);
    if (gps == 0) {
        return 0;
    }
    n += gps;
    for (unsigned int mic = 0; mic < 4; ++mic, n += 2) {
        if (!RecIs(recs, k + n, mdj::kOpReportMicPresent, true) ||
            !RecIs(recs, k + n + 1, mdj::kOpReportMicState, true) || recs[k + n].U(0) != mic ||
            recs[k + n].U(1) != 1 || recs[k + n].U(2) != tick || recs[k + n + 1].U(0) != mic ||
            recs[k + n + 1].U(2) != tick) {
            return 0;
        }
    }
    if (RecIs(recs, k + n, mdj::kOpReportBookmark, false) && recs[k + n].U(0) == tick) {
        ++n;
    }
    const std::size_t radar = RadarPart(recs, k + n);
    return radar == 0 ? 0 : n + radar;
}

// Works the draws out pass by pass, keeping the simulator's state as it must have been.
class Inference {
public:
    Inference(const RecWindow& recs, DrawLog& draws) : recs_(recs), draws_(draws) {}

    bool FullPass(std::size_t k, std::string& error);
    bool RadarPass(std::size_t k, std::string& error);
    // Every draw before the oldest that a later pass may still change is final.
    void Settle() {
        std::size_t settled = draws_.size();
        settled = gpsHidden_.empty() ? settled : std::min(settled, gpsHidden_.front());
        settled = radarHidden_.empty() ? settled : std::min(settled, radarHidden_.front());
        draws_.Settle(settled);
    }

private:
    int Inputs(std::size_t k, std::string& error);
    bool Gps(std::size_t k, std::string& error);
    int Mics(std::size_t k, std::string& error);
    bool RadarWithHidden(const RadarView& view);

    const RecWindow& recs_;
    DrawLog& draws_;
    bool inputs_[6] = {};
    bool mics_[4] = {};
    bool fix_ = false;
    Track track_;
    std::vector<std::size_t> gpsHidden_;  // draws of passes without a fix after the one losing it
    bool radarActive_ = false;
    Ramp counters_[4];
    std::vector<std::size_t> radarHidden_;  // radar draws of passes with the radar off
};

// The one of `count` flags that `shown` has turned (turned in `kept` too): its index, -1 when
// none, -2 when more than one (a draw turns one at most).
int TurnedOne(bool* kept, const bool* shown, int count) {
    int turned = -1;
    for (int i = 0; i < count; ++i) {
        if (shown[i] != kept[i]) {
            if (turned >= 0) {
                return -2;
            }
            turned = i;
        }
    }
    if (turned >= 0) {
        kept[turned] = !kept[turned];
    }
    return turned;
}

int Inference::Inputs(std::size_t k, std::string& error) {
    bool shown[6];
    for (int i = 0; i < 6; ++i) {
        shown[i] = recs_[k + static_cast<std::size_t>(i)].U(0) == kInputs[i].on;
    }
    const int turned = TurnedOne(inputs_, shown, 6);
    if (turned == -2) {
        error = "two inputs changed in one pass";
        return -1;
    }
    return turned == -1 ? kInputUnchanged : turned;
}

bool Inference::Gps(std::size_t k, std::string& error) {
    const std::size_t draw = draws_.size();
    if (recs_[k].U(0) == 0) {
        if (fix_) {
            track_.Move();
            fix_ = false;
            draws_.push_back(kGpsLoseFix);
        } else {
            gpsHidden_.push_back(draw);
            draws_.push_back(kGpsStill);
        }
        return true;
    }
    const Rec& gps = recs_[k + 1];
    const Rec& speed = recs_[k + 2];
    if (fix_) {
        if (!track_.Shows(gps, speed)) {
            track_.Move();
            draws_.push_back(kGpsMove);
        } else {
            draws_.push_back(kGpsFixKept);
        }
        if (!track_.Shows(gps, speed)) {
            error = "the GPS position or speed is not the next of the simulated track";
            return false;
        }
        return true;
    }
    // The fix comes back without a move; the moves since the last position were made while it
    // was lost.
    Track probe = track_;
    std::size_t moves = 0;
    while (!probe.Shows(gps, speed) && moves < gpsHidden_.size()) {
        probe.Move();
        ++moves;
    }
    if (!probe.Shows(gps, speed)) {
        error = "the GPS position or speed is more than the passes without a fix can have moved";
        return false;
    }
    for (std::size_t i = 0; i < moves; ++i) {
        draws_[gpsHidden_[i]] = kGpsMove;
    }
    gpsHidden_.clear();
    track_ = probe;
    fix_ = true;
    draws_.push_back(kGpsFixKept);
    return true;
}

int Inference::Mics(std::size_t k, std::string& error) {
    bool shown[4];
    for (std::size_t mic = 0; mic < 4; ++mic) {
        shown[mic] = recs_[k + 2 * mic + 1].U(1) != 0;
    }
    const int turned = TurnedOne(mics_, shown, 4);
    if (turned == -2) {
        error = "two microphones changed in one pass";
        return -1;
    }
    return turned == -1 ? kMicsUnchanged : kMicToggle[turned];
}

// The radar comes on: this pass steps nothing, B and D, or all; the passes with it off before
// stepped A, C and D so often that A's steps are among C's and C's among D's.
bool Inference::RadarWithHidden(const RadarView& view) {
    struct Band {
        int draw;
        int step[4];
    };
    static const Band kComingOn[] = {
        {kRadarOn, {0, 0, 0, 0}}, {kRadarOnBD, {0, 1, 0, 1}}, {kRadarOnAll, {1, 1, 1, 1}}};
    const unsigned int shown[4] = {view.a, 0, view.c, view.d};
    for (const Band& band : kComingOn) {
        std::size_t hidden[4] = {0, 0, 0, 0};
        bool found = true;
        for (int counter : {kA, kC, kD}) {
            Ramp probe = counters_[counter];
            for (int s = 0; s < band.step[counter]; ++s) {
                probe.Step(1, 150);
            }
            std::size_t steps = 0;
            while (probe.Shown() != shown[counter] && steps < radarHidden_.size()) {
                probe.Step(1, 150);
                ++steps;
            }
            found = found && probe.Shown() == shown[counter];
            hidden[counter] = steps;
        }
        if (!found || hidden[kA] > hidden[kC] || hidden[kC] > hidden[kD]) {
            continue;
        }
        for (std::size_t i = 0; i < radarHidden_.size(); ++i) {
            int draw = kRadarOff;
            if (i < hidden[kA]) {
                draw = kRadarAll;
            } else if (i < hidden[kC]) {
                draw = kRadarBCD;
            } else if (i < hidden[kD]) {
                draw = kRadarBD;
            }
            draws_[radarHidden_[i]] = draw;
        }
        for (int counter : {kA, kC, kD}) {
            for (std::size_t s = 0;
                 s < hidden[counter] + static_cast<std::size_t>(band.step[counter]); ++s) {
                counters_[counter].Step(1, 150);
            }
        }
        radarHidden_.clear();
        radarActive_ = true;
        draws_.push_back(band.draw);
        return true;
    }
    return false;
}

bool Inference::RadarPass(std::size_t k, std::string& error) {
    const RadarView view = ViewRadar(recs_, k);
    if (!view.active) {
        if (!radarActive_) {
            radarHidden_.push_back(draws_.size());
        }
        radarActive_ = false;
        draws_.push_back(kRadarOff);
        return true;
    }
    if (!radarActive_) {
        if (!RadarWithHidden(view)) {
            error = "the radar readings are not what the simulated counters can show";
            return false;
        }
        return true;
    }
    // Which of A, C and D moved one step.
    bool stepped[4] = {};
    const unsigned int shown[4] = {view.a, 0, view.c, view.d};
    for (int counter : {kA, kC, kD}) {
        Ramp probe = counters_[counter];
        probe.Step(1, 150);
        stepped[counter] = probe.Shown() == shown[counter];
        if (!stepped[counter] && counters_[counter].Shown() != shown[counter]) {
            error = "a radar reading is not the next of the simulated counters";
            return false;
        }
    }
    int draw = -1;
    if (!stepped[kA] && !stepped[kC] && !stepped[kD]) {
        draw = kRadarOn;
    } else if (!stepped[kA] && !stepped[kC]) {
        draw = kRadarOnBD;
    } else if (!stepped[kA] && stepped[kD]) {
        draw = kRadarBCD;
    } else if (stepped[kC] && stepped[kD]) {
        draw = kRadarOnAll;
    }
    if (draw < 0) {
        error = "the radar counters moved in a way no draw moves them";
        return false;
    }
    for (int counter : {kA, kC, kD}) {
        if (stepped[counter]) {
            counters_[counter].Step(1, 150);
        }
    }
    draws_.push_back(draw);
    return true;
}

bool Inference::FullPass(std::size_t k, std::string& error) {
    const int input = Inputs(k, error);
    if (input < 0) {
        return false;
    }
    draws_.push_back(input);
    std::size_t n = 6;
    if (!Gps(k + n, error)) {
        return false;
    }
    n += recs_[k + n].U(0) == 0 ? 2 : 3;
    const int mic = Mics(k + n, error);
    if (mic < 0) {
        return false;
    }
    draws_.push_back(mic);
    n += 8;
    const bool bookmark = recs_[k + n].op == mdj::kOpReportBookmark;
    draws_.push_back(bookmark ? kBookmark : kNoBookmark);
    return RadarPass(k + n + (bookmark ? 1 : 0), error);
}

}  // namespace

void DrawLog::Settle(std::size_t index) {
    for (; base_ < index; ++base_) {
        std::fprintf(out_, "%d\n", held_.front());
        held_.pop_front();
    }
}

bool SimulatedDrive::PassAt(const RecWindow& recs, std::size_t k, SimulatedPass& pass) const {
    pass.count = radarOnly_ ? RadarPart(recs, k) : FullPass(recs, k);
    pass.first = k;
    // A radar-only pass reads the clock the store stamped its group with.
    pass.tick = pass.count == 0 ? 0 : radarOnly_ ? recs[k].stamp : recs[k].U(1);
    return pass.count > 0;
}

bool SimulatedDrive::NextPass(const RecWindow& recs, std::size_t k, SimulatedPass& pass) const {
    for (; recs.Has(k); ++k) {
        if (PassAt(recs, k, pass)) {
            return true;
        }
    }
    return false;
}

bool SimulatedDrive::Find(const std::string& path, int& runs) {
    passes_ = 0;
    radarOnly_ = false;
    DriveReader reader;
    if (!reader.Open(path)) {
        return false;
    }
    RecWindow recs(reader);
    SimulatedPass pass;
    for (std::size_t k = 0; recs.Has(k); recs.Forget(k)) {
        passes_ += PassAt(recs, k, pass) ? 1 : 0;
        k += pass.count > 0 ? pass.count : 1;
    }
    runs = reader.Runs();
    if (passes_ > 0) {
        return true;
    }
    // Radar only: the passes are its radar groups. Only a reading without a tick tells that the
    // process simulated; a drive whose radar stayed off inverts exactly without simulating.
    DriveReader radarReader;
    radarReader.Open(path);
    RecWindow radar(radarReader);
    radarOnly_ = true;
    bool reading = false;
    for (std::size_t k = 0; radar.Has(k); radar.Forget(k)) {
        if (PassAt(radar, k, pass)) {
            reading = reading || radar[k].U(1) != 0;
            ++passes_;
        }
        k += pass.count > 0 ? pass.count : 1;
    }
    passes_ = reading ? passes_ : 0;
    radarOnly_ = passes_ > 0;
    return true;
}

bool SimulatedDrive::Draws(const std::string& path, std::FILE* out, std::string& error) const {
    DriveReader reader;
    if (!reader.Open(path)) {
        error = "nothing readable at " + path;
        return false;
    }
    RecWindow recs(reader);
    DrawLog draws(out);
    Inference inference(recs, draws);
    SimulatedPass pass;
    for (std::size_t k = 0; recs.Has(k); recs.Forget(k)) {
        if (!PassAt(recs, k, pass)) {
            ++k;
            continue;
        }
        const bool ok = radarOnly_ ? inference.RadarPass(k, error) : inference.FullPass(k, error);
        if (!ok) {
            error = "pass at tick " + std::to_string(pass.tick) + ": " + error;
            return false;
        }
        inference.Settle();
        k += pass.count;
    }
    draws.Settle(draws.size());
    return std::ferror(out) == 0;
}
