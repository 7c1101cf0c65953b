// Every DataStore operation reaches the files as one record with all its arguments, and
// mdstore prints it back under the operation's name.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <cstring>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"

namespace {

void ReportOneOfEach(DataStore& store) {
    unsigned char mac[6] = {0xaa, 0xbb, 0xcc, 0x01, 0x02, 0xff};
    EXPECT_TRUE(store.ReportShutdownDataAtStartup());
    EXPECT_TRUE(store.ReportMac(mac, false));
    EXPECT_TRUE(store.ReportSystemSerialNum("SN-0042"));
    EXPECT_TRUE(store.ReportVersion(e_COMPONENT_Build, "BUILD 7.1 \"beta\"\n"));
    EXPECT_TRUE(store.ReportConfiguration(false));
    EXPECT_TRUE(store.ReportStringData(e_Tag_FillerString, "Test string for filler 5000"));
    EXPECT_TRUE(store.ReportStateData(e_Tag_BrakesOn, true, 4998));
    EXPECT_TRUE(store.ReportBookmark(4999));
    EXPECT_TRUE(store.ReportGpsState(true, false));
    GpsStatusItem gps;
    gps.latDegrees = 48;
    gps.latHemisphere = -3;
    gps.altitude = -120;
    gps.speed = 655;
    gps.dataValid = 1;
    gps.tick = 4990;
    EXPECT_TRUE(store.ReportGps(gps, 4991, true));
    EXPECT_TRUE(store.ReportValidSpeed(1, false));
    EXPECT_TRUE(store.ReportSpeed(2, 65535, true, 4992, e_Tag_None));
    EXPECT_TRUE(store.ReportRadarState(1, true, false));
    EXPECT_TRUE(store.ReportRadar(1, 10, 20, 30, e_RADAR_DIRECTION_Receding, true, 0, e_Tag_None));
    EXPECT_TRUE(store.ReportMicPresent(e_Mic_3, true, false, 4993));
    EXPECT_TRUE(store.ReportMicState(static_cast<e_MicrophonePosition>(7), false, true, 4994));
    EXPECT_TRUE(store.ReportTemp(e_Temp_2, -40, true, 4995));
    EXPECT_TRUE(store.ReportVideoStreamState(e_Stream_3, e_StreamState_Error, true, 4996));
    EXPECT_TRUE(store.ReportCameraState(e_Camera_1, e_CameraState_Streaming, false, 4997));
    VideoMgrStreamQualityItem quality;
    quality.streams[1].bitRateKbps = 4000000000u;
    quality.tick = 77;
    EXPECT_TRUE(store.ReportStreamQualityItem(quality, true));
    EXPECT_TRUE(store.ReportLvsState(static_cast<e_VideoStream>(5), 2, true, false, 0xFFFFFFFFu,
                                     554, true, 5000));
    VehicleInfo vehicle;
    vehicle.vehicleId.Set("CAR 54");
    vehicle.description.Set("tab\there");
    EXPECT_TRUE(store.ReportVehicleInfo(vehicle, true));
    SystemInfo system;
    system.unitNumber.Set("U7");
    EXPECT_TRUE(store.ReportSystemInfo(system, true));
    DepartmentInfo department;
    department.name.Set("Traffic");
    EXPECT_TRUE(store.ReportDepartmentInfo(department, false));
    Officer officer;
    officer.name.Set("Smith");
    EXPECT_TRUE(store.ReportOfficerInfo(officer, true));
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    settings.recordAudio.Set(true);
    EXPECT_TRUE(store.ReportVideoRecordingSettings(settings, true));
    EXPECT_TRUE(store.WriteFullState(true));
    EXPECT_TRUE(store.ReportShutdownData());
}

}  // namespace

TEST(StoreRecords, EveryOperationIsOneRecordWithAllItsArguments) {
    StoreDir dir;
    DataStoreNormal store(dir.base);
    EXPECT_EQ(0xFFFFFFFFu, store.GetCurrentSystemTick());
    EXPECT_FALSE(store.ReportStateData(e_Tag_BrakesOn, true, 1));  // before Open: dropped
    ASSERT_TRUE(store.Open());
    store.TimerTick(5000);
    EXPECT_EQ(5000u, store.GetCurrentSystemTick());
    ReportOneOfEach(store);
    store.Close();
    EXPECT_FALSE(store.ReportBookmark(1));  // after Close: dropped
    EXPECT_FALSE(store.WriteFullState(true));

    std::string error;
    const std::vector<StoreRecord> records = ReadStoreRecords(dir.base, dir.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    const std::vector<std::string> ops = {"WriteFullState",
                                          "ReportShutdownDataAtStartup",
                                          "ReportMac",
                                          "ReportSystemSerialNum",
                                          "ReportVersion",
                                          "ReportConfiguration",
                                          "ReportStringData",
                                          "ReportStateData",
                                          "ReportBookmark",
                                          "ReportGpsState",
                                          "ReportGps",
                                          "ReportValidSpeed",
                                          "ReportSpeed",
                                          "ReportRadarState",
                                          "ReportRadar",
                                          "ReportMicPresent",
                                          "ReportMicState",
                                          "ReportTemp",
                                          "ReportVideoStreamState",
                                          "ReportCameraState",
                                          "ReportStreamQualityItem",
                                          "ReportLvsState",
                                          "ReportVehicleInfo",
                                          "ReportSystemInfo",
                                          "ReportDepartmentInfo",
                                          "ReportOfficerInfo",
                                          "ReportVideoRecordingSettings",
                                          "WriteFullState",
                                          "ReportShutdownData"};
    ASSERT_EQ(ops.size(), records.size());
    for (std::size_t i = 0; i < ops.size(); ++i) {
        EXPECT_EQ(ops[i], records[i].Op()) << records[i].line;
        EXPECT_EQ(0u, records[i].line.find("{\"op\":")) << records[i].line;
        EXPECT_EQ(i == 0 ? 4294967295 : 5000, records[i].Int("at")) << records[i].line;
    }
    EXPECT_EQ("open", records[0].Get("cause"));
    EXPECT_FALSE(records[0].Has("state.0.op"));  // a new run starts with an empty state
    EXPECT_EQ("false", records[1].Get("previousRunFound"));
    EXPECT_EQ(0xaa, records[2].Int("mac.0"));
    EXPECT_EQ(0xff, records[2].Int("mac.5"));
    EXPECT_EQ("false", records[2].Get("flag"));
    EXPECT_EQ("SN-0042", records[3].Get("serial"));
    EXPECT_EQ(2, records[4].Int("component"));
    EXPECT_EQ("BUILD 7.1 \"beta\"\n", records[4].Get("version"));
    EXPECT_EQ(32, records[6].Int("tag"));
    EXPECT_EQ("Test string for filler 5000", records[6].Get("text"));
    EXPECT_EQ(56, records[7].Int("tag"));
    EXPECT_EQ("true", records[7].Get("flag"));
    EXPECT_EQ(4998, records[7].Int("tick"));
    EXPECT_EQ(4999, records[8].Int("tick"));
    EXPECT_EQ(48, records[10].Int("item.latDegrees"));
    EXPECT_EQ(-3, records[10].Int("item.latHemisphere"));
    EXPECT_EQ(-120, records[10].Int("item.altitude"));
    EXPECT_EQ(655, records[10].Int("item.speed"));
    EXPECT_EQ(4990, records[10].Int("item.tick"));
    EXPECT_EQ(4991, records[10].Int("tick"));
    EXPECT_EQ(65535, records[12].Int("speed"));
    EXPECT_EQ(2, records[12].Int("source"));
    EXPECT_EQ(30, records[14].Int("speedC"));
    EXPECT_EQ(2, records[14].Int("direction"));
    EXPECT_EQ(0, records[14].Int("tick"));
    EXPECT_EQ(7, records[16].Int("mic"));
    EXPECT_EQ(-40, records[17].Int("value"));
    EXPECT_EQ(2, records[17].Int("sensor"));
    EXPECT_EQ(3, records[18].Int("state"));
    EXPECT_EQ(1, records[19].Int("port"));
    EXPECT_EQ(4000000000ll, records[20].Int("item.streams.1.bitRateKbps"));
    EXPECT_EQ(77, records[20].Int("item.tick"));
    EXPECT_EQ(5, records[21].Int("stream"));
    EXPECT_EQ(0xFFFFFFFFll, records[21].Int("address"));
    EXPECT_EQ("true", records[21].Get("highQuality"));
    EXPECT_EQ("false", records[21].Get("enabled"));
    EXPECT_EQ(554, records[21].Int("port"));
    EXPECT_EQ("CAR 54", records[22].Get("item.vehicleId"));
    EXPECT_EQ("tab\there", records[22].Get("item.description"));
    EXPECT_EQ("Smith", records[25].Get("item.name"));
    EXPECT_EQ(30, records[26].Int("item.preEventSeconds"));
    EXPECT_EQ("true", records[26].Get("item.recordAudio"));

    // The snapshot the process asked for holds the last value of every state, one entry per
    // kind and key.
    const StoreRecord& full = records[27];
    EXPECT_EQ("call", full.Get("cause"));
    EXPECT_EQ("true", full.Get("force"));
    unsigned entries = 0;
    while (full.Has("state." + std::to_string(entries) + ".op")) {
        ++entries;
    }
    EXPECT_EQ(26u, entries) << full.line;  // all but the two snapshots and the shutdown
    EXPECT_EQ("ReportShutdownDataAtStartup", full.Get("state.0.op"));
    EXPECT_EQ("SN-0042", full.Get("state.2.serial"));
    EXPECT_EQ(48, full.Int("state.9.item.latDegrees"));
}

TEST(StoreRecords, RangeFilterUsesOwnTickElseTheStoreTick) {
    StoreDir dir;
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(100);
    store.ReportStateData(e_Tag_LightsOn, true, 150);      // own tick 150
    store.ReportStateData(e_Tag_ProcessStarted, true, 0);  // no real tick: at 100
    store.TimerTick(300);
    store.ReportSystemSerialNum("x");                        // at 300
    store.ReportSpeed(1, 5, true, 0xFFFFFFFFu, e_Tag_None);  // at 300
    store.Close();

    auto ops = [&](const std::vector<std::string>& args) {
        std::string error;
        std::vector<std::string> names;
        for (const StoreRecord& r : ReadStoreRecords(dir.base, dir.env.Root(), args, &error)) {
            names.push_back(r.Op() + ":" + r.Get("tag"));
        }
        EXPECT_EQ("", error);
        return names;
    };
    EXPECT_EQ((std::vector<std::string>{"ReportStateData:64"}),
              ops({"--from", "100", "--to", "149"}));
    EXPECT_EQ((std::vector<std::string>{"ReportStateData:52"}),
              ops({"--from", "150", "--to", "150"}));
    // The opening snapshot came before any tick: it counts as tick 0.
    EXPECT_EQ((std::vector<std::string>{"WriteFullState:"}), ops({"--to", "99"}));
    EXPECT_EQ((std::vector<std::string>{"ReportSystemSerialNum:", "ReportSpeed:0"}),
              ops({"--from", "0x12c"}));
}

TEST(StoreRecords, OpenRefusesAMissingOrNonDirectoryPlaceAndBuffersUntilTheNextPass) {
    TestEnv env;
    DataStoreNormal missing(env.Media() + "/nowhere/metadata");
    EXPECT_FALSE(missing.Open());
    EXPECT_FALSE(missing.ReportBookmark(1));
    env.WriteFile("media/plain", "x");
    DataStoreNormal notDir(env.Media() + "/plain/metadata");
    EXPECT_FALSE(notDir.Open());

    StoreDir dir;
    ::chmod((dir.env.Media() + "/metadata").c_str(), 0500);
    if (::geteuid() != 0) {
        DataStoreNormal readOnly(dir.base);
        EXPECT_FALSE(readOnly.Open());
    }
    ::chmod((dir.env.Media() + "/metadata").c_str(), 0770);

    // Records stay in memory until the next loop pass's tick hands them to the file.
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(10000);
    ASSERT_EQ(1u, dir.Segments().size());
    const std::size_t opened = ReadBytes(dir.Segments()[0]).size();
    store.ReportBookmark(10000);
    EXPECT_EQ(opened, ReadBytes(dir.Segments()[0]).size());
    store.TimerTick(10001);
    const ReadResult flushed = ReadAll(dir.base);
    ASSERT_EQ(2u, flushed.records.size());
    EXPECT_TRUE(flushed.problems.empty());
    // Without a tick source, every pass puts the data down.
    store.ReportBookmark(1);
    store.TimerTick(0xFFFFFFFFu);
    EXPECT_EQ(3u, ReadAll(dir.base).records.size());
    // An unchanged state is not written again unless forced.
    store.WriteFullState(false);
    store.ReportBookmark(2);
    store.WriteFullState(false);
    store.WriteFullState(false);
    store.Close();
    unsigned snapshots = 0;
    for (const ReadRecord& r : ReadAll(dir.base).records) {
        snapshots += r.op == 3 ? 1 : 0;
    }
    EXPECT_EQ(3u, snapshots);
}
