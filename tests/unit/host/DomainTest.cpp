// The domain and the media root belong to the user running the vehicle: what others could plant
// there is refused and left alone, and what the platform makes has its own modes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "DataStore.h"
#include "HostDomain.h"
#include "LinxIpc.h"
#include "MetadataSharedMem.h"
#include "TestEnv.h"
#include "Watchdog.h"

namespace {

using Env = const TestEnv&;
struct Use {
    static bool Watch(Env) { return Watchdog(e_Process_MetadataMgr, e_Thread_Main).Subscribe(45); }
    static bool Block(Env) { return MetadataSharedMem().MetadataItems(false) != nullptr; }
    static bool Endpoint(Env) { return LinxIpc("Main").Init() == 0; }
    static bool Store(Env env) { return DataStoreNormal(env.MetadataPath()).Open(); }
};

mode_t ModeOf(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

}  // namespace

TEST(OwnFiles, WhatHoldsAPathThePlatformUsesIsRefusedAndLeftAsItIs) {
    const struct {
        const char* path;  // under the test's root
        mode_t holder;     // S_IFLNK: a link to <root>/precious
        bool (*use)(Env);
        bool used;  // a segment name held by a link is skipped, not refused
        const char* says;
    } cases[] = {
        {"domain/watchdog/19.0", S_IFLNK, Use::Watch, false, "19.0: it is a symbolic link"},
        {"domain/watchdog/19.0", S_IFIFO, Use::Watch, false, "19.0: it is a special file"},
        {"domain/watchdog", S_IFREG, Use::Watch, false, "watchdog: it is a regular file"},
        {"domain/metadata.shm", S_IFLNK, Use::Block, false, "shm: it is a symbolic link"},
        {"domain/metadata.shm", S_IFDIR, Use::Block, false, "metadata.shm: Is a directory"},
        {"domain/Main", S_IFREG, Use::Endpoint, false,
         "Main is held by a regular file, not a socket"},
        {"domain/Main", S_IFLNK, Use::Endpoint, false, "Main is held by a symbolic link, not"},
        {"domain/Main", S_IFDIR, Use::Endpoint, false, "Main is held by a directory, not a"},
        {"media/metadata", S_IFLNK, Use::Store, false, "metadata: it is a symbolic link"},
        {"media/metadata/metadata.000001.mdj", S_IFLNK, Use::Store, true,
         "000001.mdj left alone: not a plain file"},
    };
    for (const auto& c : cases) {
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
        } else if (c.holder == S_IFIFO) {
            ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
        } else {
            env.WriteFile(c.path, "someone's");
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(c.used, c.use(env)) << c.path;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(c.says));
        EXPECT_EQ(c.holder, ModeOf(path) & S_IFMT) << c.path;
        EXPECT_EQ("keep me", ReadFileText(precious)) << c.path;
        EXPECT_TRUE(c.holder != S_IFREG || ReadFileText(path) == "someone's") << c.path;
    }
}

TEST(OwnFiles, OnlyTheUsersOwnDomainIsUsedAndWhatIsMadeThereHasItsOwnMode) {
    TestEnv env;
    const uid_t self = ::geteuid();
    const std::string tooLong(100, 'd');
    // The directory above a domain must keep it in place: a shared one only with the sticky bit.
    ::mkdir(env.Path("shared").c_str(), 0700);
    ::chmod(env.Path("shared").c_str(), 01777);
    ::mkdir(env.Path("loose").c_str(), 0700);
    ::chmod(env.Path("loose").c_str(), 0777);
    ::mkdir(env.Path("theirs").c_str(), 0700);
    const bool theirs = ::chown(env.Path("theirs").c_str(), 4321, static_cast<gid_t>(-1)) == 0;
    const struct {
        std::string domain;
        mode_t mode;
        uid_t owner;
        std::string says;
    } cases[] = {
        {"grouped", 0770, self, "grouped: group or others may write it (mode 0770)"},
        {"open", 0707, self, "open: group or others may write it (mode 0707)"},
        {"foreign", 0700, 4321, "foreign: owned by uid 4321, not by this user"},
        {"loose/linx", 0700, self, "loose, which others may write without the sticky bit"},
        {"theirs/linx", 0700, theirs ? self : 4321, "theirs, owned by uid 4321"},
        {tooLong, 0700, self,
         "/Main is " + std::to_string(env.Path(tooLong).size() + 5) +
             " bytes long; a socket address holds at most 107"},
    };
    for (const auto& c : cases) {
        const std::string domain = env.Path(c.domain);
        ASSERT_EQ(0, ::mkdir(domain.c_str(), c.mode));
        if (::chmod(domain.c_str(), c.mode) != 0 ||
            ::chown(domain.c_str(), c.owner, static_cast<gid_t>(-1)) != 0) {
            continue;  // another user's directory needs root to make
        }
        ::setenv("LINX_DOMAIN", domain.c_str(), 1);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(Use::Endpoint(env)) << c.says;
        EXPECT_EQ(c.domain == tooLong, Use::Block(env)) << c.says;
        EXPECT_EQ(c.domain == tooLong, Use::Watch(env)) << c.says;
        EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find(c.says)) << c.says;
    }
    ::setenv("LINX_DOMAIN", env.Path("shared/linx").c_str(), 1);
    EXPECT_TRUE(Use::Endpoint(env) && Use::Block(env) && Use::Watch(env));

    // Unset, the domain is the user's own, made with the platform's modes whatever the umask.
    ::unsetenv("LINX_DOMAIN");
    ::setenv("XDG_RUNTIME_DIR", env.Root().c_str(), 1);
    const mode_t umask = ::umask(0);
    LinxIpc main("Main");
    EXPECT_EQ(0, main.Init());
    ::mkdir(env.Path("media/metadata").c_str(), 0770);
    EXPECT_TRUE(Use::Watch(env) && Use::Block(env) && Use::Store(env));
    ::umask(umask);
    for (const auto& made : {std::make_pair("linx", S_IFDIR | 0700),
                             {"linx/Main", S_IFSOCK | 0600},
                             {"linx/watchdog/19.0", S_IFREG | 0600},
                             {"media/metadata/metadata.000001.mdj", S_IFREG | 0640}}) {
        EXPECT_EQ(made.second, ModeOf(env.Path(made.first))) << made.first;
    }
    ::chmod(env.Root().c_str(), 0770);  // a runtime directory others may write is not used
    EXPECT_EQ("/tmp/linx-" + std::to_string(self), hostsystem::DomainDir());
    ::unsetenv("XDG_RUNTIME_DIR");
}
