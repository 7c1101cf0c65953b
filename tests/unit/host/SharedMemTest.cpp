#include "MetadataSharedMem.h"

#include "HostInspect.h"
#include "TestEnv.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstdint>
#include <cstring>

namespace {

std::uint32_t Read32(const unsigned char* p) {
    std::uint32_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

void Write32(unsigned char* p, std::uint32_t value) {
    std::memcpy(p, &value, sizeof value);
}

}  // namespace

TEST(MetadataSharedMem, BlockIsSharedBetweenViewsAndProcesses) {
    TestEnv env;
    unsigned char copy[MetadataSharedMem::kBlockSize];
    EXPECT_FALSE(hostinspect::ReadSharedBlock(copy));

    MetadataSharedMem owner;
    unsigned char* block = owner.MetadataItems(false);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(block, owner.MetadataItems(true));
    struct stat info;
    ASSERT_EQ(0, ::stat((env.Domain() + "/metadata.shm").c_str(), &info));
    EXPECT_EQ(static_cast<off_t>(MetadataSharedMem::kBlockSize), info.st_size);

    Write32(block + 52, 0x07FFFFFFu);
    block[MetadataSharedMem::kBlockSize - 1] = 0x5A;
    {
        MetadataSharedMem reader;
        unsigned char* other = reader.MetadataItems(true);
        ASSERT_NE(nullptr, other);
        EXPECT_EQ(0x07FFFFFFu, Read32(other + 52));
        EXPECT_EQ(0x5A, other[MetadataSharedMem::kBlockSize - 1]);
        Write32(other + 0x2C, 7u);
    }
    // The reader's unmapping leaves the owner's view intact.
    EXPECT_EQ(7u, Read32(block + 0x2C));

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MetadataSharedMem writer;
        unsigned char* mine = writer.MetadataItems(true);
        if (mine == nullptr) {
            ::_exit(2);
        }
        Write32(mine + 0x44, 0xA1B2C3D4u);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ(0xA1B2C3D4u, Read32(block + 0x44));

    ASSERT_TRUE(hostinspect::ReadSharedBlock(copy));
    EXPECT_EQ(0, std::memcmp(copy, block, MetadataSharedMem::kBlockSize));
}

TEST(MetadataSharedMem, ShortBlockIsGrownKeepingItsBytes) {
    TestEnv env;
    env.WriteFile("domain/metadata.shm", "ABCD");
    MetadataSharedMem view;
    unsigned char* block = view.MetadataItems(false);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(0, std::memcmp(block, "ABCD", 4));
    EXPECT_EQ(0, block[4]);
    unsigned char copy[MetadataSharedMem::kBlockSize];
    EXPECT_TRUE(hostinspect::ReadSharedBlock(copy));
}

TEST(MetadataSharedMem, AttachFailsWhenTheBlockCannotBeOpened) {
    TestEnv env;
    ASSERT_EQ(0, ::mkdir((env.Domain() + "/metadata.shm").c_str(), 0770));
    MetadataSharedMem view;
    EXPECT_EQ(nullptr, view.MetadataItems(false));
    EXPECT_EQ(nullptr, view.MetadataItems(true));
    unsigned char copy[MetadataSharedMem::kBlockSize];
    EXPECT_FALSE(hostinspect::ReadSharedBlock(copy));
}
