#include "LogClient.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "KvCommon.h"
#include "TestEnv.h"

namespace {

// What `body` wrote to standard error (fd 2), read back as the exact bytes of the file it went to.
template <typename Body>
std::string StderrOf(const TestEnv& env, Body body) {
    const std::string path = env.Path("err.txt");
    const int saved = ::dup(STDERR_FILENO);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
    body();
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    return ReadFileText(path);
}

std::string Prefix(const std::string& name, pid_t pid = ::getpid()) {
    return name + "[" + std::to_string(pid) + "]: ";
}

}  // namespace

TEST(LogClient, LineShapeFormatsAndCut) {
    EXPECT_EQ(LogClient::kDefaultLevel, LogClient::Instance().Level());
    EXPECT_EQ("host_tests", LogClient::Instance().ProcessName());
    TestEnv env;
    const std::string text = StderrOf(env, [] {
        errno = ENOSPC;
        LogMsg::Log(1, "MetadataMgr")
            << "MetadataMgr" << ':' << 42 << ' ' << "flags " << true << false << " n " << -7 << ' '
            << 4000000000u << ' ' << -5L << ' ' << 7UL << ' ' << -9LL << ' '
            << 18446744073709551615ULL << " hex " << LogHex(0xBEEFCAFEull) << ' '
            << std::string("str");
        // Writing the line must leave errno for the caller's next line.
        EXPECT_EQ(ENOSPC, errno);
        {
            // A moved-from record writes nothing; the one it moved into writes once.
            SysLogMsg first = LogMsg::Log(2, "Other");
            first << "moved";
            SysLogMsg second(std::move(first));
            second << " on";
        }
        LogMsg::Log(128, "Empty");  // written whatever the level
        SysLogMsg cut = LogMsg::Log(1, "P");
        for (int i = 0; i < 10; ++i) {
            cut << std::string(300, 'x') << 123456789 << LogHex(0xabc) << 'c' << true;
        }
    });
    const std::string head = Prefix("MetadataMgr") +
                             "MetadataMgr:42 flags 10 n -7 4000000000 -5 7 -9 "
                             "18446744073709551615 hex beefcafe str\n" +
                             Prefix("Other") + "moved on\n" + Prefix("Empty") + "\n" + Prefix("P");
    EXPECT_EQ(head, text.substr(0, head.size()));
    // The long line fills the buffer exactly, newline included.
    EXPECT_EQ(head.size() - Prefix("P").size() + SysLogMsg::kMaxLine, text.size());
    EXPECT_EQ('\n', text.back());
}

TEST(LogClient, LinesOfManyProcessesNeverInterleave) {
    TestEnv env;
    const int kLines = 100;
    std::map<std::string, int> expected;
    const std::string text = StderrOf(env, [&] {
        for (char c = 'a'; c < 'e'; ++c) {
            const std::string body(200 + c - 'a', c);
            const pid_t child = ::fork();
            if (child == 0) {
                for (int i = 0; i < kLines; ++i) {
                    LogMsg::Log(1, "Child") << body;
                }
                ::_exit(0);
            }
            expected[Prefix("Child", child) + body] = kLines;
        }
        while (::wait(nullptr) > 0) {
        }
    });
    std::map<std::string, int> seen;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ++seen[line];
    }
    EXPECT_TRUE(expected == seen) << text.substr(0, 2000);
}

TEST(LogClient, TerminateHandlerLogsTheExceptionAndAborts) {
    TestEnv env;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        StderrOf(env, [] {
            LogClient::Instance().ProcessName("Crasher");
            std::set_terminate(KorvaneTerminateHandler);
            try {
                throw std::runtime_error("disk vanished");
            } catch (...) {
                std::terminate();
            }
        });
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    const std::string text = ReadFileText(env.Path("err.txt"));
    EXPECT_EQ(0u, text.find(Prefix("Crasher", child))) << text;
    EXPECT_NE(std::string::npos, text.find("disk vanished")) << text;
}
