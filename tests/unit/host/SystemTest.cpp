// The host's system services, driven through their real files in the test's private domain.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "HostInspect.h"
#include "MetadataSharedMem.h"
#include "SystemInfo.h"
#include "Systick.h"
#include "TestEnv.h"
#include "Watchdog.h"

using hostinspect::ReadWatchdog;
using hostinspect::WatchdogStatus;

// One block per domain, grown from what a reader left and the same in every view; linxpeer's
// tests see it from another process. A path held by something else: see DomainTest.
TEST(MetadataSharedMem, OneBlockPerDomainGrownAndSharedByViews) {
    TestEnv env;
    const unsigned int kLast = MetadataSharedMem::kBlockSize - 1;
    unsigned char copy[MetadataSharedMem::kBlockSize];
    env.WriteFile("domain/metadata.shm", "ABCD");  // cut short
    EXPECT_FALSE(hostinspect::ReadSharedBlock(copy));

    MetadataSharedMem owner;
    unsigned char* block = owner.MetadataItems(false);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(0, std::memcmp(block, "ABCD", 5));  // kept, then zeros
    EXPECT_EQ(block, owner.MetadataItems(true));

    block[kLast] = 0x5A;
    {
        MetadataSharedMem reader;
        unsigned char* other = reader.MetadataItems(true);
        ASSERT_NE(nullptr, other);
        EXPECT_EQ(0x5A, other[kLast]);
        other[0x2C] = 7;
    }
    EXPECT_EQ(7, block[0x2C]);  // the reader's unmapping leaves the owner's view intact
    ASSERT_TRUE(hostinspect::ReadSharedBlock(copy));
    EXPECT_EQ(0, std::memcmp(copy, block, MetadataSharedMem::kBlockSize));
}

TEST(SystemInformation, MacAddressAndSerialNumberFromTheSettings) {
    unsigned char mac[6];
    ::setenv("HOST_MAC_ADDRESS", "00:1A:2b:3C:4d:fF", 1);
    ASSERT_TRUE(SystemInformation::GetShortMacAddress(mac));
    EXPECT_EQ(0, std::memcmp("\x00\x1a\x2b\x3c\x4d\xff", mac, 6));

    const unsigned char zeros[6] = {};
    for (const char* bad : {"", "00:1a:2b:3c:4d", "00:1a:2b:3c:4d:5e:6f", "00-1a-2b-3c-4d-5e",
                            "0g:1a:2b:3c:4d:5e", "001a2b3c4d5e", "00:1a:2b:3c:4d:5"}) {
        std::memset(mac, 0xEE, sizeof mac);
        ::setenv("HOST_MAC_ADDRESS", bad, 1);
        EXPECT_FALSE(SystemInformation::GetShortMacAddress(mac)) << bad;
        EXPECT_EQ(0, std::memcmp(zeros, mac, 6)) << bad;
    }
    // Without the setting the machine's interfaces decide; a failure still leaves zeros.
    ::unsetenv("HOST_MAC_ADDRESS");
    std::memset(mac, 0xEE, sizeof mac);
    EXPECT_EQ(SystemInformation::GetShortMacAddress(mac), std::memcmp(zeros, mac, 6) != 0);

    std::string serial = "left over";
    ::unsetenv("HOST_SERIAL_NUMBER");
    EXPECT_FALSE(MfgItem::GetSystemSerialNumber(serial));
    ::setenv("HOST_SERIAL_NUMBER", "SN-0042", 1);
    ASSERT_TRUE(MfgItem::GetSystemSerialNumber(serial));
    EXPECT_EQ("SN-0042", serial);
    ::unsetenv("HOST_SERIAL_NUMBER");
}

TEST(VersionApi, ParsesEntriesAndSkipsNotes) {
    TestEnv env;
    const std::string file = env.WriteFile("versions",
                                           "# unit versions\n\nSYS_BUILD 4.2.1 rev7\n   \t\n"
                                           "  # indented note\nFPGA\t1.0.3\nNAMEONLY\n"
                                           "APP_BUILD   9.9   hwB   extra\r\nLAST 1.2");
    std::vector<VersionEntry> entries{VersionEntry("stale", "x", "y")};
    ASSERT_TRUE(VersionApi::GetAllVersions(entries, file));
    std::vector<std::string> got;
    for (const VersionEntry& entry : entries) {
        got.push_back(entry.Name() + "|" + entry.asString_sw() + "|" + entry.asString_hw());
    }
    EXPECT_EQ((std::vector<std::string>{"SYS_BUILD|4.2.1|rev7", "FPGA|1.0.3|", "APP_BUILD|9.9|hwB",
                                        "LAST|1.2|"}),
              got);

    EXPECT_FALSE(VersionApi::GetAllVersions(entries, env.Path("missing")));
    EXPECT_FALSE(VersionApi::GetAllVersions(entries, env.Root()));
    EXPECT_TRUE(VersionApi::GetAllVersions(entries, env.WriteFile("empty", "")));
    EXPECT_TRUE(entries.empty());
}

TEST(Systick, TickFileDecidesTheTickElseTheClockAlwaysGivesOne) {
    TestEnv env;
    Systick systick;
    ::setenv("HOST_SYSTICK_FILE", env.Path("tick").c_str(), 1);
    EXPECT_EQ(Systick::kUnavailable, systick.SystemTick());  // missing
    for (const char* bad : {"", "abc", "12x", "-5", "4294967296", " \n"}) {
        env.WriteFile("tick", bad);
        EXPECT_EQ(Systick::kUnavailable, systick.SystemTick()) << '"' << bad << '"';
    }
    for (const char* good : {"123456\n", "4294967294", "0"}) {
        env.WriteFile("tick", good);
        EXPECT_EQ(std::strtoul(good, nullptr, 10), systick.SystemTick());
    }

    ::unsetenv("HOST_SYSTICK_FILE");
    const unsigned int first = systick.SystemTick();
    const unsigned int second = systick.SystemTick();
    EXPECT_NE(Systick::kUnavailable, first);
    EXPECT_NE(Systick::kUnavailable, second);
    EXPECT_LT(second - first, 60000u);  // unsigned difference: small even across a 32-bit wrap
}

// A heartbeat file that is not a usable one: see DomainTest.
TEST(Watchdog, HeartbeatIsSeenThroughTheDomainAndExpires) {
    TestEnv env;
    WatchdogStatus status;
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
    ::setenv("HOST_WATCHDOG_REFUSE", "1", 1);
    EXPECT_FALSE(watchdog.Subscribe(45));
    ::unsetenv("HOST_WATCHDOG_REFUSE");
    watchdog.PetWatchdog();  // refused, as before registration: no trace
    EXPECT_FALSE(watchdog.Subscribed());
    EXPECT_FALSE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));

    ASSERT_TRUE(watchdog.Subscribe(45));
    for (int i = 0; i < 3; ++i) {
        watchdog.PetWatchdog();
    }
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.subscribed);
    EXPECT_EQ(45u, status.timeoutSeconds);
    EXPECT_EQ(3u, status.petCount);
    EXPECT_GT(status.lastPetMs, 0u);
    EXPECT_FALSE(status.expired);

    watchdog.Unsubscribe();
    watchdog.PetWatchdog();  // changes nothing once unsubscribed
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(!status.subscribed && !status.expired && status.petCount == 3u);

    // Registering again starts a fresh heartbeat, which expires unless petted in time.
    ASSERT_TRUE(watchdog.Subscribe(1));
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.subscribed && status.timeoutSeconds == 1u && status.petCount == 0u);
    ::usleep(1100 * 1000);
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.expired);
    watchdog.PetWatchdog();
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_FALSE(status.expired);
}
