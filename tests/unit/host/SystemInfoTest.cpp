#include "SystemInfo.h"

#include "KvCommon.h"
#include "TestEnv.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <cstdlib>
#include <cstring>

TEST(SystemInformation, MacAddressFromTheSetting) {
    unsigned char mac[6];
    ::setenv("HOST_MAC_ADDRESS", "00:1A:2b:3C:4d:fF", 1);
    ASSERT_TRUE(SystemInformation::GetShortMacAddress(mac));
    const unsigned char expected[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xff};
    EXPECT_EQ(0, std::memcmp(expected, mac, 6));

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
    const bool found = SystemInformation::GetShortMacAddress(mac);
    EXPECT_EQ(found, std::memcmp(zeros, mac, 6) != 0);
}

TEST(SystemInformation, SerialNumberOnlyWhenSet) {
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
                                           "# unit versions\n"
                                           "\n"
                                           "SYS_BUILD 4.2.1 rev7\n"
                                           "   \t\n"
                                           "  # indented note\n"
                                           "FPGA\t1.0.3\n"
                                           "NAMEONLY\n"
                                           "APP_BUILD   9.9   hwB   extra\r\n"
                                           "LAST 1.2");
    std::vector<VersionEntry> entries{VersionEntry("stale", "x", "y")};
    ASSERT_TRUE(VersionApi::GetAllVersions(entries, file));
    ASSERT_EQ(4u, entries.size());
    EXPECT_EQ("SYS_BUILD", entries[0].Name());
    EXPECT_EQ("4.2.1", entries[0].asString_sw());
    EXPECT_EQ("rev7", entries[0].asString_hw());
    EXPECT_EQ("FPGA", entries[1].Name());
    EXPECT_EQ("1.0.3", entries[1].asString_sw());
    EXPECT_EQ("", entries[1].asString_hw());
    EXPECT_EQ("APP_BUILD", entries[2].Name());
    EXPECT_EQ("9.9", entries[2].asString_sw());
    EXPECT_EQ("hwB", entries[2].asString_hw());
    EXPECT_EQ("LAST", entries[3].Name());
    EXPECT_EQ("1.2", entries[3].asString_sw());

    EXPECT_FALSE(VersionApi::GetAllVersions(entries, env.Path("missing")));
    EXPECT_FALSE(VersionApi::GetAllVersions(entries, env.Root()));

    env.WriteFile("empty", "");
    EXPECT_TRUE(VersionApi::GetAllVersions(entries, env.Path("empty")));
    EXPECT_TRUE(entries.empty());
}
