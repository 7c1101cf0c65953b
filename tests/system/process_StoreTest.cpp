// What the running process hands to the store: the start-up output once the tick is known and
// the filler string of every pass.
#include <gtest/gtest.h>

#include "LinxIpc.h"
#include "StoreRecords.h"
#include "process_Vehicle.h"

namespace {

void Quit(Vehicle& vehicle, Subprocess& process) {
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    ASSERT_TRUE(vehicle.Expect(13239));
    EXPECT_EQ(0, process.Wait(20000).exitCode);
}

}  // namespace

// While the tick is unavailable the first output waits; the next subscribe request makes it
// in full, stamped with the tick then in force.
TEST(ProcessStore, FirstOutputWaitsForTheTick) {
    TestEnv env;
    const std::string tickFile = env.WriteFile("tick", "");
    Vehicle vehicle;
    const std::string versionFile =
        env.WriteFile("versions", "SYS_BUILD 4.2.1 revB\nFPGA 1.0.3\nKERNEL_BUILD 5.4.0\n");
    auto process = StartManager(env, {"HOST_SYSTICK_FILE=" + tickFile, "HOST_SERIAL_NUMBER=SN-77",
                                      "VERSION_FILE=" + versionFile});
    ASSERT_TRUE(process);
    ASSERT_TRUE(vehicle.Expect(13232));

    ASSERT_TRUE(vehicle.SendByte(13233, 1));
    ASSERT_TRUE(vehicle.Expect(13234));
    EXPECT_NE(std::string::npos, process->Err().find("SystemTick not correct in InitializeStore"));
    EXPECT_EQ(std::string::npos, process->Err().find("Starting first output"));

    env.WriteFile("tick", "5000\n");
    ASSERT_TRUE(vehicle.SendByte(13233, 1));
    ASSERT_TRUE(vehicle.Expect(13234));
    ASSERT_TRUE(vehicle.Send(13235, nullptr, 0));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));
    EXPECT_NE(std::string::npos,
              process->Err().find("Starting first output to metadata files at system tick 5000"));
    Quit(vehicle, *process);

    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, &error);
    ASSERT_EQ("", error);
    const std::vector<StoreRecord> serials = WithOp(records, "ReportSystemSerialNum");
    ASSERT_EQ(1u, serials.size()) << "the start-up output is made exactly once";
    EXPECT_EQ("SN-77", serials[0].Get("serial"));
    EXPECT_EQ(5000, serials[0].Int("at"));
    const std::vector<StoreRecord> versions = WithOp(records, "ReportVersion");
    ASSERT_EQ(2u, versions.size()) << "every entry named ...BUILD..., in file order";
    EXPECT_EQ(std::string::npos, versions[0].line.find("1.0.3"));
    EXPECT_NE(std::string::npos, versions[0].line.find("4.2.1"));
    EXPECT_NE(std::string::npos, versions[1].line.find("5.4.0"));
}

// FORCE_METADATA: one filler string per loop pass, carrying the tick.
TEST(ProcessStore, FillerStringEveryPass) {
    TestEnv env;
    const std::string tickFile = env.WriteFile("tick", "7000");
    Vehicle vehicle;
    auto process = StartManager(
        env, {"HOST_SYSTICK_FILE=" + tickFile, "FORCE_METADATA=", "RUN_WITHOUT_STATEMGR=1"});
    ASSERT_TRUE(process);
    // Every message makes one pass; the answers come once the loop runs.
    const unsigned int pings = 5;
    for (unsigned int i = 0; i < pings; ++i) {
        ASSERT_TRUE(vehicle.Send(13488, nullptr, 0));
    }
    for (unsigned int i = 0; i < pings; ++i) {
        ASSERT_TRUE(vehicle.Expect(13489)) << process->Err();
    }
    EXPECT_NE(std::string::npos, process->Err().find("Forcing fake periodic metadata"));
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    EXPECT_EQ(0, process->Wait(20000).exitCode);

    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, &error);
    ASSERT_EQ("", error);
    size_t fillers = 0;
    for (const StoreRecord& record : WithOp(records, "ReportStringData")) {
        EXPECT_EQ(32, record.Int("tag"));
        EXPECT_EQ("Test string for filler 7000", record.Get("text")) << record.line;
        ++fillers;
    }
    EXPECT_GE(fillers, pings);
}
