// Every DataStore operation reaches the files as one record with all its arguments, mdstore
// prints it back under the operation's name with what its codes mean, text stays UTF-8 in
// every output, and the files read the same on any machine.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <unistd.h>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <thread>

#include "DataStore.h"
#include "LinxIpc.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

// Not ASCII, and a byte that is no UTF-8 at its end.
const char* const kOfficer = "J\xc3\xb6rgen \xc3\x85str\xc3\xb6m\xff";

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
    gps.latDegrees = 59;
    gps.latMinutes = 19;
    gps.latMinuteFraction = 5000;
    gps.latHemisphere = -3;
    gps.lonMinuteFraction = 0xFFFFFFFFu;
    gps.lonHemisphere = 1;
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
    quality.streams[3].frameRate = 0xBEEF;
    quality.tick = 77;
    EXPECT_TRUE(store.ReportStreamQualityItem(quality, true));
    EXPECT_TRUE(store.ReportLvsState(static_cast<e_VideoStream>(5), 2, true, false,
                                     inet_addr("10.0.0.5"), 554, true, 5000));
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
    officer.name.Set(kOfficer);
    EXPECT_TRUE(store.ReportOfficerInfo(officer, true));
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    settings.recordAudio.Set(true);
    EXPECT_TRUE(store.ReportVideoRecordingSettings(settings, true));
    // A snapshot of a changed state, none of an unchanged one unless forced.
    EXPECT_TRUE(store.WriteFullState(false));
    EXPECT_TRUE(store.WriteFullState(false));
    EXPECT_TRUE(store.WriteFullState(true));
    EXPECT_TRUE(store.ReportShutdownData());
}

// What mdstore adds to the arguments: the snapshot entries hold only the arguments.
const char* const kDecoded =
    " at utc tagName componentName sourceName directionName stateName addressText reasonName "
    "latHemisphereName lonHemisphereName latitude longitude gpsSpeed ";

// The op and then parts of the JSON line after its "at", each following the one before.
const char* const kExpected[] = {
    R"(WriteFullState|"force":false,"cause":"open","state":[]})",
    R"(TimeAnchor|"utcSeconds":|"reason":0,"reasonName":"segment"})",
    R"(ReportShutdownDataAtStartup|"previousRunFound":false,"clean":false,"lastTick":4294967295})",
    R"(ReportMac|"mac":[170,187,204,1,2,255],"flag":false})",
    R"(ReportSystemSerialNum|"serial":"SN-0042"})",
    R"(ReportVersion|"component":2,"version":"BUILD 7.1 \"beta\"\n","componentName":"build"})",
    R"(ReportConfiguration|"flag":false})",
    R"(ReportStringData|"tag":32,"text":"Test string for filler 5000","tagName":"filler"})",
    R"(ReportStateData|"tag":56,"flag":true,"tick":4998,"tagName":"brakes on"})",
    R"(ReportBookmark|"tick":4999})",
    R"(ReportGpsState|"valid":true,"flag":false})",
    R"(ReportGps|{"latDegrees":59,"latMinutes":19,"latMinuteFraction":5000,)"
    R"("latHemisphere":-3,|"lonMinuteFraction":4294967295,"lonHemisphere":1,"altitude":-120,)"
    R"("speed":655,|"dataValid":1,"tick":4990},"tick":4991,"flag":true,)"
    R"("latHemisphereName":"S","lonHemisphereName":"E","latitude":-59.325000,)"
    R"("longitude":7158.278825,"gpsSpeed":65.5})",
    R"(ReportValidSpeed|"source":1,"valid":false,"sourceName":"gps"})",
    R"(ReportSpeed|"source":2,"speed":65535,"flag":true,"tick":4992,"tag":0,"sourceName":"radar"})",
    R"(ReportRadarState|"radar":1,"valid":true,"flag":false})",
    R"(ReportRadar|"radar":1,"speedA":10,"speedB":20,"speedC":30,"direction":2,"flag":true,)"
    R"("tick":0,"tag":0,"directionName":"receding"})",
    R"(ReportMicPresent|"mic":3,"present":true,"flag":false,"tick":4993})",
    R"(ReportMicState|"mic":7,"active":false,"flag":true,"tick":4994})",
    R"(ReportTemp|"sensor":2,"value":-40,"flag":true,"tick":4995})",
    R"(ReportVideoStreamState|"stream":3,"state":3,"flag":true,"tick":4996,"stateName":"error"})",
    R"(ReportCameraState|"port":1,"state":2,"flag":false,"tick":4997,"stateName":"streaming"})",
    R"(ReportStreamQualityItem|"bitRateKbps":0,|"bitRateKbps":4000000000,|"frameRate":48879,)"
    R"("resolution":0}],"tick":77},"flag":true})",
    R"(ReportLvsState|"stream":5,"camera":2,"highQuality":true,"enabled":false,)"
    R"("address":167772165,"port":554,"flag":true,"tick":5000,"addressText":"10.0.0.5"})",
    R"(ReportVehicleInfo|"vehicleId":"CAR 54","licensePlate":"","description":"tab\there"})",
    R"(ReportSystemInfo|"unitNumber":"U7"},"flag":true})",
    R"(ReportDepartmentInfo|"name":"Traffic"},"flag":false})",
    R"(ReportOfficerInfo|"name":"Jörgen Åström�"},"flag":true})",
    R"(ReportVideoRecordingSettings|"preEventSeconds":30,|"recordAudio":true},"flag":true})",
    R"(WriteFullState|"force":false,"cause":"call","state":[{)",
    R"(WriteFullState|"force":true,"cause":"call","state":[{)",
    R"(ReportShutdownData|})",
};

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
    ASSERT_EQ(std::size(kExpected), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::string& line = records[i].line;
        const std::string expected = kExpected[i];
        std::size_t at = expected.find('|');
        ASSERT_EQ(0u, line.find("{\"op\":\"" + expected.substr(0, at) +
                                "\",\"at\":" + (i < 2 ? "4294967295" : "5000")))
            << line;
        for (std::size_t from = 0; at != std::string::npos;) {
            const std::size_t next = expected.find('|', at + 1);
            const std::string part = expected.substr(at + 1, next - at - 1);
            from = line.find(part, from);
            ASSERT_NE(std::string::npos, from) << part << "\n" << line;
            from += part.size();
            at = next;
        }
    }

    // Each snapshot the process asked for holds the last value of every state, one entry per
    // kind and key: here every record before them but the opening snapshot, as reported.
    for (std::size_t snapshot : {28, 29}) {
        EXPECT_FALSE(records[snapshot].Has("state.27.op"));
        for (std::size_t i = 1; i < 28; ++i) {
            for (const auto& field : records[i].fields) {
                const bool decoded =
                    std::string(kDecoded).find(" " + field.first + " ") != std::string::npos;
                if (!decoded) {
                    EXPECT_EQ(field.second, records[snapshot].Get("state." + std::to_string(i - 1) +
                                                                  "." + field.first))
                        << records[i].line;
                }
            }
        }
    }

    // A cross build's big-endian files must print exactly as the native tool prints them.
    const std::string hostTool = HostToolPath("mdstore");
    if (!hostTool.empty() && hostTool != ProgramPath("mdstore")) {
        const ProgramResult native =
            RunProgram({hostTool, "cat", "--json", dir.base}, {}, dir.env.Root());
        EXPECT_EQ(0, native.exitCode) << native.err;
        std::string cross;
        for (const StoreRecord& record : records) {
            cross += record.line + "\n";
        }
        EXPECT_EQ(cross, native.out);
        EXPECT_EQ(0, RunProgram({hostTool, "verify", dir.base}, {}, dir.env.Root()).exitCode);
    }
}

std::string Iso(long long ms) {
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    struct tm parts;
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", gmtime_r(&seconds, &parts));
    return text + (std::to_string(1000 + ms % 1000).replace(0, 1, ".")) + "Z";
}

TEST(StoreRecords, FiltersByTickTimeKindAndCountAndDatesByTheLatestAnchor) {
    StoreDir dir;
    dir.env.WriteFile("tick", "1000");
    ::setenv("HOST_SYSTICK_FILE", dir.env.Path("tick").c_str(), 1);  // the anchors' tick
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(100);
    store.ReportStateData(e_Tag_LightsOn, true, 150);      // own tick 150
    store.ReportStateData(e_Tag_ProcessStarted, true, 0);  // no real tick: at 100
    store.TimerTick(300);
    store.ReportSystemSerialNum("x");                        // at 300
    store.ReportSpeed(1, 5, true, 0xFFFFFFFFu, e_Tag_None);  // at 300
    GpsStatusItem gps;
    gps.fixStatus = 1;
    gps.utcTime = 1900000000;  // 2030-03-17T17:46:40Z at tick 6000: a later anchor
    store.ReportGps(gps, 6000, true);
    store.ReportBookmark(7250);
    store.Close();
    ::unsetenv("HOST_SYSTICK_FILE");

    std::string error;
    const std::vector<StoreRecord> all = ReadStoreRecords(dir.base, dir.env.Root(), {}, &error);
    ASSERT_EQ(8u, all.size()) << error;
    EXPECT_FALSE(all[0].Has("utc"));  // before any anchor
    ASSERT_EQ("TimeAnchor", all[1].Op());
    const long long anchor = all[1].Int("utcSeconds") * 1000 + all[1].Int("utcMilliseconds");
    EXPECT_EQ(Iso(anchor), all[1].Get("utc"));
    EXPECT_EQ(Iso(anchor - 850), all[2].Get("utc"));  // tick 150
    EXPECT_EQ(Iso(anchor - 900), all[3].Get("utc"));  // at 100
    EXPECT_EQ("2030-03-17T17:46:40.000Z", all[6].Get("gpsUtc"));
    EXPECT_EQ("2030-03-17T17:46:41.250Z", all[7].Get("utc"));

    auto ops = [&](const std::vector<std::string>& args) {
        std::string names;
        for (const StoreRecord& r : ReadStoreRecords(dir.base, dir.env.Root(), args, &error)) {
            names += r.Op() + ":" + r.Get("tag") + " ";
        }
        EXPECT_EQ("", error);
        return names;
    };
    EXPECT_EQ("ReportStateData:64 ", ops({"--from", "100", "--to", "149"}));
    EXPECT_EQ("ReportStateData:52 ", ops({"--from", "150", "--to", "150"}));
    // The opening snapshot came before any tick: it counts as tick 0.
    EXPECT_EQ("WriteFullState: ", ops({"--to", "99"}));
    EXPECT_EQ("TimeAnchor: ReportSystemSerialNum: ReportSpeed:0 ",
              ops({"--from=0x12c", "--to=5999"}));
    EXPECT_EQ("ReportGps: ReportBookmark: ", ops({"--since", "2030-03-17T17:46:40Z"}));
    EXPECT_EQ(
        "ReportStateData:52 ReportStateData:64 ReportGps: ",
        ops({"--until=2030-03-17 17:46:41.249", "--kind=ReportStateData", "--kind", "ReportGps"}));
    EXPECT_EQ("ReportGps: ReportBookmark: ", ops({"-n", "2"}));
}

TEST(StoreRecords, OpenRefusesAMissingOrNonDirectoryPlaceAndWritesInBatches) {
    StoreDir dir;
    dir.env.WriteFile("media/plain", "x");
    for (const char* place : {"/nowhere/metadata", "/plain/metadata"}) {
        DataStoreNormal refused(dir.env.Media() + place);
        EXPECT_FALSE(refused.Open()) << place;
        EXPECT_FALSE(refused.ReportBookmark(1));
    }
    ::chmod((dir.env.Media() + "/metadata").c_str(), 0500);
    if (::geteuid() != 0) {
        DataStoreNormal readOnly(dir.base);
        EXPECT_FALSE(readOnly.Open());
    }
    ::chmod((dir.env.Media() + "/metadata").c_str(), 0770);

    // Records stay in memory while the loop is busy; they go to the file when the endpoint is
    // about to wait for input, or at the first pass a few milliseconds after they were made.
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
    const std::string segment = dir.Segments().at(0);
    const std::size_t opened = ReadFileText(segment).size();
    store.ReportBookmark(10000);
    EXPECT_EQ(opened, ReadFileText(segment).size());
    LinxIpc endpoint("Idle");
    ASSERT_EQ(0, endpoint.Init());
    EXPECT_EQ(LinxIpc::kTimeout, endpoint.Receive(1, 0, LinxIpc::emptyString, nullptr));
    const ReadResult flushed(dir.base);
    EXPECT_EQ(3u, flushed.records.size());  // snapshot, time anchor, bookmark
    EXPECT_TRUE(flushed.problems.empty());
    store.ReportBookmark(10001);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    store.TimerTick(10001);
    EXPECT_EQ(4u, ReadResult(dir.base).records.size());
    // Without a tick source, every pass puts the data down.
    store.ReportBookmark(1);
    store.TimerTick(0xFFFFFFFFu);
    EXPECT_EQ(5u, ReadResult(dir.base).records.size());
    store.Close();
}
