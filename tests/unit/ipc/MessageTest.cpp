#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "HostSeams.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"

namespace {

bool ZeroFrom(const IpcMessage& message, unsigned int from, unsigned int to) {
    const unsigned char* base = message.DataPtr();
    for (unsigned int i = from; i < to; ++i) {
        if (base[i] != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(IpcMessage, PayloadIsCopiedAndShortPayloadsReadZerosPastTheirEnd) {
    IpcMessage message;
    EXPECT_EQ(nullptr, message.DataPtr());

    std::vector<char> big(3000, '\x5a');
    ASSERT_EQ(0, message.Allocate(7, static_cast<unsigned int>(big.size()), big.data()));
    big[0] = 0;  // the message owns a copy
    EXPECT_EQ(0x5a, message.DataPtr()[0]);

    // Shrinking in the same buffer must not leave the old bytes readable past the payload.
    char two[2] = {1, 2};
    ASSERT_EQ(0, message.Allocate(8, 2, two));
    EXPECT_EQ(8u, message.MsgType());
    EXPECT_EQ(2u, message.Size());
    EXPECT_TRUE(ZeroFrom(message, 2, 2 + IpcMessage::kGuardBytes));

    // A reader of a 4-byte field in a 1-byte payload sees the byte and zeros.
    char one = 0x11;
    ASSERT_EQ(0, message.Allocate(9, 1, &one));
    std::uint32_t word = 0xFFFFFFFFu;
    std::memcpy(&word, message.DataPtr(), sizeof word);
    unsigned char expected[4] = {0x11, 0, 0, 0};
    std::uint32_t expectedWord;
    std::memcpy(&expectedWord, expected, sizeof expectedWord);
    EXPECT_EQ(expectedWord, word);

    ASSERT_EQ(0, message.Allocate(10, 5, nullptr));
    EXPECT_TRUE(ZeroFrom(message, 0, 5 + IpcMessage::kGuardBytes));

    ASSERT_EQ(0, message.Allocate(11, 0, nullptr));
    EXPECT_EQ(nullptr, message.DataPtr());
}

TEST(IpcMessage, AnswerBuiltFromItsOwnPayloadAndOversizeRefused) {
    IpcMessage message;
    char text[] = "abcdef";
    ASSERT_EQ(0, message.Allocate(1, 6, text));
    // Handlers answer with part of the request still in the same object.
    ASSERT_EQ(0, message.Allocate(2, 3, reinterpret_cast<char*>(message.DataPtr() + 3)));
    EXPECT_EQ(0, std::memcmp(message.DataPtr(), "def", 3));
    // Growing past the buffer while copying from it (the guard keeps the read inside).
    ASSERT_EQ(0, message.Allocate(3, 1000, reinterpret_cast<char*>(message.DataPtr())));
    EXPECT_EQ(0, std::memcmp(message.DataPtr(), "def", 3));
    EXPECT_TRUE(ZeroFrom(message, 3, 1000 + IpcMessage::kGuardBytes));
    std::vector<char> large(IpcMessage::kMaxPayload, 'q');
    ASSERT_EQ(0, message.Allocate(4, IpcMessage::kMaxPayload, large.data()));
    EXPECT_EQ(IpcMessage::kMaxPayload, message.Size());

    EXPECT_NE(0, message.Allocate(5, IpcMessage::kMaxPayload + 1, nullptr));
    EXPECT_EQ(4u, message.MsgType());  // a refused Allocate leaves the message as it was
    EXPECT_EQ(IpcMessage::kMaxPayload, message.Size());
}

TEST(IpcMessage, CopiesAreIndependent) {
    IpcMessage original;
    char bytes[4] = {1, 2, 3, 4};
    ASSERT_EQ(0, original.Allocate(42, 4, bytes));
    original.SetSender("Sender");

    IpcMessage copy(original);
    IpcMessage assigned;
    ASSERT_EQ(0, assigned.Allocate(1, 100, nullptr));
    assigned = original;
    original.DataPtr()[0] = 9;
    for (const IpcMessage* m : {&copy, &assigned}) {
        EXPECT_EQ(42u, m->MsgType());
        EXPECT_EQ(4u, m->Size());
        EXPECT_EQ(1, m->DataPtr()[0]);
        EXPECT_EQ("Sender", m->GetSender());
        EXPECT_TRUE(ZeroFrom(*m, 4, 4 + IpcMessage::kGuardBytes));
    }
    IpcMessage empty;
    assigned = empty;
    EXPECT_EQ(nullptr, assigned.DataPtr());
}

TEST(IpcMessage, SeamRefusesExactlyTheRequestedAllocations) {
    IpcMessage message;
    hostseam::FailNextAllocations(2);
    EXPECT_NE(0, message.Allocate(1, 4, nullptr));
    EXPECT_NE(0, message.Allocate(1, 0, nullptr));
    EXPECT_EQ(0, message.Allocate(1, 4, nullptr));
    hostseam::FailNextAllocations(3);
    hostseam::FailNextAllocations(0);
    EXPECT_EQ(0, message.Allocate(1, 4, nullptr));
}

TEST(LinxServerNameList, NamesAndReverseLookup) {
    LinxServerNameList& names = LinxServerNameList::Instance();
    EXPECT_EQ("StateMgr", names.Name(e_Process_StateMgr));
    EXPECT_EQ("FpgaHal", names.Name(e_Process_Fpga));
    EXPECT_EQ("MetadataMgr", names.Name(e_Process_MetadataMgr));
    EXPECT_EQ("ExternalMgr", names.Name(e_Process_ExternalMgr));
    EXPECT_EQ("Process31", names.Name(31));
    for (unsigned int p = 1; p < e_Process_Count; ++p) {
        EXPECT_EQ(p, static_cast<unsigned int>(names.Find(names.Name(p)))) << p;
    }
    EXPECT_EQ(e_Process_Unknown, names.Find("NoSuchProcess"));
    EXPECT_EQ(e_Process_Unknown, names.Find(""));
}
