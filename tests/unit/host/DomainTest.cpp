// The domain and the media root belong to the user running the vehicle: what others could plant
// there is refused and left alone, and what the platform makes has its own modes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "DataStore.h"
#include "HostDomain.h"
#include "LinxIpc.h"
#include "MetadataSharedMem.h"
#include "TestEnv.h"
#include "Watchdog.h"

namespace {

bool Subscribes(const TestEnv&) {
    return Watchdog(e_Process_MetadataMgr, e_Thread_Main).Subscribe(45);
}
bool MapsBlock(const TestEnv&) {
    return MetadataSharedMem().MetadataItems(false) != nullptr;
}
bool Binds(const TestEnv&) {
    return LinxIpc("Main").Init() == 0;
}
bool OpensStore(const TestEnv& env) {
    return DataStoreNormal(env.MetadataPath()).Open();
}

mode_t ModeOf(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

}  // namespace

TEST(OwnFiles, WhatHoldsAPathThePlatformUsesIsRefusedAndLeftAsItIs) {
    struct Case {
        const char* path;  // under the test's root
        mode_t holder;     // S_IFLNK: a link to <root>/precious
        bool (*use)(const TestEnv&);
        bool used;  // a segment name held by a link is skipped, not refused
    };
    const Case cases[] = {
        {"domain/watchdog/19.0", S_IFLNK, Subscribes, false},
        {"domain/watchdog", S_IFREG, Subscribes, false},
        {"domain/metadata.shm", S_IFLNK, MapsBlock, false},
        {"domain/metadata.shm", S_IFDIR, MapsBlock, false},
        {"domain/Main", S_IFREG, Binds, false},
        {"domain/Main", S_IFLNK, Binds, false},
        {"domain/Main", S_IFDIR, Binds, false},
        {"media/metadata", S_IFLNK, OpensStore, false},
        {"media/metadata/metadata.000001.mdj", S_IFLNK, OpensStore, true},
    };
    for (const Case& c : cases) {
        TestEnv env;
        ::mkdir(env.Path("domain/watchdog").c_str(), 0700);
        ::mkdir(env.Path("media/metadata").c_str(), 0770);
        const std::string path = env.Path(c.path);
        const std::string precious = env.WriteFile("precious", "keep me");
        ::rmdir(path.c_str());  // when the holder takes the place of a directory made above
        if (c.holder == S_IFLNK) {
            ASSERT_EQ(0, ::symlink(precious.c_str(), path.c_str()));
        } else if (c.holder == S_IFDIR) {
            ASSERT_EQ(0, ::mkdir(path.c_str(), 0700));
        } else {
            env.WriteFile(c.path, "someone's");
        }
        EXPECT_EQ(c.used, c.use(env)) << c.path;
        EXPECT_EQ(c.holder, ModeOf(path) & S_IFMT) << c.path;
        EXPECT_EQ("keep me", ReadFileText(precious)) << c.path;
        if (c.holder == S_IFREG) {
            EXPECT_EQ("someone's", ReadFileText(path)) << c.path;
        }
    }
}

TEST(OwnFiles, ADomainOthersCouldUseIsRefusedWithTheReason) {
    TestEnv env;
    const bool root = ::geteuid() == 0;
    struct Case {
        const char* name;
        mode_t mode;
        uid_t owner;
        const char* says;
    };
    const Case cases[] = {
        {"grouped", 0770, ::geteuid(), "grouped: group or others may write it (mode 0770)"},
        {"open", 0707, ::geteuid(), "open: group or others may write it (mode 0707)"},
        {"foreign", 0700, 4321, "foreign: owned by uid 4321, not by this user"},
    };
    for (const Case& c : cases) {
        const std::string domain = env.Path(c.name);
        ASSERT_EQ(0, ::mkdir(domain.c_str(), 0700));
        ASSERT_EQ(0, ::chmod(domain.c_str(), c.mode));
        if (c.owner != ::geteuid() && (!root || ::chown(domain.c_str(), c.owner, 0) != 0)) {
            continue;
        }
        ::setenv("LINX_DOMAIN", domain.c_str(), 1);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(Binds(env)) << c.name;
        EXPECT_FALSE(MapsBlock(env)) << c.name;
        EXPECT_FALSE(Subscribes(env)) << c.name;
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_NE(std::string::npos, said.find(c.says)) << said;
        EXPECT_EQ(0, ::rmdir(domain.c_str())) << "nothing made in " << c.name;
    }

    const std::string tooLong = env.Path(std::string(100, 'd'));
    const std::string length = std::to_string(tooLong.size() + 5);
    ::setenv("LINX_DOMAIN", tooLong.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Binds(env));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos,
              said.find("/Main is " + length + " bytes long; a socket address holds at most 107"))
        << said;
    ::setenv("LINX_DOMAIN", env.Domain().c_str(), 1);
    if (!root) {
        GTEST_SKIP() << "a domain of another user needs root to make";
    }
}

TEST(OwnFiles, TheDefaultDomainIsTheUsersOwnAndEveryFileHasItsOwnMode) {
    TestEnv env;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string saved = runtime != nullptr ? runtime : "";
    ::unsetenv("LINX_DOMAIN");
    ::setenv("XDG_RUNTIME_DIR", env.Root().c_str(), 1);
    const std::string domain = env.Path("linx");
    const mode_t umask = ::umask(0);
    {
        LinxIpc main("Main");
        Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
        MetadataSharedMem block;
        ASSERT_EQ(0, main.Init());
        ASSERT_TRUE(watchdog.Subscribe(45));
        ASSERT_NE(nullptr, block.MetadataItems(false));
        ::mkdir(env.Path("media/metadata").c_str(), 0770);
        ASSERT_TRUE(OpensStore(env));
        EXPECT_EQ(S_IFDIR | 0700, ModeOf(domain));
        EXPECT_EQ(S_IFSOCK | 0600, ModeOf(domain + "/Main"));
        EXPECT_EQ(S_IFDIR | 0700, ModeOf(domain + "/watchdog"));
        EXPECT_EQ(S_IFREG | 0600, ModeOf(domain + "/watchdog/19.0"));
        EXPECT_EQ(S_IFREG | 0600, ModeOf(domain + "/metadata.shm"));
        EXPECT_EQ(S_IFREG | 0640, ModeOf(env.MetadataPath() + ".000001.mdj"));
    }
    ::umask(umask);
    // A runtime directory others may write is no place for the domain.
    ::chmod(env.Root().c_str(), 0770);
    EXPECT_EQ("/tmp/linx-" + std::to_string(::geteuid()), hostsystem::DomainDir());
    ::setenv("LINX_DOMAIN", env.Domain().c_str(), 1);
    saved.empty() ? ::unsetenv("XDG_RUNTIME_DIR") : ::setenv("XDG_RUNTIME_DIR", saved.c_str(), 1);
}
