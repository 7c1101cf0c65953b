// Control messages of a running process: log level and ping.
#include <gtest/gtest.h>

#include <cstring>

#include "LinxIpc.h"
#include "process_Vehicle.h"

namespace {

unsigned int Word(const Received& received) {
    unsigned int word = 0;
    if (received.payload.size() >= sizeof word) {
        std::memcpy(&word, received.payload.data(), sizeof word);
    }
    return word;
}

}  // namespace

TEST(ProcessControl, LogLevelAndPing) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {});
    ASSERT_TRUE(process);
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(13235, nullptr, 0));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));

    Received answer;
    ASSERT_TRUE(vehicle.SendWord(1873, 0xDEAD));  // get: the word's content does not matter
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(4u, answer.payload.size());
    EXPECT_EQ(255u, Word(answer));

    // Set answers with the level now in force; lines of masks outside it stop.
    ASSERT_TRUE(vehicle.SendWord(1872, 0xC3));
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(0xC3u, Word(answer));
    EXPECT_TRUE(process->WaitForErr("HandleLogLevel: set mask c3", 5000));

    // A get without a payload, or a set with less than a word, is not answered: the ping that
    // follows is answered first and alone.
    ASSERT_TRUE(vehicle.Send(1873, nullptr, 0));
    const unsigned char shortWord[2] = {1, 2};
    ASSERT_TRUE(vehicle.Send(1872, shortWord, sizeof shortWord));
    ASSERT_TRUE(vehicle.Send(13488, nullptr, 0));
    ASSERT_TRUE(vehicle.Expect(13489, &answer));
    EXPECT_TRUE(answer.payload.empty());
    vehicle.Pump(200);
    EXPECT_TRUE(vehicle.inbox.empty());
    EXPECT_TRUE(process->WaitForErr("HandleLogLevel: error, DataPtr is null", 5000));
    // A get only needs a payload; its content is never read.
    ASSERT_TRUE(vehicle.Send(1873, shortWord, 1));
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(0xC3u, Word(answer)) << "a short set must not change the level";

    // The level in force lets the ping trace (mask 64) through.
    EXPECT_NE(std::string::npos, process->Err().find("Ping Handler"));

    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    ASSERT_TRUE(vehicle.Expect(13239));
    EXPECT_EQ(0, process->Wait(20000).exitCode);
}

// -l is read in base 10 without checks and the last one wins: "0x10" and "abc" are level 0,
// so the process runs silent, and says so when asked.
TEST(ProcessControl, LogLevelOptionBaseTenLastWins) {
    for (const char* level : {"0x10", "abc"}) {
        SCOPED_TRACE(level);
        TestEnv env;
        Vehicle vehicle;
        auto process =
            StartManager(env, {"RUN_WITHOUT_STATEMGR=1"}, {"-l", "255", "--loglevel", level});
        ASSERT_TRUE(process);
        ASSERT_TRUE(vehicle.SendWord(1873, 0));
        Received answer;
        ASSERT_TRUE(vehicle.Expect(1874, &answer)) << process->Err();
        EXPECT_EQ(0u, Word(answer));
        ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
        const ProgramResult result = process->Wait(20000);
        EXPECT_EQ(0, result.exitCode);
        EXPECT_EQ(std::string::npos, result.err.find("MetadataMgr:")) << result.err;
    }
}
