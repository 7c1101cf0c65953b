#include "LogClient.h"

#include "KvCommon.h"
#include "StderrCapture.h"
#include "TestEnv.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <exception>
#include <sstream>
#include <stdexcept>

namespace {

std::string Prefix(const std::string& name) {
    return name + "[" + std::to_string(::getpid()) + "]: ";
}

}  // namespace

TEST(LogClient, StartsWithDefaultLevelAndProgramName) {
    EXPECT_EQ(LogClient::kDefaultLevel, LogClient::Instance().Level());
    EXPECT_EQ("host_tests", LogClient::Instance().ProcessName());
}

TEST(LogClient, LineShapeAndValueFormats) {
    TestEnv env;
    StderrCapture capture(env.Path("err.txt"));
    {
        errno = ENOSPC;
        LogMsg::Log(1, "MetadataMgr")
            << "MetadataMgr" << ':' << 42 << ' ' << "flags " << true << false << " n " << -7 << ' '
            << 4000000000u << ' ' << -5L << ' ' << 7UL << ' ' << -9LL << ' '
            << 18446744073709551615ULL << " hex " << LogHex(0xBEEFCAFEull) << ' '
            << std::string("str");
        // Writing the line must leave errno for the caller's next line.
    }
    EXPECT_EQ(ENOSPC, errno);
    {
        // A moved-from record writes nothing; the one it moved into writes once.
        SysLogMsg first = LogMsg::Log(2, "Other");
        first << "moved";
        SysLogMsg second(std::move(first));
        second << " on";
    }
    LogMsg::Log(128, "Empty");
    const std::string text = capture.Text();
    EXPECT_EQ(Prefix("MetadataMgr") +
                  "MetadataMgr:42 flags 10 n -7 4000000000 -5 7 -9 18446744073709551615 hex "
                  "beefcafe str\n" +
                  Prefix("Other") + "moved on\n" + Prefix("Empty") + "\n",
              text);
}

TEST(LogClient, LongLinesAreCutAtTheBuffer) {
    TestEnv env;
    StderrCapture capture(env.Path("err.txt"));
    const std::string chunk(300, 'x');
    {
        SysLogMsg line = LogMsg::Log(1, "P");
        for (int i = 0; i < 10; ++i) {
            line << chunk << 123456789 << LogHex(0xabc) << 'c' << true;
        }
    }
    LogMsg::Log(1, "P") << "next";
    const std::string text = capture.Text();
    const std::string::size_type firstEnd = text.find('\n');
    ASSERT_NE(std::string::npos, firstEnd);
    EXPECT_EQ(SysLogMsg::kMaxLine, firstEnd + 1);
    EXPECT_EQ(0u, text.compare(0, Prefix("P").size(), Prefix("P")));
    EXPECT_EQ(Prefix("P") + "next\n", text.substr(firstEnd + 1));
}

TEST(LogClient, LinesOfManyProcessesNeverInterleave) {
    TestEnv env;
    StderrCapture capture(env.Path("err.txt"));
    const int kChildren = 4;
    const int kLines = 100;
    pid_t children[kChildren];
    for (int c = 0; c < kChildren; ++c) {
        children[c] = ::fork();
        ASSERT_GE(children[c], 0);
        if (children[c] == 0) {
            const std::string body(200 + c, static_cast<char>('a' + c));
            for (int i = 0; i < kLines; ++i) {
                LogMsg::Log(1, "Child") << body << ' ' << i;
            }
            ::_exit(0);
        }
    }
    for (pid_t child : children) {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::istringstream lines(capture.Text());
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        ++count;
        const std::string::size_type colon = line.find("]: ");
        ASSERT_NE(std::string::npos, colon) << line;
        const std::string body = line.substr(colon + 3, line.find(' ', colon + 3) - colon - 3);
        ASSERT_GE(body.size(), 200u) << line;
        EXPECT_EQ(std::string(body.size(), body[0]), body) << line;
        EXPECT_EQ(200u + static_cast<unsigned>(body[0] - 'a'), body.size()) << line;
    }
    EXPECT_EQ(kChildren * kLines, count);
}

TEST(LogClient, TerminateHandlerLogsTheExceptionAndAborts) {
    TestEnv env;
    const std::string errPath = env.Path("child-err.txt");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        StderrCapture capture(errPath);
        LogClient::Instance().ProcessName("Crasher");
        std::set_terminate(KorvaneTerminateHandler);
        try {
            throw std::runtime_error("disk vanished");
        } catch (...) {
            std::terminate();
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGABRT, WTERMSIG(status));
    const std::string text = ReadFileText(errPath);
    EXPECT_EQ(0u, text.find("Crasher[" + std::to_string(child) + "]: ")) << text;
    EXPECT_NE(std::string::npos, text.find("disk vanished")) << text;
}
