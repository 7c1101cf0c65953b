// The event handlers as the store and the shared record see them, each notice delivered through
// the manager's endpoint, and the requests it serves: ping, the bookmark item, metadata to file
// and the last system tick. What a report does with the flag false (the initial value of a
// subscription) is shown for every server by the start-up test.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <tuple>

#include "HostSeams.h"
#include "MetadataMgrServer.h"

#include "events_support.h"

using events::Encoded;
using events::Payload;

namespace {
class Events : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(h.Prepare()); }
    // Binds `handlers` under 40001, 40002, ...
    void BindAll(std::initializer_list<LinxHandler> handlers) {
        unsigned int id = 40001;
        for (LinxHandler handler : handlers) {
            events::Bind(h, handler, id++);
        }
    }
    // Asks for a copy of [first, last] into `name`; the answer byte, or -1 when none came.
    int Copy(const std::string& name, unsigned int first, unsigned int last) {
        IpcMessage answer;
        const bool came =
            events::Send(h, events::CopyRequest(name, first, last), events::kMetadataToFile) &&
            h.PeerReceive(answer, events::kMetadataToFileResponse, 2000);
        return came && answer.Size() == 1 ? answer.DataPtr()[0] : -1;
    }
    ManagerHarness h;
};
}  // namespace

// Hostile input: every handler drops an empty or short payload with one line and no record.
TEST_F(Events, EmptyAndShortPayloadsAreLoggedAndDropped) {
    unsigned int id = 40100;
    for (const events::HandlerCase& c : events::EveryHandler()) {
        const std::string name = c.name;
        events::Bind(h, c.handler, id);
        LogCapture log(h.env.Path("log.txt"), 2);
        ASSERT_TRUE(h.Deliver(id, nullptr, 0)) << name;
        // Non-zero bytes, so no field of a short payload reads as a valid zero by chance.
        Payload shortPayload;
        shortPayload.bytes.assign(c.shortSize, 0x01);
        ASSERT_TRUE(events::Send(h, shortPayload, id++)) << name;
        EXPECT_EQ(1u, log.Count(" " + name + ": error, DataPtr is null\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" " + name + ": error, payload too short")) << log.Text();
        EXPECT_EQ(2u, log.Count("\n")) << log.Text();
    }
    // Nothing but the store's own records (the segment's opening snapshot and the closing
    // record). A metadata-to-file request too short for its range is still answered: with 0.
    EXPECT_EQ((std::vector<std::string>{"WriteFullState", "ShutdownData"}),
              Brief(h.Records(), {}, {}));
    IpcMessage answer;
    ASSERT_TRUE(h.PeerReceive(answer, events::kMetadataToFileResponse, 2000));
    ASSERT_EQ(1u, answer.Size());
    EXPECT_EQ(0, answer.DataPtr()[0]);
}

// Recording and covert mode: tags, ticks, arrival order, and the zero tick only the state
// manager's own record start drops.
TEST_F(Events, RecordingTagsTicksAndTheZeroTickRule) {
    BindAll({MetadataMgr::RecordStartHandler, MetadataMgr::RecordStopHandler,
             MetadataMgr::EnterCovertModeHandler, MetadataMgr::ExitCovertModeHandler});
    // {id, tick, start byte}: 40001 start, 40002 stop, 40003 enter, 40004 exit; the start byte
    // only for 13503.
    const unsigned int sent[][3] = {
        {40001, 1000, 0}, {40003, 1100, 0}, {40004, 1200, 0}, {40002, 1300, 0}, {13503, 1400, 1},
        {13503, 1500, 0}, {40002, 0, 0},    {40003, 0, 0},    {40004, 0, 0},    {13503, 0, 1},
    };
    for (const auto& e : sent) {
        Payload p = Payload().Add(e[1]);
        ASSERT_TRUE(events::Send(
            h, e[0] == events::kRecordStartStop ? p.Add<unsigned char>(e[2]) : p, e[0]));
    }
    {
        LogCapture log(h.env.Path("log.txt"));
        ASSERT_TRUE(events::Send(h, Payload().Add(0u), 40001));
        EXPECT_EQ(1u, log.Count(" RecordStartHandler\n")) << log.Text();
        EXPECT_EQ(1u, log.Count("\n")) << log.Text();
    }
    {
        // Any non-zero start byte is a start; each report says what it stores (mask 128).
        LogCapture log(h.env.Path("log.txt"), 128);
        ASSERT_TRUE(
            events::Send(h, Payload().Add(1700u).Add<unsigned char>(2), events::kRecordStartStop));
        ASSERT_TRUE(events::Send(h, Payload().Add(1800u), 40004));
        EXPECT_EQ(1u, log.Lines("ReportRecordingEvent - recordStart = 1")) << log.Text();
        EXPECT_EQ(1u, log.Lines("ReportCovertModeEvent - enabled = 0")) << log.Text();
        EXPECT_EQ(2u, log.Count("\n")) << log.Text();
    }
    EXPECT_EQ(
        "StateData 70 true 1000, StateData 58 true 1100, StateData 59 true 1200, "
        "StateData 71 true 1300, StateData 70 true 1400, StateData 71 true 1500, "
        "StateData 71 true 0, StateData 58 true 0, StateData 59 true 0, StateData 70 true 0, "
        "StateData 70 true 1700, StateData 59 true 1800",
        Joined(events::States(h.Records())));
}

// The FPGA's inputs: which bits count, in which order the store gets them, and the log lines.
TEST_F(Events, InputsChangedBitsInTableOrderWithLevelsAndLogLines) {
    events::Bind(h, MetadataMgr::ExternalInputEventHandler);
    {
        LogCapture log(h.env.Path("log.txt"), 128);
        // lights on, siren off, door closed, in that order, whatever the bit order.
        ASSERT_TRUE(h.DeliverItem(events::kTestNotice, events::Inputs(0x000A8000u, 0x8000u, 10)));
        // Levels without a changed bit, and bit 18, produce nothing.
        ASSERT_TRUE(h.DeliverItem(events::kTestNotice, events::Inputs(0x40000u, 0xBE000u, 20)));
        ASSERT_TRUE(
            h.DeliverItem(events::kTestNotice, events::Inputs(0xFFF41FFFu, 0xFFFFFFFFu, 30)));
        const std::string text = log.Text();
        const size_t tick = text.find(" Add in SystemTick to ExternalEvent - tick = 10\n");
        const size_t lights = text.find(" ReportExternalEvent lights changed\n");
        const size_t door = text.find(" ReportExternalEvent doorOpen changed\n");
        EXPECT_TRUE(tick < lights && lights < door && door != std::string::npos) << text;
        EXPECT_EQ(3u, log.Count("ReportExternalEvent ")) << text;
        EXPECT_EQ(1u, log.Count("ExternalEvent - tick = 20\n")) << text;
    }
    // Every input at once, all active.
    ASSERT_TRUE(h.DeliverItem(events::kTestNotice, events::Inputs(0x000BE000u, 0xFFFFFFFFu, 40)));
    EXPECT_EQ(
        "StateData 52 true 10, StateData 55 true 10, StateData 63 true 10, StateData 52 true 40, "
        "StateData 56 true 40, StateData 54 true 40, StateData 60 true 40, StateData 62 true 40, "
        "StateData 68 true 40",
        Joined(events::States(h.Records())));
}

TEST_F(Events, GpsAndRadarInTheStoreAndTheSharedRecordWithAndWithoutFix) {
    BindAll({MetadataMgr::GpsStatusEventHandler, MetadataMgr::RadarEventHandler});
    ASSERT_TRUE(h.DeliverItem(40001, events::Gps(1, 19, 100)));  // 1.9 -> 1 in the store
    ExpectFields({{0x04, 1, 0xA5},   {0x08, 1, 'N'},        {0x0C, 4, 51},  {0x10, 2, 30},
                  {0x14, 4, 123456}, {0x18, 1, 'E'},        {0x1C, 4, 359}, {0x20, 2, 7},
                  {0x24, 4, 654321}, {0x28, 2, 271},        {0x2A, 2, 11},  {0x2C, 4, 1},
                  {0x30, 4, 3},      {0x34, 4, 9},          {0x38, 4, 8},   {0x3C, 4, -47},
                  {0x40, 2, 19},  // raw, not divided
                  {0x42, 2, 3},      {0x44, 4, 0x12345678}, {0x48, 4, -12}});
    ASSERT_TRUE(h.DeliverItem(40001, events::Gps(7, 500, 110)));
    // Without a fix the record is refreshed all the same; hemispheres other than 1 are S and W.
    GpsStatusItem south = events::Gps(0, 40, 120);
    south.latHemisphere = 2;
    south.lonHemisphere = 0;
    ASSERT_TRUE(h.DeliverItem(40001, south));
    ExpectFields({{0x08, 1, 'S'}, {0x18, 1, 'W'}, {0x2C, 4, 0}, {0x40, 2, 40}});
    GpsStatusItem six = events::Gps(6, 999, 130);  // any status but 0 and 7 is a fix
    six.latHemisphere = 0;
    ASSERT_TRUE(h.DeliverItem(40001, six));
    ExpectFields({{0x08, 1, 'S'}, {0x18, 1, 'E'}, {0x40, 2, 999}});

    ASSERT_TRUE(h.DeliverItem(40002, events::Radar(0x0001, 200)));
    // An invalid radar reading is written as received; GPS fields and the running mark stay.
    ASSERT_TRUE(h.DeliverItem(40002, events::Radar(0x0081, 210)));
    ExpectFields({{0x4C, 2, 0x0081},
                  {0x4E, 2, 55},
                  {0x50, 2, 61},
                  {0x52, 2, 72},
                  {0x54, 2, 68},
                  {0x40, 2, 999},
                  {0x00, 2, 0x0100}});
    EXPECT_EQ(
        "GpsState true true, Gps 51 true 100, Speed 1 1 true 100, GpsState false true, "
        "ValidSpeed 1 false, GpsState false true, ValidSpeed 1 false, GpsState true true, "
        "Gps 51 true 130, Speed 1 99 true 130, RadarState 1 true true, "
        "Radar 1 61 72 68 0 true 200, Speed 2 55 true 200, RadarState 1 false true, "
        "ValidSpeed 2 false",
        Joined(Brief(h.Records(),
                     {"ReportGpsState", "ReportGps", "ReportSpeed", "ReportValidSpeed",
                      "ReportRadarState", "ReportRadar"},
                     {"source", "speed", "radar", "valid", "item.latDegrees", "speedA", "speedB",
                      "speedC", "direction", "flag", "tick"})));
}

TEST_F(Events, MicsTemperaturesAndCrashes) {
    BindAll({MetadataMgr::MicMgrStatusHandler, MetadataMgr::TempChangeHandler,
             MetadataMgr::CrashDetectHandler});
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        for (unsigned int mic : {3u, 4u, 0xFFFFFFFFu}) {
            ASSERT_TRUE(events::Send(h, events::MicState(10, mic, true, false), events::kMicState));
        }
        ASSERT_TRUE(events::Send(h, events::MicState(13, 0, false, true), events::kMicState));
        EXPECT_EQ(1u, log.Count(" ReportMicState: Invalid mic no 4\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" ReportMicState: Invalid mic no 4294967295\n")) << log.Text();
    }
    // The status response's entries pass unchecked, with the response's tick.
    MicStatusResponse status;
    status.Add(e_Mic_2, true, true);
    status.Add(static_cast<e_MicrophonePosition>(7), false, true);
    status.tick = 500;
    {
        LogCapture log(h.env.Path("log.txt"), 32 | 128);
        ASSERT_TRUE(h.DeliverItem(40001, status));
        ASSERT_TRUE(h.DeliverItem(40001, MicStatusResponse()));
        EXPECT_EQ(1u, log.Count(" 2 active=1 present=1\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" 7 active=1 present=0\n")) << log.Text();
        EXPECT_EQ(2u, log.Count(" ReportMicStatus\n")) << log.Text();
        EXPECT_EQ(4u, log.Count("\n")) << log.Text();
    }
    TempStatus temp;
    const short values[] = {-40, 21, 85, -1};  // sensors 3, 2, 1, 0
    std::copy(values, values + 4, temp.temperatures);
    temp.tick = 900;
    ASSERT_TRUE(h.DeliverItem(40002, temp));
    for (unsigned int tick : {70u, 71u}) {
        CrashItem crash;
        crash.crash = tick == 70;
        crash.tick = tick;
        ASSERT_TRUE(h.DeliverItem(40003, crash));
    }

    const std::vector<StoreRecord> records = h.Records();
    EXPECT_EQ(
        "MicPresent 3 true true 10, MicState 3 false true 10, MicPresent 0 false true 13, "
        "MicState 0 true true 13, MicPresent 2 true true 500, MicState 2 true true 500, "
        "MicPresent 7 false true 500, MicState 7 true true 500",
        Joined(Brief(records, {"ReportMicPresent", "ReportMicState"},
                     {"mic", "present", "active", "flag", "tick"})));
    EXPECT_EQ("Temp 3 -40 true 900, Temp 0 -1 true 900, Temp 1 85 true 900, Temp 2 21 true 900",
              Joined(Brief(records, {"ReportTemp"}, {"sensor", "value", "flag", "tick"})));
    EXPECT_EQ("StateData 66 true 70, StateData 67 true 71", Joined(events::States(records)));
}

TEST_F(Events, VideoNumberBoundsPortThreeAggregateAndQuality) {
    BindAll(
        {MetadataMgr::VideoMgrCameraItemHandler, MetadataMgr::VideoMgrStreamQualityItemHandler});
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        for (unsigned int number : {3u, 4u, 0xFFFFFFFFu, 0u}) {
            ASSERT_TRUE(events::Send(h, Payload().Words({100 + number, number, 2}),
                                     events::kVideoStreamState));
            ASSERT_TRUE(
                events::Send(h, Payload().Words({200 + number, number, 1}), events::kCameraState));
        }
        for (const char* line : {" VideoStreamStateChanged: Invalid streamNo 4\n",
                                 " VideoStreamStateChanged: Invalid streamNo 4294967295\n",
                                 " CameraStateChanged: Invalid camera no 4\n",
                                 " CameraStateChanged: Invalid camera no 4294967295\n"}) {
            EXPECT_EQ(1u, log.Count(line)) << line << log.Text();
        }
        EXPECT_EQ(4u, log.Count("\n")) << log.Text();
    }
    // Entry 4 active, 5..8 off: port 3 keeps entry 3's state. Entries 5 and 8 streaming: the
    // highest one wins. Only entry 5 records; the others idle. Entries 6 (recording) and 7
    // (streaming): the later entry's state.
    ASSERT_TRUE(h.DeliverItem(40001, events::Cameras({1, 2, 3, 4, 1, 0, 0, 0, 0}, 10)));
    ASSERT_TRUE(h.DeliverItem(40001, events::Cameras({0, 0, 0, 3, 0, 2, 0, 0, 2}, 20)));
    ASSERT_TRUE(h.DeliverItem(40001, events::Cameras({0, 0, 0, 0, 0, 1, 3, 3, 3}, 30)));
    ASSERT_TRUE(h.DeliverItem(40001, events::Cameras({4, 4, 4, 0, 0, 0, 1, 2, 4}, 40)));
    VideoMgrStreamQualityItem quality;
    quality.streams[1].bitRateKbps = 4096;
    quality.tick = 321;
    ASSERT_TRUE(h.DeliverItem(40002, quality));

    const std::vector<StoreRecord> records = h.Records();
    EXPECT_EQ(
        "VideoStreamState 3 2 true 103, VideoStreamState 0 2 true 100",
        Joined(Brief(records, {"ReportVideoStreamState"}, {"stream", "state", "flag", "tick"})));
    EXPECT_EQ(
        "CameraState 3 1 true 203, CameraState 0 1 true 200, CameraState 0 1 true 10, "
        "CameraState 1 2 true 10, CameraState 2 3 true 10, CameraState 3 4 true 10, "
        "CameraState 0 0 true 20, CameraState 1 0 true 20, CameraState 2 0 true 20, "
        "CameraState 3 2 true 20, CameraState 0 0 true 30, CameraState 1 0 true 30, "
        "CameraState 2 0 true 30, CameraState 3 1 true 30, CameraState 0 4 true 40, "
        "CameraState 1 4 true 40, CameraState 2 4 true 40, CameraState 3 2 true 40",
        Joined(Brief(records, {"ReportCameraState"}, {"port", "state", "flag", "tick"})));
    EXPECT_EQ("StreamQualityItem 4096 321 true",
              Joined(Brief(records, {"ReportStreamQualityItem"},
                           {"item.streams.1.bitRateKbps", "item.tick", "flag"})));
}

// Live streaming state: the item's fields, forced high quality, the address, the tick the
// store receives (the one the last periodic pass read) and the log lines.
TEST_F(Events, StreamingEveryFieldWithTheStoresTickAndTheLogLine) {
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.WriteFile("tick", "777000"));
    const unsigned int kFirstStream = 40010;
    for (unsigned int n = 0; n < 6; ++n) {
        events::Bind(h, events::kStreamHandlers[n], kFirstStream + n);
    }
    h.manager->PeriodicProcessing();
    for (const char* forced : {"1", "0"}) {
        ScopedEnv env("LVS_FORCE_HQ", forced);
        ASSERT_TRUE(events::Send(h, events::LvsState(true, false, 2, "192.168.1.20", 554),
                                 kFirstStream + 5));
    }
    h.env.WriteFile("tick", "778000");
    h.manager->PeriodicProcessing();
    ASSERT_TRUE(events::Send(h, events::LvsState(false, true, 258, "", 1), kFirstStream + 3));
    {
        LogCapture log(h.env.Path("log.txt"), 16);
        ASSERT_TRUE(events::Send(h, events::LvsState(true, false, 1, "not.an.address", 8554),
                                 kFirstStream));
        EXPECT_EQ(1u, log.Count(" Rcvd ext streaming state change, stream 0  en:1  HiQual:0  "
                                "Cam:1  Ip: not.an.address  Port:8554\n"))
            << log.Text();
        EXPECT_EQ(1u, log.Count("\n")) << log.Text();
    }
    // The entry trace is informational, not an entry trace of the usual mask.
    for (unsigned int mask : {64u, 128u}) {
        LogCapture log(h.env.Path("log.txt"), mask);
        ASSERT_TRUE(
            events::Send(h, events::LvsState(true, false, 1, "10.0.0.5", 2), kFirstStream + 1));
        EXPECT_EQ(mask == 128 ? 1u : 0u, log.Count(" LVSStateChangeHandler\n")) << log.Text();
    }
    // Stream, camera (258 cut to its low byte), high quality before enabled, address, port.
    EXPECT_EQ(
        "LvsState 5 2 true true 192.168.1.20 554 true 777000, LvsState 5 2 false true "
        "192.168.1.20 554 true 777000, LvsState 3 2 true false 255.255.255.255 1 true "
        "778000, LvsState 0 1 false true 255.255.255.255 8554 true 778000, LvsState 1 1 "
        "false true 10.0.0.5 2 true 778000, LvsState 1 1 false true 10.0.0.5 2 true 778000",
        Joined(Brief(h.Records(), {"ReportLvsState"},
                     {"stream", "camera", "highQuality", "enabled", "addressText", "port", "flag",
                      "tick"})));
}

// Configuration records, each its member items back to back: every change is stored as an
// event, the latest one last.
TEST_F(Events, ConfigurationChangesStoredWithTheEventFlag) {
    BindAll({MetadataMgr::VehicleInfoChangedHandler, MetadataMgr::OfficerChangedHandler,
             MetadataMgr::DeptInfoChangedHandler, MetadataMgr::SystemInfoChangedHandler,
             MetadataMgr::VideoRecordingSettingsChangedHandler});
    const std::pair<unsigned int, Payload> sent[] = {
        {40002, Encoded(StringItem("A-17"), StringItem("Smith"))},
        {40002, Encoded(StringItem("A-17"), StringItem("Jones"))},
        {40001, Encoded(StringItem("CAR 54"), StringItem(), StringItem())},
        {40003, Encoded(StringItem(), StringItem("Traffic"))},
        {40004, Encoded(StringItem(), StringItem("U-9"))},
        {40005, Encoded(UShortItem(30), UShortItem(), UShortItem(), UShortItem(), BoolItem())},
    };
    for (const auto& s : sent) {
        ASSERT_TRUE(events::Send(h, s.second, s.first));
    }
    EXPECT_EQ(
        "OfficerInfo Smith A-17 true, OfficerInfo Jones A-17 true, VehicleInfo CAR 54 true, "
        "DepartmentInfo Traffic true, SystemInfo U-9 true, VideoRecordingSettings 30 true",
        Joined(Brief(h.Records(),
                     {"ReportOfficerInfo", "ReportVehicleInfo", "ReportDepartmentInfo",
                      "ReportSystemInfo", "ReportVideoRecordingSettings"},
                     {"item.name", "item.officerId", "item.vehicleId", "item.unitNumber",
                      "item.preEventSeconds", "flag"})));
}

// A ping whose answer cannot be allocated goes unanswered, and is logged. Bookmark item 0 reads
// false when polled, an unknown item is refused, and every bookmark is stored before true is
// pushed to each subscriber.
TEST_F(Events, RefusedPingAnswerAndTheBookmarkStoredThenPublished) {
    {
        LogCapture log(h.env.Path("log.txt"), 1);
        IpcMessage ping;
        ASSERT_EQ(0, ping.Allocate(events::kPing, 0, nullptr));
        ASSERT_EQ(0, h.peer.Notify(h.ipc.Name(), ping, true));
        hostseam::FailNextAllocations(1);
        ASSERT_EQ(0, h.ipc.Receive(2000, events::kPing, LinxIpc::emptyString, nullptr));
        hostseam::FailNextAllocations(0);
        EXPECT_EQ(1u, log.Lines("Error Allocating Message")) << log.Text();
    }
    IpcMessage answer;
    EXPECT_FALSE(h.PeerReceive(answer, events::kPingResponse, 200));

    MetadataMgrServer* server = h.manager->Server();
    ASSERT_NE(nullptr, server);
    IpcMessage reply;
    {
        LogCapture log(h.env.Path("log.txt"), 2);
        server->GetItem(1, reply, 5000);
        EXPECT_EQ(1u, log.Count(" MetadataMgrServer:")) << log.Text();
        EXPECT_EQ(1u, log.Count(" GetItem Unknown item passed in 1\n")) << log.Text();
    }
    EXPECT_EQ(0u, reply.MsgType()) << "an unknown item leaves the reply untouched";
    hostseam::FailNextAllocations(1);
    server->GetItem(0, reply, 5000);
    EXPECT_EQ(0u, reply.MsgType());

    uint32_t request[2] = {0, 5001};
    ASSERT_TRUE(h.Deliver(LinxIpc::kSubscribeRequest, request, sizeof request));
    ASSERT_TRUE(h.PeerReceive(answer, LinxIpc::kSubscribeReply));
    ASSERT_EQ(1u, server->SubscriberCount(0));
    ASSERT_TRUE(events::Send(h, Payload().Add(4242u), events::kBookmark));
    ASSERT_TRUE(h.PeerReceive(answer, 5001));
    BoolItem pushed(false);
    ASSERT_EQ(0, pushed.DecodeMsg(answer));
    EXPECT_TRUE(pushed.Get());
    EXPECT_FALSE(h.PeerReceive(answer, 5001, 100)) << "one notice per bookmark";

    server->GetItem(0, reply, 5000);
    ASSERT_EQ(5000u, reply.MsgType());
    BoolItem polled(true);
    ASSERT_EQ(0, polled.DecodeMsg(reply));
    EXPECT_FALSE(polled.Get()) << "polled, the bookmark always reads false";

    // Level 0 logs nothing, not even a dropped payload, but the bookmark is still stored.
    {
        LogCapture log(h.env.Path("log.txt"), 0);
        ASSERT_TRUE(events::Send(h, Payload().Add(4343u), events::kBookmark));
        ASSERT_TRUE(h.Deliver(events::kBookmark, nullptr, 0));
        EXPECT_EQ("", log.Text());
    }
    EXPECT_EQ((std::vector<std::string>{"Bookmark 4242", "Bookmark 4343"}),
              Brief(h.Records(), {"ReportBookmark"}, {"tick"}));
}

TEST_F(Events, MetadataToFileAndTheLastSystemTick) {
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.Path("tick"));
    h.env.WriteFile("tick", "1000");
    h.manager->PeriodicProcessing();
    h.manager->ReportRecordingEvent(true, 1500, true);
    h.manager->ReportBookmark(1600);
    h.manager->ReportRecordingEvent(false, 1700, true);
    // The next loop pass comes within the same second: no sync is due, yet a copy asked for
    // now must hold everything reported before it.
    const std::string segment = h.env.MetadataPath() + ".000001.mdj";
    const unsigned int syncs = hostseam::DataSyncsOf(segment).count;
    h.env.WriteFile("tick", "1100");
    h.manager->PeriodicProcessing();
    EXPECT_EQ(syncs, hostseam::DataSyncsOf(segment).count);

    // The range [1550, 1650] (bytes 1024 and 1028): the state as of 1550, then the bookmark
    // (stored at 1000, the tick of the last pass).
    const std::string copy = h.env.Media() + "/export/copy.md";
    EXPECT_EQ(1, Copy("copy.md", 1550, 1650));
    // On disk, all of it, before the answer.
    EXPECT_EQ(1u, hostseam::DataSyncsOf(copy).count);
    EXPECT_EQ(static_cast<long long>(ReadFileText(copy).size()),
              hostseam::DataSyncsOf(copy).bytesAtLast);
    std::string error;
    const std::vector<StoreRecord> copied = ReadStoreRecords(copy, h.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    EXPECT_EQ((std::vector<std::string>{"WriteFullState 1550", "Bookmark 1000 1600"}),
              Brief(copied, {}, {"at", "tick"}));
    ASSERT_FALSE(copied.empty());
    EXPECT_NE(std::string::npos, copied[0].line.find("\"tag\":70")) << copied[0].line;
    // A name filling the whole field has no end: answered 0, nothing written.
    const std::string longName = h.env.Path(std::string(1100, 'x'));
    EXPECT_EQ(0, Copy(longName, 0, 0xFFFFFFFFu));
    EXPECT_NE(0, ::access(longName.substr(0, 1024).c_str(), F_OK));

    // A second after the last sync the pass puts the segment on disk, all of it.
    h.env.WriteFile("tick", "2100");
    h.manager->PeriodicProcessing();
    EXPECT_EQ(syncs + 1, hostseam::DataSyncsOf(segment).count);
    EXPECT_EQ(static_cast<long long>(ReadFileText(segment).size()),
              hostseam::DataSyncsOf(segment).bytesAtLast);

    // The last tick with its validity: 0 is a valid tick; none read is 0xFFFFFFFF, invalid.
    // {tick file ("" = no tick available), tick, validity}
    const std::tuple<const char*, unsigned int, unsigned char> cases[] = {
        {"0", 0, 1}, {"", 0xFFFFFFFFu, 0}, {"123456", 123456, 1}};
    for (const auto& [file, tick, valid] : cases) {
        h.env.WriteFile("tick", file);
        h.manager->PeriodicProcessing();
        ASSERT_TRUE(h.Deliver(events::kLastSystemTick, nullptr, 0));
        IpcMessage answer;
        ASSERT_TRUE(h.PeerReceive(answer, events::kLastSystemTickResponse, 2000));
        ASSERT_EQ(8u, answer.Size());
        unsigned int answered = 0;
        std::memcpy(&answered, answer.DataPtr(), sizeof answered);
        EXPECT_EQ(tick, answered) << file;
        EXPECT_EQ(valid, answer.DataPtr()[4]) << file;
    }
}
