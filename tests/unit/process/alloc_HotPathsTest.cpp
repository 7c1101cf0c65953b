// Once warm, the manager's hot paths make no heap allocation: every event handler and request
// received on its endpoint, and every loop pass, through the real endpoints, store and shared
// record of the host platform. Only the dispatching Receive and the pass itself are counted;
// the peer's sends and reads happen outside the window.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LogClient.h"
#include "MetadataMgrServer.h"
#include "ProcessInitializer.h"
#include "ProcessState.h"
#include "StreamingLvsStateItem.h"
#include "alloc_Counter.h"
#include "events_support.h"

using events::Payload;

namespace {
const int kPasses = 40;
const int kWarmLoopPasses = 20;
const int kLoopPasses = kWarmLoopPasses + 400;
const unsigned int kBookmarkNotice = 40900;
const unsigned int kLogLevelSet = 1872;
const unsigned int kLogLevelGet = 1873;
const unsigned int kLogLevelResponse = 1874;

// One message the peer sends, and the answer it expects back (0: none).
struct Delivery {
    std::string name;
    IpcMessage message;
    unsigned int answer;
    LinxIpc* from;
};

Payload Encoded(const Item& item) {
    Payload p;
    p.Bytes().resize(item.Size());
    item.Encode(p.Bytes().data());
    return p;
}

class Deliveries {
public:
    explicit Deliveries(ManagerHarness& h) : h_(h) {}

    // `handler` bound at a fresh id, as a subscription binds it.
    void Bound(const std::string& name, LinxHandler handler, const Payload& p) {
        events::Bind(h_, handler, next_);
        Add(name, next_++, p, 0);
    }
    void Add(const std::string& name, unsigned int id, const Payload& p, unsigned int answer,
             LinxIpc* from = nullptr) {
        list_.push_back(Delivery{name, IpcMessage(), answer, from != nullptr ? from : &h_.peer});
        EXPECT_EQ(0,
                  list_.back().message.Allocate(
                      id, p.Size(), reinterpret_cast<char*>(const_cast<unsigned char*>(p.Data()))));
    }

    // Sends each message, receives it on the manager's endpoint and returns, per message, the
    // allocations that receive made.
    std::vector<unsigned int> Round() {
        std::vector<unsigned int> counts;
        counts.reserve(list_.size());
        for (Delivery& d : list_) {
            EXPECT_EQ(0, d.from->Notify(h_.ipc.Name(), d.message, true)) << d.name;
            int result = -1;
            counts.push_back(alloc::During([&] {
                result = h_.ipc.Receive(2000, d.message.MsgType(), LinxIpc::emptyString, nullptr);
            }));
            EXPECT_EQ(0, result) << d.name;
            IpcMessage answer;
            if (d.answer != 0) {
                EXPECT_EQ(0, d.from->Receive(1000, d.answer, LinxIpc::emptyString, &answer))
                    << d.name;
            }
        }
        return counts;
    }

    const std::vector<Delivery>& List() const { return list_; }

private:
    ManagerHarness& h_;
    unsigned int next_ = 40001;
    std::vector<Delivery> list_;
};

GpsStatusItem Gps(unsigned int fix) {
    GpsStatusItem gps;
    gps.latDegrees = 51;
    gps.lonDegrees = 7;
    gps.speed = 512;
    gps.fixStatus = fix;
    gps.satellitesUsed = 8;
    gps.tick = 1234;
    return gps;
}

RadarItem Radar(unsigned short status) {
    RadarItem radar;
    radar.status = status;
    radar.patrolSpeed = 55;
    radar.targetSpeed = 61;
    radar.tick = 1300;
    return radar;
}

void AddEveryEvent(Deliveries& d) {
    d.Bound("gps with fix", MetadataMgr::GpsStatusEventHandler, Encoded(Gps(1)));
    d.Bound("gps without fix", MetadataMgr::GpsStatusEventHandler, Encoded(Gps(0)));
    d.Bound("radar", MetadataMgr::RadarEventHandler, Encoded(Radar(0x0001)));
    d.Bound("radar invalid", MetadataMgr::RadarEventHandler, Encoded(Radar(0x0081)));

    FpgaExternalEventItem inputs;
    inputs.changedMask = 0x000BE000u;
    inputs.inputLevels = 0x0002A000u;
    inputs.tick = 1400;
    d.Bound("fpga inputs", MetadataMgr::ExternalInputEventHandler, Encoded(inputs));

    TempStatus temp;
    temp.temperatures[0] = 21;
    temp.temperatures[3] = -5;
    temp.tick = 1500;
    d.Bound("temperature", MetadataMgr::TempChangeHandler, Encoded(temp));

    MicStatusResponse mics;
    mics.Add(e_Mic_0, true, false);
    mics.Add(e_Mic_2, true, true);
    mics.tick = 1600;
    d.Bound("mic status", MetadataMgr::MicMgrStatusHandler, Encoded(mics));
    d.Add("mic state", events::kMicState,
          Payload()
              .Add(1610u)
              .Add(1u)
              .Add(static_cast<unsigned char>(1))
              .Add(static_cast<unsigned char>(1)),
          0);

    CrashItem crash;
    crash.crash = true;
    crash.tick = 1700;
    d.Bound("crash", MetadataMgr::CrashDetectHandler, Encoded(crash));

    VideoMgrCameraItem cameras;
    cameras.cameraState[0] = static_cast<e_CameraState>(1);
    cameras.cameraState[2] = static_cast<e_CameraState>(2);
    cameras.tick = 1800;
    d.Bound("camera item", MetadataMgr::VideoMgrCameraItemHandler, Encoded(cameras));
    VideoMgrStreamQualityItem quality;
    quality.streams[1].quality = 3;
    quality.streams[1].bitRateKbps = 4000;
    quality.tick = 1810;
    d.Bound("stream quality", MetadataMgr::VideoMgrStreamQualityItemHandler, Encoded(quality));
    d.Add("stream notice", events::kVideoStreamState, Payload().Words({1820, 1, 2}), 0);
    d.Add("camera notice", events::kCameraState, Payload().Words({1830, 2, 1}), 0);

    d.Add("record start", events::kRecordStartStop,
          Payload().Add(1900u).Add(static_cast<unsigned char>(1)), 0);
    d.Add("record stop", events::kRecordStartStop,
          Payload().Add(1910u).Add(static_cast<unsigned char>(0)), 0);
    d.Bound("state mgr record start", MetadataMgr::RecordStartHandler, Encoded(SystickItem(1920)));
    d.Bound("state mgr record stop", MetadataMgr::RecordStopHandler, Encoded(SystickItem(1930)));
    d.Bound("covert on", MetadataMgr::EnterCovertModeHandler, Encoded(SystickItem(1940)));
    d.Bound("covert off", MetadataMgr::ExitCovertModeHandler, Encoded(SystickItem(1950)));
    d.Add("bookmark", events::kBookmark, Payload().Add(1960u), kBookmarkNotice);

    const LinxHandler streams[] = {
        MetadataMgr::LVSStateChangeHandler_0, MetadataMgr::LVSStateChangeHandler_1,
        MetadataMgr::LVSStateChangeHandler_2, MetadataMgr::LVSStateChangeHandler_3,
        MetadataMgr::LVSStateChangeHandler_4, MetadataMgr::LVSStateChangeHandler_5,
    };
    ExternalMgrApi::StreamingLvsStateItem lvs;
    lvs.SetEnabled(true);
    lvs.SetCamera(1);
    lvs.SetAddress("192.168.100.200");
    lvs.SetPort(5004);
    for (unsigned int n = 0; n < 6; ++n) {
        d.Bound("lvs stream " + std::to_string(n), streams[n], Encoded(lvs));
    }

    VehicleInfo vehicle;
    vehicle.vehicleId.Set("CAR 54");
    vehicle.licensePlate.Set("AB-123-CD");
    vehicle.description.Set("A patrol car with a rather longer description than most");
    d.Bound("vehicle", MetadataMgr::VehicleInfoChangedHandler, Encoded(vehicle));
    Officer officer;
    officer.officerId.Set("A-17");
    officer.name.Set("Constable Smith-Jones");
    d.Bound("officer", MetadataMgr::OfficerChangedHandler, Encoded(officer));
    DepartmentInfo department;
    department.departmentId.Set("D1");
    department.name.Set("Traffic");
    d.Bound("department", MetadataMgr::DeptInfoChangedHandler, Encoded(department));
    SystemInfo system;
    system.systemName.Set("Unit");
    system.unitNumber.Set("U-9");
    d.Bound("system", MetadataMgr::SystemInfoChangedHandler, Encoded(system));
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    settings.recordAudio.Set(true);
    d.Bound("recording settings", MetadataMgr::VideoRecordingSettingsChangedHandler,
            Encoded(settings));

    d.Add("ping", events::kPing, Payload(), events::kPingResponse);
    d.Add("last tick", events::kLastSystemTick, Payload(), events::kLastSystemTickResponse);
}

// A manager as the loop runs it: prepared, start-up records written, watchdog subscribed.
void Start(ManagerHarness& h) {
    ASSERT_TRUE(h.Prepare());
    h.manager->InitializeStore();
    ASSERT_TRUE(h.manager->GetWatchdog().Subscribe(30));
}

int Draw() {
    static unsigned int state = 12345;
    state = state * 1103515245u + 12345u;
    return static_cast<int>((state >> 16) & 0x7FFF);
}
}  // namespace

TEST(AllocHotPaths, EveryHandlerAndRequestOnceWarm) {
    ManagerHarness h;
    Start(h);

    // The peer follows the bookmark, so a bookmark also notifies a subscriber.
    ASSERT_TRUE(
        h.Deliver(LinxIpc::kSubscribeRequest,
                  Payload().Words({MetadataMgrServer::kBookmarkItem, kBookmarkNotice}).Data(), 8));
    IpcMessage reply;
    ASSERT_TRUE(h.PeerReceive(reply, LinxIpc::kSubscribeReply));
    ASSERT_EQ(1u, h.manager->Server()->SubscriberCount(MetadataMgrServer::kBookmarkItem));

    Deliveries d(h);
    AddEveryEvent(d);
    // Requesters' names may be longer than a short string holds in place.
    LinxIpc console("DiagnosticsConsoleOfTheWorkshop");
    ASSERT_EQ(0, console.Init());
    d.Add("ping, long name", events::kPing, Payload(), events::kPingResponse, &console);
    d.Add("last tick, long name", events::kLastSystemTick, Payload(),
          events::kLastSystemTickResponse, &console);
    // The log-level requests, answered by the process initializer's handler.
    h.ipc.RegisterHandler(kLogLevelGet, ProcessInitializer<MetadataMgr>::HandleLogLevel,
                          h.manager.get());
    h.ipc.RegisterHandler(kLogLevelSet, ProcessInitializer<MetadataMgr>::HandleLogLevel,
                          h.manager.get());
    d.Add("log level get, long name", kLogLevelGet, Payload().Add(0u), kLogLevelResponse, &console);
    d.Add("log level set, long name", kLogLevelSet, Payload().Add(0xFFFFFFFFu), kLogLevelResponse,
          &console);
    d.Round();  // warm-up

    std::vector<unsigned int> total(d.List().size(), 0);
    for (int pass = 0; pass < kPasses; ++pass) {
        // Every other pass with every log line on: the lines are built in place too.
        LogCapture log(h.env.Path("log.txt"),
                       pass % 2 == 0 ? LogClient::kDefaultLevel : 0xFFFFFFFFu);
        const std::vector<unsigned int> counts = d.Round();
        for (size_t i = 0; i < counts.size(); ++i) {
            total[i] += counts[i];
        }
    }
    for (size_t i = 0; i < total.size(); ++i) {
        EXPECT_EQ(0u, total[i]) << d.List()[i].name;
    }

    // The counter does see the platform's allocations: the metadata-to-file copy, the one
    // request allowed to allocate, is counted.
    Payload copy;
    copy.Bytes().assign(1024, 0);
    const std::string target = h.env.Media() + "/copy.mdj";
    std::copy(target.begin(), target.end(), copy.Bytes().begin());
    copy.Add(0u).Add(0xFFFFFFFEu);
    IpcMessage request;
    ASSERT_EQ(0, request.Allocate(events::kMetadataToFile, copy.Size(),
                                  reinterpret_cast<char*>(copy.Bytes().data())));
    ASSERT_EQ(0, h.peer.Notify(h.ipc.Name(), request, true));
    EXPECT_LT(0u, alloc::During([&] {
                  h.ipc.Receive(2000, events::kMetadataToFile, LinxIpc::emptyString, nullptr);
              }));

    // The handlers did their work: every round stored each event.
    const std::vector<StoreRecord> records = h.Records();
    const size_t rounds = kPasses + 1;
    EXPECT_EQ(rounds, WithOp(records, "ReportBookmark").size());
    EXPECT_EQ(rounds, WithOp(records, "ReportOfficerInfo").size());
    EXPECT_EQ(4 * rounds, WithOp(records, "ReportTemp").size());
}

TEST(AllocHotPaths, LoopPassPlainForcedAndSimulated) {
    enum Mode { kPlain, kForced, kSimulated };
    for (Mode mode : {kPlain, kForced, kSimulated}) {
        SCOPED_TRACE(mode);
        std::unique_ptr<ScopedEnv> force;
        if (mode == kForced) {
            force.reset(new ScopedEnv("FORCE_METADATA", "1"));
        }
        ManagerHarness h;
        ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
        h.env.WriteFile("tick", "1000");
        Start(h);
        gSimulatorMode = mode == kSimulated;
        h.manager->SetSimulatorDraw(Draw);

        // Half a second a pass, so every other pass puts the store's data on disk.
        unsigned int tick = 1000;
        unsigned int allocations = 0;
        for (int pass = 0; pass < kLoopPasses; ++pass) {
            tick += 500;
            h.env.WriteFile("tick", std::to_string(tick));
            const unsigned int n = alloc::During([&] {
                h.manager->PetWatchdog();
                h.manager->PeriodicProcessing();
            });
            if (pass >= kWarmLoopPasses) {
                allocations += n;
            }
        }
        EXPECT_EQ(0u, allocations) << "first size " << alloc::FirstSize();
        EXPECT_EQ(static_cast<unsigned int>(kLoopPasses), h.manager->GetWatchdog().PetCount());
        EXPECT_EQ(tick, h.manager->GetLastSystemTick());
        const std::vector<StoreRecord> records = h.Records();
        EXPECT_EQ(mode == kForced ? static_cast<size_t>(kLoopPasses) : 0u,
                  WithOp(records, "ReportStringData").size());
        if (mode == kSimulated) {
            EXPECT_LT(static_cast<size_t>(kLoopPasses), records.size());
        }
        gSimulatorMode = false;
    }
}
