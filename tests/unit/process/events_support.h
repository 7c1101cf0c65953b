// Helpers of the event and allocation tests: raw payloads, sample items, every handler with a
// well-formed and a short payload, and the manager's handlers bound on its endpoint.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "ManagerHarness.h"

namespace events {

// Ids the tests bind subscription handlers to on the manager's endpoint; the real ids belong to
// the subscriptions and play no part in what a handler does.
const unsigned int kTestNotice = 40001;

// Messages the manager serves on its own endpoint.
const unsigned int kPing = 13488, kPingResponse = 13489;
const unsigned int kMetadataToFile = 13490, kMetadataToFileResponse = 13491;
const unsigned int kLastSystemTick = 13498, kLastSystemTickResponse = 13499;
const unsigned int kVideoStreamState = 13500, kCameraState = 13501, kMicState = 13502;
const unsigned int kRecordStartStop = 13503, kBookmark = 13509;

// A payload built field by field in native order.
struct Payload {
    std::vector<unsigned char> bytes;

    template <typename T>
    Payload& Add(T value) {
        const size_t at = bytes.size();
        bytes.resize(at + sizeof value);
        std::memcpy(&bytes[at], &value, sizeof value);
        return *this;
    }
    Payload& Words(std::initializer_list<unsigned int> words) {
        for (unsigned int w : words) {
            Add(w);
        }
        return *this;
    }
    unsigned int Size() const { return static_cast<unsigned int>(bytes.size()); }
};

// Items back to back, each in its own encoding, as records made of several items travel.
template <typename... Items>
Payload Encoded(const Items&... items) {
    Payload p;
    for (const Item* item : {static_cast<const Item*>(&items)...}) {
        const size_t at = p.bytes.size();
        p.bytes.resize(at + item->Size());
        item->Encode(&p.bytes[at]);
    }
    return p;
}

// The manager's endpoint also dispatches `handler` under `id`, as a subscription would.
inline void Bind(ManagerHarness& h, LinxHandler handler, unsigned int id = kTestNotice) {
    h.ipc.RegisterHandler(id, handler, h.manager.get());
}

inline bool Send(ManagerHarness& h, const Payload& p, unsigned int id = kTestNotice) {
    return h.Deliver(id, p.bytes.data(), p.Size());
}

// The ReportStateData calls as "StateData <tag> <flag> <tick>".
inline std::vector<std::string> States(const std::vector<StoreRecord>& records) {
    return Brief(records, {"ReportStateData"}, {"tag", "flag", "tick"});
}

// A reading with every field set, most to distinct values, so a field read from the wrong place
// shows.
inline GpsStatusItem Gps(unsigned int fix, unsigned short speed, unsigned int tick) {
    GpsStatusItem gps;
    gps.latDegrees = 51;
    gps.latMinutes = 30;
    gps.latMinuteFraction = 123456;
    gps.latHemisphere = 1;
    gps.lonDegrees = 359;
    gps.lonMinutes = 7;
    gps.lonMinuteFraction = 654321;
    gps.lonHemisphere = 1;
    gps.altitude = -12;
    gps.speed = speed;
    gps.heading = 271;
    gps.magneticVariation = 3;
    gps.satellitesInView = 11;
    gps.fixStatus = fix;
    gps.fixMode = 3;
    gps.hdop = 9;
    gps.satellitesUsed = 8;
    gps.geoidSeparation = -47;
    gps.utcTime = 0x12345678u;
    gps.dataValid = 0xA5;
    gps.tick = tick;
    return gps;
}

inline RadarItem Radar(unsigned short status, unsigned int tick) {
    RadarItem radar;
    radar.status = status;
    radar.patrolSpeed = 55;
    radar.targetSpeed = 61;
    radar.fastestSpeed = 72;
    radar.lockedSpeed = 68;
    radar.tick = tick;
    return radar;
}

inline FpgaExternalEventItem Inputs(unsigned int changed, unsigned int levels, unsigned int tick) {
    FpgaExternalEventItem item;
    item.changedMask = changed;
    item.inputLevels = levels;
    item.debounce = 0xFFFFFFFFu;  // not read
    item.tick = tick;
    return item;
}

inline VideoMgrCameraItem Cameras(std::initializer_list<unsigned int> states, unsigned int tick) {
    VideoMgrCameraItem item;
    std::transform(states.begin(), states.end(), item.cameraState,
                   [](unsigned int s) { return static_cast<e_CameraState>(s); });
    item.tick = tick;
    return item;
}

inline Payload MicState(unsigned int tick, unsigned int mic, bool present, bool active) {
    return Payload().Words({tick, mic}).Add<unsigned char>(present).Add<unsigned char>(active);
}

inline Payload LvsState(bool enabled, bool highQuality, unsigned short camera, const char* address,
                        unsigned short port) {
    return Encoded(BoolItem(enabled), BoolItem(highQuality), UShortItem(camera),
                   StringItem(address), UShortItem(port));
}

// A metadata-to-file request: the 1024-byte name field, then the first and last tick.
inline Payload CopyRequest(const std::string& name, unsigned int first, unsigned int last) {
    Payload p;
    p.bytes.assign(1024, 0);
    std::copy_n(name.begin(), std::min<size_t>(name.size(), 1024), p.bytes.begin());
    return p.Add(first).Add(last);
}

inline const LinxHandler kStreamHandlers[] = {
    MetadataMgr::LVSStateChangeHandler_0, MetadataMgr::LVSStateChangeHandler_1,
    MetadataMgr::LVSStateChangeHandler_2, MetadataMgr::LVSStateChangeHandler_3,
    MetadataMgr::LVSStateChangeHandler_4, MetadataMgr::LVSStateChangeHandler_5,
};

struct HandlerCase {
    LinxHandler handler;
    const char* name;        // the name in its null-payload line
    unsigned int shortSize;  // shorter than its smallest layout
    Payload sample;          // well formed; none for the copy, whose name needs a test's root
};

// Every handler, twice where a sample's branch matters (fix or not, valid or not, start or
// stop); texts longer than a short string holds in place. Items left at their defaults are
// well formed too.
inline std::vector<HandlerCase> EveryHandler() {
    using M = MetadataMgr;
    MicStatusResponse mics;
    mics.Add(e_Mic_2, true, true);
    const StringItem longText("A patrol car with a rather longer description than most");
    std::vector<HandlerCase> cases = {
        {M::RecordStartHandler, "RecordStartHandler", 3, Payload().Add(1920u)},
        {M::RecordStopHandler, "RecordStopHandler", 3, Payload().Add(1930u)},
        {M::EnterCovertModeHandler, "EnterCovertModeHandler", 3, Payload().Add(1940u)},
        {M::ExitCovertModeHandler, "ExitCovertModeHandler", 3, Payload().Add(1950u)},
        {M::RecordStartStopHandler, "RecordStartStopHandler", 4,
         Payload().Add(1900u).Add<unsigned char>(1)},
        {M::RecordStartStopHandler, "RecordStartStopHandler", 4,
         Payload().Add(1910u).Add<unsigned char>(0)},
        {M::BookmarkHandler, "BookmarkHandler", 3, Payload().Add(1960u)},
        {M::ExternalInputEventHandler, "ExternalInputEventHandler", 15,
         Encoded(Inputs(0x000BE000u, 0x0002A000u, 1400))},
        {M::GpsStatusEventHandler, "GpsStatusEventHandler", 0x8B, Encoded(Gps(1, 512, 1234))},
        {M::GpsStatusEventHandler, "GpsStatusEventHandler", 0x8B, Encoded(Gps(0, 512, 1235))},
        {M::RadarEventHandler, "RadarEventHandler", 0x2B, Encoded(Radar(0x0001, 1300))},
        {M::RadarEventHandler, "RadarEventHandler", 0x2B, Encoded(Radar(0x0081, 1301))},
        {M::MicStateChangedHandler, "MicStateChangedHandler", 9, MicState(1610, 1, true, true)},
        {M::MicMgrStatusHandler, "MicMgrStatusHandler", 7, Encoded(mics)},
        {M::TempChangeHandler, "TempChangeHandler", 0x4B, Encoded(TempStatus())},
        {M::CrashDetectHandler, "CrashDetectHandler", 7, Encoded(CrashItem())},
        {M::VideoStreamStateChangeHandler, "VideoStreamStateChangeHandler", 11,
         Payload().Words({1820, 1, 2})},
        {M::CliCameraStateChangedHandler, "CameraStateChangedHandler", 11,
         Payload().Words({1830, 2, 1})},
        {M::VideoMgrCameraItemHandler, "CameraStateChangedHandler", 39,
         Encoded(Cameras({1, 0, 2}, 1800))},
        {M::VideoMgrStreamQualityItemHandler, "CameraStateChangedHandler", 51,
         Encoded(VideoMgrStreamQualityItem())},
        {M::VehicleInfoChangedHandler, "VehicleInfoChangedHandler", 2,
         Encoded(StringItem("CAR 54"), StringItem("AB-123-CD"), longText)},
        {M::OfficerChangedHandler, "OfficerChangedHandler", 1,
         Encoded(StringItem("A-17"), StringItem("Constable Smith-Jones"))},
        {M::DeptInfoChangedHandler, "DeptInfoChangedHandler", 1,
         Encoded(StringItem("D1"), StringItem("Traffic"))},
        {M::SystemInfoChangedHandler, "SystemInfoChangedHandler", 1,
         Encoded(StringItem("Unit"), longText)},
        {M::VideoRecordingSettingsChangedHandler, "VideoRecordingSettingsChangedHandler", 8,
         Encoded(UShortItem(30), UShortItem(10), UShortItem(2), UShortItem(30), BoolItem(true))},
        {M::MetadataToFileHandler, "MetadataToFileHandler", 1031, Payload()},
    };
    for (LinxHandler stream : kStreamHandlers) {
        cases.push_back({stream, "LVSStateChangeHandler", 6,
                         LvsState(true, false, 1, "192.168.100.200", 5004)});
    }
    return cases;
}

}  // namespace events
