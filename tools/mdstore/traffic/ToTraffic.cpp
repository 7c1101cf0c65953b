// mdstore traffic: a store turned back into the vehicle's side of the session that made it,
// as a linxpeer capture. Each record is inverted through the handler that writes it: the
// values reported at subscription become the served items, every later record the notice or
// request that produces it, in store order and at its own tick.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ConfigItems.h"
#include "HalItems.h"
#include "Item.h"
#include "MicItems.h"
#include "PlatformTypes.h"
#include "RecordSchema.h"
#include "SegmentFiles.h"
#include "StreamingLvsStateItem.h"
#include "Verbs.h"
#include "VideoMgrItems.h"
#include "reading/DriveRecords.h"
#include "reading/Options.h"
#include "traffic/PassRecords.h"
#include "traffic/TrafficRecords.h"

const char* const kTrafficUsage =
    "Usage: mdstore traffic [--draws LOG] STORE [CAPTURE]\n"
    "Turns the drive a store holds back into the traffic that made it, as a linxpeer capture\n"
    "(standard output, or CAPTURE): the state manager's handshake, every server's items with\n"
    "the values reported at subscription, then every change as the notice or request that\n"
    "produces it, in order, at its own tick. Play it with linxpeer --replay CAPTURE against a\n"
    "fresh MetadataMgr (HOST_SYSTICK_FILE set for both, so the process's clock follows the\n"
    "drive). Records no traffic can produce are written as # lines and counted on standard\n"
    "error. A simulated drive (MetadataMgr -s) comes with the simulator's draws log\n"
    "(SIMULATOR_DRAWS_LOG): draws.log in the store's directory, or --draws LOG. With it the\n"
    "simulator's records are left out of the traffic, which drives the process loop pass by\n"
    "loop pass: replay it into MetadataMgr -s (the capture's '# simulator' line says with\n"
    "which options) with SIMULATOR_DRAWS=LOG. Without a log the drive is traffic alone, and\n"
    "the records of a simulator would differ in the replay (said on standard error). The\n"
    "payloads are in this machine's byte order: make the capture where it is replayed.\n"
    "Exit status: 0 written, 1 bad usage, 2 the store cannot be read or holds more than one\n"
    "run, or the draws log is cut short, of another run or not this drive's.\n";

namespace {

typedef std::vector<unsigned char> Bytes;

const char kProcess[] = "MetadataMgr";
const unsigned int kSubscribeRequest = 0xFFFFFF10u;
const unsigned int kSubscribeReply = 0xFFFFFF11u;
const unsigned int kShutdownNotice = 0xFFFFFF01u;
const unsigned int kPing = 13488;
const unsigned int kPingResponse = 13489;

template <typename T>
void Put(Bytes& out, T value) {
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

Bytes Encoded(const Item& item) {
    Bytes out(item.Size());
    item.Encode(out.data());
    return out;
}

class Writer {
public:
    explicit Writer(std::FILE* out) : out_(out) {}

    void At(unsigned long long ms) { ms_ = ms; }
    void Recv(const char* role, unsigned int type) {
        std::fprintf(out_, "%llu recv %s %s %u -\n", ms_, role, kProcess, type);
    }
    void Sent(const char* role, unsigned int type, const Bytes& payload) {
        std::string hex;
        static const char kDigits[] = "0123456789abcdef";
        for (unsigned char byte : payload) {
            hex += kDigits[byte >> 4];
            hex += kDigits[byte & 0x0F];
        }
        std::fprintf(out_, "%llu sent %s %s %u %s\n", ms_, role, kProcess, type,
                     hex.empty() ? "-" : hex.c_str());
        ++sent_;
    }
    unsigned long SentCount() const { return sent_; }
    void Serve(const char* role, unsigned int itemId, unsigned int notifyId, const Item& item) {
        Recv(role, kSubscribeRequest);
        const unsigned int head[3] = {itemId, notifyId, 0};
        Bytes reply(sizeof head + item.Size());
        std::memcpy(reply.data(), head, sizeof head);
        item.Encode(reply.data() + sizeof head);
        Sent(role, kSubscribeReply, reply);
    }
    void Tick(std::uint32_t tick) {
        if (!ticked_ || tick != tick_) {
            std::fprintf(out_, "%llu tick %u\n", ms_, tick);
        }
        ticked_ = true;
        tick_ = tick;
    }
    // A ping answered: every message before it has been handled, and the loop pass after
    // it has read the clock.
    void Ping() {
        Sent("Cli", kPing, Bytes());
        Recv("Cli", kPingResponse);
    }
    // Everything sent before has been handled, and the loop pass after it has run.
    void Sync() { std::fprintf(out_, "%llu sync Cli %s\n", ms_, kProcess); }
    void Comment(const std::string& text) { std::fprintf(out_, "# %s\n", text.c_str()); }

private:
    std::FILE* out_;
    unsigned long sent_ = 0;
    unsigned long long ms_ = 0;
    bool ticked_ = false;
    std::uint32_t tick_ = 0;
};

// No end given: the records run on to the end of the drive.
const std::size_t kNoLimit = static_cast<std::size_t>(-1);

class Inverter {
public:
    // `draws` null: a drive without the simulator's draws.
    Inverter(RecWindow& recs, DrawsLog* draws, Writer& out)
        : recs_(recs), draws_(draws), out_(out) {}

    // Returns the number of records that no traffic reproduces exactly.
    int Run();

private:
    // Records beyond `limit_` belong to what comes next: no message takes them.
    bool Is(std::size_t k, std::uint8_t op, bool flag) const {
        return k < limit_ && RecIs(recs_, k, op, flag);
    }
    void Lost(std::size_t k, const char* why) {
        out_.Comment(std::string(why) + ": record " + std::to_string(recs_.Raw(k).number) + " " +
                     recs_.Raw(k).Text());
        ++lost_;
    }

    // Subscription: each reads the values its server reported at subscription, if there.
    void Subscribe();
    std::size_t Config(std::size_t k, bool flag, bool serve);
    void InputsAt(std::size_t k, std::size_t count, FpgaExternalEventItem& item) const;
    std::size_t Gps(std::size_t k, bool flag, GpsStatusItem& item);
    std::size_t Radar(std::size_t k, bool flag, RadarItem& item);
    std::size_t Mics(std::size_t k, bool flag, MicStatusResponse& item) const;
    std::size_t Temps(std::size_t k, bool flag, TempStatus& item) const;
    // A change from the records at k: the number of records its traffic produces (0: none).
    std::size_t Change(std::size_t k);
    std::size_t StateChange(std::size_t k);
    std::size_t MicChange(std::size_t k);
    std::size_t LvsChange(std::size_t k);
    // Every change, each at its own time, then the quit.
    void RunChanges();
    // A simulated drive, loop pass by loop pass: before each, the one message (or a ping) that
    // the loop received, then the process's own simulated records.
    void RunPasses();
    // The records [k, end) as the one message that wrote them; returns how many it took.
    unsigned long Message(std::size_t k, std::size_t end);
    // The end of the drive when it is near enough after k to matter to Message, else kNoLimit.
    std::size_t TailEnd(std::size_t k) const;
    // Records one message writes that are otherwise sent one by one: a camera item's four
    // ports, a microphone list.
    bool OneItem(std::size_t k, std::size_t end);

    RecWindow& recs_;
    DrawsLog* draws_;
    Writer& out_;
    std::size_t limit_ = kNoLimit;
    std::size_t next_ = 0;
    unsigned int levels_ = 0;  // the inputs' levels as the last notice left them
    int lost_ = 0;
};

const char* const kConfigRoles[] = {"ConfigMgr"};
const unsigned int kConfigItems[] = {10, 7, 11, 12, 13};
const std::uint8_t kConfigOps[] = {mdj::kOpReportVehicleInfo, mdj::kOpReportSystemInfo,
                                   mdj::kOpReportDepartmentInfo, mdj::kOpReportOfficerInfo,
                                   mdj::kOpReportVideoRecordingSettings};

// One configuration record as the item it was reported from.
std::unique_ptr<Item> ConfigItem(const Rec& rec) {
    switch (rec.op) {
        case mdj::kOpReportVehicleInfo: {
            std::unique_ptr<VehicleInfo> item(new VehicleInfo);
            item->vehicleId.Set(rec.T(0));
            item->licensePlate.Set(rec.T(1));
            item->description.Set(rec.T(2));
            return item;
        }
        case mdj::kOpReportSystemInfo: {
            std::unique_ptr<SystemInfo> item(new SystemInfo);
            item->systemName.Set(rec.T(0));
            item->unitNumber.Set(rec.T(1));
            return item;
        }
        case mdj::kOpReportDepartmentInfo: {
            std::unique_ptr<DepartmentInfo> item(new DepartmentInfo);
            item->departmentId.Set(rec.T(0));
            item->name.Set(rec.T(1));
            return item;
        }
        case mdj::kOpReportOfficerInfo: {
            std::unique_ptr<Officer> item(new Officer);
            item->officerId.Set(rec.T(0));
            item->name.Set(rec.T(1));
            return item;
        }
        default: {
            std::unique_ptr<VideoRecordingSettings> item(new VideoRecordingSettings);
            item->preEventSeconds.Set(static_cast<unsigned short>(rec.U(0)));
            item->postEventSeconds.Set(static_cast<unsigned short>(rec.U(1)));
            item->resolution.Set(static_cast<unsigned short>(rec.U(2)));
            item->frameRate.Set(static_cast<unsigned short>(rec.U(3)));
            item->recordAudio.Set(rec.U(4) != 0);
            return item;
        }
    }
}

std::size_t ConfigIndex(std::uint8_t op) {
    for (std::size_t i = 0; i < 5; ++i) {
        if (kConfigOps[i] == op) {
            return i;
        }
    }
    return 5;
}

std::size_t Inverter::Config(std::size_t k, bool flag, bool serve) {
    if (serve) {
        // All five or none: the process reports them only when all five subscriptions held.
        bool all = true;
        for (std::size_t i = 0; i < 5; ++i) {
            all = all && Is(k + i, kConfigOps[i], false);
        }
        for (std::size_t i = 0; i < 5; ++i) {
            Rec none;
            none.op = kConfigOps[i];
            std::unique_ptr<Item> item = ConfigItem(all ? recs_[k + i] : none);
            out_.Serve(kConfigRoles[0], kConfigItems[i], 13492 + static_cast<unsigned>(i), *item);
        }
        return all ? 5 : 0;
    }
    const std::size_t index = recs_.Has(k) ? ConfigIndex(recs_[k].op) : 5;
    if (index == 5 || recs_[k].v.flag != flag) {
        return 0;
    }
    out_.Sent(kConfigRoles[0], 13492 + static_cast<unsigned>(index),
              Encoded(*ConfigItem(recs_[k])));
    return 1;
}

void Inverter::InputsAt(std::size_t k, std::size_t count, FpgaExternalEventItem& item) const {
    for (std::size_t i = k; i < k + count; ++i) {
        const Input& input = kInputs[InputIndex(recs_[i].U(0))];
        item.changedMask |= input.bit;
        if (recs_[i].U(0) == input.on) {
            item.inputLevels |= input.bit;
        } else {
            item.inputLevels &= ~input.bit;
        }
        item.tick = recs_[i].U(1);
    }
}

// State, then position and speed with a fix, or the speed marked invalid without one.
std::size_t Inverter::Gps(std::size_t k, bool flag, GpsStatusItem& item) {
    if (!Is(k, mdj::kOpReportGpsState, flag)) {
        return 0;
    }
    if (recs_[k].U(0) == 0) {
        if (!Is(k + 1, mdj::kOpReportValidSpeed, false) || recs_[k + 1].U(0) != 1) {
            return 0;
        }
        item.fixStatus = 0;
        return 2;
    }
    if (!Is(k + 1, mdj::kOpReportGps, flag) || !Is(k + 2, mdj::kOpReportSpeed, flag) ||
        recs_[k + 2].U(0) != 1) {
        return 0;
    }
    const Rec& gps = recs_[k + 1];
    item.latDegrees = static_cast<unsigned short>(gps.U(0));
    item.latMinutes = static_cast<unsigned short>(gps.U(1));
    item.latMinuteFraction = gps.U(2);
    item.latHemisphere = static_cast<int>(gps.U(3));
    item.lonDegrees = static_cast<unsigned short>(gps.U(4));
    item.lonMinutes = static_cast<unsigned short>(gps.U(5));
    item.lonMinuteFraction = gps.U(6);
    item.lonHemisphere = static_cast<int>(gps.U(7));
    item.altitude = static_cast<int>(gps.U(8));
    item.speed = static_cast<unsigned short>(gps.U(9));
    item.heading = static_cast<unsigned short>(gps.U(10));
    item.magneticVariation = static_cast<unsigned short>(gps.U(11));
    item.satellitesInView = static_cast<unsigned short>(gps.U(12));
    item.fixStatus = gps.U(13);
    item.fixMode = static_cast<int>(gps.U(14));
    item.hdop = static_cast<int>(gps.U(15));
    item.satellitesUsed = static_cast<int>(gps.U(16));
    item.geoidSeparation = static_cast<int>(gps.U(17));
    item.utcTime = gps.U(18);
    item.dataValid = static_cast<unsigned char>(gps.U(19));
    item.tick = gps.U(20);
    // The handler stamps both with the item's tick and stores the speed in whole units.
    const Rec& speed = recs_[k + 2];
    if (gps.U(21) != item.tick || speed.U(2) != item.tick || speed.U(1) != item.speed / 10u ||
        item.fixStatus == 0 || item.fixStatus == 7) {
        // Not as the handler writes it (the simulator's are so): the closest notice keeps
        // the state, the speed sample and their tick, and only the position record differs.
        Lost(k + 1, "not invertible (GPS position without a fix, or with another tick or speed)");
        item.fixStatus = item.fixStatus == 0 || item.fixStatus == 7 ? 1 : item.fixStatus;
        item.speed = static_cast<unsigned short>(speed.U(1) * 10u);
        item.tick = speed.U(2);
    }
    return 3;
}

std::size_t Inverter::Radar(std::size_t k, bool flag, RadarItem& item) {
    if (!Is(k, mdj::kOpReportRadarState, flag)) {
        return 0;
    }
    if (recs_[k].U(1) == 0) {
        if (!Is(k + 1, mdj::kOpReportValidSpeed, false) || recs_[k + 1].U(0) != 2) {
            return 0;
        }
        item.status = RadarItem::kStatusInvalid;
        return 2;
    }
    if (!Is(k + 1, mdj::kOpReportRadar, flag)) {
        return 0;
    }
    const Rec& radar = recs_[k + 1];
    item.status = 0;
    item.targetSpeed = static_cast<unsigned short>(radar.U(1));
    item.fastestSpeed = static_cast<unsigned short>(radar.U(2));
    item.lockedSpeed = static_cast<unsigned short>(radar.U(3));
    item.tick = radar.U(5);
    if (!Is(k + 2, mdj::kOpReportSpeed, flag) || recs_[k + 2].U(0) != 2 ||
        recs_[k + 2].U(2) != item.tick) {
        Lost(k + 1, "not invertible (a radar reading without its speed sample)");
        return 2;
    }
    item.patrolSpeed = static_cast<unsigned short>(recs_[k + 2].U(1));
    return 3;
}

// Present and active of each microphone, in pairs with one tick.
std::size_t Inverter::Mics(std::size_t k, bool flag, MicStatusResponse& item) const {
    std::size_t i = k;
    while (Is(i, mdj::kOpReportMicPresent, flag) && Is(i + 1, mdj::kOpReportMicState, flag) &&
           recs_[i].U(0) == recs_[i + 1].U(0) && recs_[i].U(2) == recs_[i + 1].U(2) &&
           (i == k || recs_[i].U(2) == item.tick) &&
           item.Add(static_cast<e_MicrophonePosition>(recs_[i].U(0)), recs_[i].U(1) != 0,
                    recs_[i + 1].U(1) != 0)) {
        item.tick = recs_[i].U(2);
        i += 2;
    }
    return i - k;
}

// Sensors 3, 0, 1, 2 with one tick; the item holds them in the order 3, 2, 1, 0.
std::size_t Inverter::Temps(std::size_t k, bool flag, TempStatus& item) const {
    static const unsigned int kOrder[] = {3, 0, 1, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        if (!Is(k + i, mdj::kOpReportTemp, flag) || recs_[k + i].U(0) != kOrder[i] ||
            recs_[k + i].U(2) != recs_[k].U(2)) {
            return 0;
        }
        item.temperatures[3 - kOrder[i]] = static_cast<short>(recs_[k + i].v.n[1]);
    }
    item.tick = recs_[k].U(2);
    return 4;
}

void Inverter::Subscribe() {
    std::size_t k = Config(0, false, true);
    FpgaExternalEventItem fpga;
    std::size_t inputs = 0;
    while (inputs < 6 && Is(k + inputs, mdj::kOpReportStateData, false) &&
           InputIndex(recs_[k + inputs].U(0)) == static_cast<int>(inputs)) {
        ++inputs;
    }
    if (inputs == 6) {
        InputsAt(k, 6, fpga);
        fpga.changedMask = 0;
        levels_ = fpga.inputLevels;
        k += 6;
    }
    out_.Serve("FpgaHal", 17, 13497, fpga);
    GpsStatusItem gps;
    k += Gps(k, false, gps);
    out_.Serve("GpsHal", 1, 13504, gps);
    for (unsigned int item = 1; item <= 4; ++item) {
        out_.Serve("StateMgr", item, 13504 + item, SystickItem(0));
    }
    RadarItem radar;
    radar.status = RadarItem::kStatusInvalid;
    k += Radar(k, false, radar);
    out_.Serve("RadarHal", 1, 13510, radar);
    MicStatusResponse mics;
    k += Mics(k, false, mics);
    out_.Serve("MicMgr", 0, 13511, mics);
    VideoMgrCameraItem camera;
    std::size_t ports = 0;
    while (ports < 4 && Is(k + ports, mdj::kOpReportCameraState, false) &&
           recs_[k + ports].U(0) == ports) {
        camera.cameraState[ports] = static_cast<e_CameraState>(recs_[k + ports].U(1));
        camera.tick = recs_[k + ports].U(2);
        ++ports;
    }
    VideoMgrStreamQualityItem quality;
    if (ports == 4 && Is(k + 4, mdj::kOpReportStreamQualityItem, false)) {
        const Rec& rec = recs_[k + 4];
        for (unsigned int s = 0; s < VideoMgrStreamQualityItem::kStreams; ++s) {
            quality.streams[s].quality = rec.U(4 * s);
            quality.streams[s].bitRateKbps = rec.U(4 * s + 1);
            quality.streams[s].frameRate = static_cast<unsigned short>(rec.U(4 * s + 2));
            quality.streams[s].resolution = static_cast<unsigned short>(rec.U(4 * s + 3));
        }
        quality.tick = rec.U(16);
        k += 5;
    }
    out_.Serve("VideoMgr", 0, 13513, camera);
    out_.Serve("VideoMgr", 1, 13514, quality);
    CrashItem crash;
    if (Is(k, mdj::kOpReportStateData, true) &&
        (recs_[k].U(0) == e_Tag_CrashDetected || recs_[k].U(0) == e_Tag_CrashCleared)) {
        crash.crash = recs_[k].U(0) == e_Tag_CrashDetected;
        crash.tick = recs_[k].U(1);
        ++k;
    }
    out_.Serve("AccelHal", 1, 13512, crash);
    TempStatus temp;
    k += Temps(k, false, temp);
    out_.Serve("TempHal", 0, 13515, temp);
    for (unsigned int stream = 0; stream < 6; ++stream) {
        out_.Serve("ExternalMgr", 16 + stream, 18952 + stream,
                   ExternalMgrApi::StreamingLvsStateItem());
    }
    // A recording already running when the process came up.
    std::string reid;
    if (Is(k, mdj::kOpReportStateData, false) && recs_[k].U(0) == e_Tag_RecordingStarted &&
        recs_[k].U(1) == 0) {
        reid = "replayed";
        ++k;
    }
    out_.Recv("StreamMgr", 14100);
    Bytes text(reid.begin(), reid.end());
    text.push_back(0);
    out_.Sent("StreamMgr", 14101, text);
    next_ = k;
}

// An input, crash, recording or covert-mode state: the notice that made it.
std::size_t Inverter::StateChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    Bytes raw;
    if (!rec.v.flag) {
        return 0;
    }
    if (InputIndex(tag) >= 0) {
        // Inputs changed together: one notice, reported in table order with one tick.
        std::size_t count = 1;
        while (Is(k + count, mdj::kOpReportStateData, true) &&
               InputIndex(recs_[k + count].U(0)) > InputIndex(recs_[k + count - 1].U(0)) &&
               recs_[k + count].U(1) == rec.U(1)) {
            ++count;
        }
        FpgaExternalEventItem item;
        item.inputLevels = levels_;
        InputsAt(k, count, item);
        levels_ = item.inputLevels;
        out_.Sent("FpgaHal", 13497, Encoded(item));
        return count;
    }
    if (tag == e_Tag_CrashDetected || tag == e_Tag_CrashCleared) {
        CrashItem item;
        item.crash = tag == e_Tag_CrashDetected;
        item.tick = rec.U(1);
        out_.Sent("AccelHal", 13512, Encoded(item));
        return 1;
    }
    if (tag == e_Tag_RecordingStarted && rec.U(1) == 0) {
        // The state manager's start with tick 0 is dropped; the direct message is not.
        Put(raw, 0u);
        raw.push_back(1);
        out_.Sent("Cli", 13503, raw);
        return 1;
    }
    // Record start, stop, covert mode entered, left: the state manager's items 1-4.
    static const unsigned int kStateTags[] = {e_Tag_RecordingStarted, e_Tag_RecordingStopped, 58,
                                              59};
    for (unsigned int i = 0; i < 4; ++i) {
        if (tag == kStateTags[i]) {
            out_.Sent("StateMgr", 13505 + i, Encoded(SystickItem(rec.U(1))));
            return 1;
        }
    }
    return 0;
}

// A microphone present and its state: the direct message, or the manager's status item.
std::size_t Inverter::MicChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    Bytes raw;
    if (!Is(k + 1, mdj::kOpReportMicState, rec.v.flag) || !rec.v.flag || recs_[k + 1].U(0) != tag ||
        recs_[k + 1].U(2) != rec.U(2)) {
        return 0;
    }
    if (tag > 3) {
        // Beyond what the direct message accepts: the manager's status item.
        MicStatusResponse item;
        const std::size_t count = Mics(k, true, item);
        out_.Sent("MicMgr", 13511, Encoded(item));
        return count;
    }
    Put(raw, rec.U(2));
    Put(raw, tag);
    raw.push_back(static_cast<unsigned char>(rec.U(1)));
    raw.push_back(static_cast<unsigned char>(recs_[k + 1].U(1)));
    out_.Sent("Cli", 13502, raw);
    return 2;
}

// A live stream's state: the external manager's item for that stream.
std::size_t Inverter::LvsChange(std::size_t k) {
    const Rec& rec = recs_[k];
    const std::uint32_t tag = rec.U(0);
    if (!rec.v.flag || tag > 5) {
        return 0;
    }
    // The handler stamps it with the process's own last tick: set the clock and let
    // a loop pass read it first (in a simulated drive the pass before did).
    if (draws_ == nullptr) {
        out_.Tick(rec.U(6));
        out_.Ping();
    }
    ExternalMgrApi::StreamingLvsStateItem item;
    item.SetCamera(static_cast<unsigned short>(rec.U(1)));
    item.SetHighQuality(rec.U(2) != 0);
    item.SetEnabled(rec.U(3) != 0);
    // The number inet_addr gave, back to the text it came from on this machine.
    in_addr address;
    address.s_addr = htonl(rec.U(4));  // stored as the address's bytes in network order
    item.SetAddress(address.s_addr == INADDR_NONE ? "" : inet_ntoa(address));
    item.SetPort(static_cast<unsigned short>(rec.U(5)));
    out_.Sent("ExternalMgr", 18952 + tag, Encoded(item));
    return 1;
}

std::size_t Inverter::Change(std::size_t k) {
    const Rec& rec = recs_[k];
    Bytes raw;
    switch (rec.op) {
        case mdj::kOpReportStateData:
            return StateChange(k);
        case mdj::kOpReportBookmark:
            Put(raw, rec.U(0));
            out_.Sent("Cli", 13509, raw);
            return 1;
        case mdj::kOpReportGpsState: {
            GpsStatusItem item;
            const std::size_t count = Gps(k, true, item);
            if (count > 0) {
                out_.Sent("GpsHal", 13504, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportRadarState: {
            RadarItem item;
            const std::size_t count = Radar(k, true, item);
            if (count > 0) {
                out_.Sent("RadarHal", 13510, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportMicPresent:
            return MicChange(k);
        case mdj::kOpReportTemp: {
            TempStatus item;
            const std::size_t count = Temps(k, true, item);
            if (count > 0) {
                out_.Sent("TempHal", 13515, Encoded(item));
            }
            return count;
        }
        case mdj::kOpReportVideoStreamState:
        case mdj::kOpReportCameraState:
            if (!rec.v.flag) {
                return 0;
            }
            // A camera item's four ports and the direct message store alike; the direct
            // message takes one port at a time.
            Put(raw, rec.U(2));
            Put(raw, rec.U(0));
            Put(raw, rec.U(1));
            out_.Sent("Cli", rec.op == mdj::kOpReportCameraState ? 13501 : 13500, raw);
            return 1;
        case mdj::kOpReportStreamQualityItem: {
            if (!rec.v.flag) {
                return 0;
            }
            VideoMgrStreamQualityItem item;
            for (unsigned int s = 0; s < VideoMgrStreamQualityItem::kStreams; ++s) {
                item.streams[s].quality = rec.U(4 * s);
                item.streams[s].bitRateKbps = rec.U(4 * s + 1);
                item.streams[s].frameRate = static_cast<unsigned short>(rec.U(4 * s + 2));
                item.streams[s].resolution = static_cast<unsigned short>(rec.U(4 * s + 3));
            }
            item.tick = rec.U(16);
            out_.Sent("VideoMgr", 13514, Encoded(item));
            return 1;
        }
        case mdj::kOpReportLvsState:
            return LvsChange(k);
        default:
            return Config(k, true, false);
    }
}

int Inverter::Run() {
    // The process starts at the drive's first time.
    std::uint32_t start = 0;
    for (std::size_t k = 0; recs_.Has(k) && start == 0; ++k) {
        start = recs_[k].time;
    }
    out_.Tick(start);
    out_.Recv("StateMgr", 13232);
    Bytes flag(1, 1);
    out_.Sent("StateMgr", 13233, flag);
    Subscribe();
    out_.Recv("StateMgr", 13234);
    out_.Sent("StateMgr", 13235, Bytes());
    if (draws_ != nullptr) {
        RunPasses();
    } else {
        RunChanges();
    }
    out_.Sent("StateMgr", kShutdownNotice, Bytes());
    out_.Recv("StateMgr", 13239);
    return lost_;
}

void Inverter::RunChanges() {
    // Changes keep their distances in time; a clock that went back counts as no time.
    const std::uint32_t base = recs_.Has(next_) ? recs_[next_].time : 0;
    unsigned long long ms = 0;
    for (std::size_t k = next_; recs_.Has(k); recs_.Forget(k)) {
        const std::uint32_t time = recs_[k].time;
        if (time - base > ms && time - base < 0x80000000u) {
            ms = time - base;
        }
        out_.At(ms);
        out_.Tick(time);
        const std::size_t count = Change(k);
        if (count == 0) {
            Lost(k, "not invertible (no notice or request produces it here)");
        }
        k += count > 0 ? count : 1;
    }
    out_.Ping();
}

void Inverter::RunPasses() {
    out_.Comment(std::string("simulator ") + (draws_->RadarOnly() ? "-s -r" : "-s"));
    out_.Comment("a simulated drive of " + std::to_string(draws_->Passes()) +
                 " loop passes: each is driven by the message before it (a ping where the "
                 "loop woke without one) and a sync, so that it reads the clock of its records");
    std::uint32_t base = 0;
    unsigned long long ms = 0;
    std::size_t k = next_;
    LoggedPass pass;
    PassRecords found;
    std::string error;  // CheckPassRecords found every pass before
    while (draws_->Next(pass) &&
           FindPassRecords(recs_, k, draws_->RadarOnly(), pass, found, error)) {
        base = pass.number == 1 ? pass.tick : base;
        if (pass.tick - base > ms && pass.tick - base < 0x80000000u) {
            ms = pass.tick - base;
        }
        out_.At(ms);
        out_.Tick(pass.tick);
        // Records after the last pass came from a message that the quit was right behind: no
        // pass followed it. That message and the quit are sent while the last pass still runs,
        // so that both wait in the queue when the loop reads the message.
        const bool quitBehind =
            pass.number == draws_->Passes() && recs_.Has(found.first + found.count);
        if (Message(k, found.first) == 0) {
            if (quitBehind) {
                out_.Sent("Cli", kPing, Bytes());
            } else {
                out_.Ping();
            }
        }
        if (!quitBehind) {
            out_.Sync();
        }
        k = found.first + found.count;
        recs_.Forget(k);
    }
    Message(k, TailEnd(k));
}

std::size_t Inverter::TailEnd(std::size_t k) const {
    // Past the longest message that is one item (a microphone list), no end changes how the
    // records are sent.
    const std::size_t longest = 2 * MicStatusResponse::kMaxEntries + 1;
    std::size_t end = k;
    while (end < k + longest && recs_.Has(end)) {
        ++end;
    }
    return recs_.Has(end) ? kNoLimit : end;
}

unsigned long Inverter::Message(std::size_t k, std::size_t end) {
    const unsigned long before = out_.SentCount();
    limit_ = end;
    if (!OneItem(k, end)) {
        while (k < end && recs_.Has(k)) {
            const std::size_t count = Change(k);
            if (count == 0) {
                Lost(k, "not invertible (no notice or request produces it here)");
            }
            k += count > 0 ? count : 1;
            recs_.Forget(k);
        }
    }
    limit_ = kNoLimit;
    const unsigned long messages = out_.SentCount() - before;
    if (messages > 1) {
        out_.Comment("the " + std::to_string(messages) +
                     " messages above wrote what one message wrote before one loop pass: the "
                     "replay makes a loop pass after each");
        ++lost_;
    }
    return messages;
}

bool Inverter::OneItem(std::size_t k, std::size_t end) {
    if (end - k == 4) {
        VideoMgrCameraItem camera;
        bool ports = true;
        for (std::size_t port = 0; port < 4; ++port) {
            const Rec& rec = recs_[k + port];
            ports = ports && Is(k + port, mdj::kOpReportCameraState, true) && rec.U(0) == port &&
                    rec.U(2) == recs_[k].U(2);
            camera.cameraState[port] = static_cast<e_CameraState>(rec.U(1));
        }
        camera.tick = recs_[k].U(2);
        if (ports) {
            out_.Sent("VideoMgr", 13513, Encoded(camera));
            return true;
        }
    }
    MicStatusResponse mics;
    if (end - k > 2 && Mics(k, true, mics) == end - k) {
        out_.Sent("MicMgr", 13511, Encoded(mics));
        return true;
    }
    return false;
}

// The process runs the store at `path` holds; -1 when nothing there is readable.
int CountRuns(const std::string& path) {
    DriveReader reader;
    if (!reader.Open(path)) {
        return -1;
    }
    DriveRecord record;
    while (reader.Next(record)) {
    }
    return reader.Runs();
}

// The simulator's draws log of the store at `store`: `named`, else the one in the store's
// directory. False when there is none; says so on standard error when none was named.
bool FindDrawsLog(const std::string& store, const std::string& named, std::string& path) {
    path = named.empty() ? mdj::DirectoryOf(store) + "/" + kDrawsLogName : named;
    if (named.empty() && ::access(path.c_str(), F_OK) != 0) {
        std::fprintf(stderr,
                     "mdstore: no simulator draws log at %s: the drive is turned into traffic "
                     "alone; if MetadataMgr simulated it (-s), the simulator's records will "
                     "differ in a replay\n",
                     path.c_str());
        return false;
    }
    return true;
}

// The draws log checked against the store; false (with the reason on standard error) when it
// does not fit.
bool OpenDrawsLog(const std::string& store, const std::string& path, DrawsLog& log) {
    std::string error;
    if (!log.Open(path, error) || !CheckPassRecords(store, log, error)) {
        std::fprintf(stderr, "mdstore: %s\n", error.c_str());
        return false;
    }
    log.Rewind();
    std::fprintf(stderr,
                 "mdstore: a simulated drive of %lu loop passes: replay it into MetadataMgr %s "
                 "with SIMULATOR_DRAWS=%s\n",
                 log.Passes(), log.RadarOnly() ? "-s -r" : "-s", path.c_str());
    return true;
}

}  // namespace

int TrafficVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptDraws, 1, kTrafficUsage, options, 1);
    if (early >= 0) {
        return early;
    }
    // The store is read three times: for its runs, for the passes of the draws log, and for
    // the traffic; each reading holds only the records at hand.
    const std::vector<std::string>& args = options.paths;
    const int runs = CountRuns(args[0]);
    if (runs < 0) {
        std::fprintf(stderr, "mdstore: nothing readable at %s\n", args[0].c_str());
        return 2;
    }
    if (runs > 1) {
        std::fprintf(stderr,
                     "mdstore: %s holds %d runs of the process; copy one out first (mdstore copy "
                     "--from --to)\n",
                     args[0].c_str(), runs);
        return 2;
    }
    DrawsLog log;
    std::string logPath;
    const bool simulated = FindDrawsLog(args[0], options.draws, logPath);
    if (simulated && !OpenDrawsLog(args[0], logPath, log)) {
        return 2;
    }
    std::FILE* out = args.size() == 2 ? std::fopen(args[1].c_str(), "w") : stdout;
    if (out == nullptr) {
        std::fprintf(stderr, "mdstore: cannot write %s\n", args[1].c_str());
        return 2;
    }
    const unsigned int one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    std::fprintf(out, "linxpeer-capture 1 %s\n", first == 1 ? "little" : "big");
    Writer writer(out);
    DriveReader reader;
    reader.Open(args[0]);
    RecWindow recs(reader);
    const int lost = Inverter(recs, simulated ? &log : nullptr, writer).Run();
    if (lost > 0) {
        std::fprintf(stderr, "mdstore: %d records no traffic reproduces exactly (# lines)\n", lost);
    }
    return (out == stdout ? std::fflush(out) : std::fclose(out)) == 0 ? 0 : 2;
}
