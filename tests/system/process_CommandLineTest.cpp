// The command line: usage text, exit status and the mode lines.
#include <gtest/gtest.h>

#include <unistd.h>

#include "Subprocess.h"
#include "TestEnv.h"

namespace {

std::string UsageFor(const std::string& program) {
    return "Usage:\n" + program +
           " [-l OR --loglevel LEVEL] [-s OR --simulator] [-r OR --radar Radar Only Simulation] \n"
           "    LEVEL = LogLevel for this process\n";
}

}  // namespace

TEST(ProcessCommandLine, HelpAndBadOptionsPrintUsageAndExitOne) {
    TestEnv env;
    const std::string program = ProgramPath("MetadataMgr");
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"-h"}, {"--help"}, {"-x"}, {"--bogus"}, {"-l"}}) {
        std::vector<std::string> argv{program};
        argv.insert(argv.end(), args.begin(), args.end());
        const ProgramResult result = RunProgram(argv, {}, env.Root(), "", 20000);
        EXPECT_EQ(1, result.exitCode) << args[0];
        EXPECT_NE(std::string::npos, result.err.find(UsageFor(program))) << args[0] << result.err;
        EXPECT_NE(std::string::npos,
                  result.err.find("MetadataMgr abnormal shutdown due to Invalid Usage"))
            << args[0];
        EXPECT_EQ("", result.out) << args[0];
    }
    // Nothing was set up: no endpoint, no metadata directory.
    const ProgramResult again = RunProgram({program, "-h"}, {}, env.Root(), "", 20000);
    EXPECT_EQ(1, again.exitCode);
    EXPECT_NE(0, access((env.Media() + "/metadata").c_str(), F_OK));
}

// The mode lines come in command-line order; the level check of the usage line is the
// library's level, not the -l parsed before it.
TEST(ProcessCommandLine, ModeLinesInOrderAndUsageLogAtDefaultLevel) {
    TestEnv env;
    const std::string program = ProgramPath("MetadataMgr");
    ProgramResult result =
        RunProgram({program, "-r", "-s", "-l", "0", "-h"}, {}, env.Root(), "", 20000);
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("Simulate Radar Only Mode\nRunning Simulation Mode\n", result.out);
    EXPECT_NE(std::string::npos, result.err.find("abnormal shutdown due to Invalid Usage"));

    result = RunProgram({program, "--simulator", "--radar", "-?"}, {}, env.Root(), "", 20000);
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("Running Simulation Mode\nSimulate Radar Only Mode\n", result.out);
}
