#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "HostSeams.h"
#include "IpcTestSupport.h"
#include "LinxServerNameList.h"
#include "TestEnv.h"

namespace {

// The payload's bytes followed by zeros up to the guard's end.
std::string WithGuard(const IpcMessage& message) {
    return std::string(reinterpret_cast<const char*>(message.DataPtr()),
                       message.Size() + IpcMessage::kGuardBytes);
}

std::string Guarded(const std::string& payload) {
    return payload + std::string(IpcMessage::kGuardBytes, '\0');
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
    EXPECT_EQ(Guarded(std::string("\1\2", 2)), WithGuard(message));
    ASSERT_EQ(0, message.Allocate(10, 5, nullptr));
    EXPECT_EQ(Guarded(std::string(5, '\0')), WithGuard(message));

    // Handlers answer with part of the request still in the same object, also while growing
    // past the buffer (the guard keeps the read inside).
    ASSERT_EQ(0, message.Allocate(1, 6, const_cast<char*>("abcdef")));
    ASSERT_EQ(0, message.Allocate(2, 3, reinterpret_cast<char*>(message.DataPtr() + 3)));
    EXPECT_EQ(Guarded("def"), WithGuard(message));
    ASSERT_EQ(0, message.Allocate(3, 1000, reinterpret_cast<char*>(message.DataPtr())));
    EXPECT_EQ(Guarded("def" + std::string(997, '\0')), WithGuard(message));

    std::vector<char> largest(IpcMessage::kMaxPayload, 'q');
    ASSERT_EQ(0, message.Allocate(4, IpcMessage::kMaxPayload, largest.data()));
    EXPECT_NE(0, message.Allocate(5, IpcMessage::kMaxPayload + 1, nullptr));
    EXPECT_EQ(4u, message.MsgType());  // a refused Allocate leaves the message as it was
    EXPECT_EQ(IpcMessage::kMaxPayload, message.Size());
    ASSERT_EQ(0, message.Allocate(11, 0, nullptr));
    EXPECT_EQ(nullptr, message.DataPtr());
}

TEST(IpcMessage, CopiesAreIndependentAndTheSeamRefusesExactlyAsAsked) {
    IpcMessage original = Msg(42, "\1\2\3\4");
    original.SetSender("Sender");
    IpcMessage copy(original);
    IpcMessage assigned = Msg(1, std::string(100, 'x'));
    assigned = original;
    original.DataPtr()[0] = 9;
    for (const IpcMessage* m : {&copy, &assigned}) {
        EXPECT_EQ(42u, m->MsgType());
        EXPECT_EQ("Sender", m->GetSender());
        EXPECT_EQ(Guarded("\1\2\3\4"), WithGuard(*m));
    }
    assigned = IpcMessage();
    EXPECT_EQ(nullptr, assigned.DataPtr());

    hostseam::FailNextAllocations(2);
    EXPECT_NE(0, copy.Allocate(1, 4, nullptr));
    EXPECT_NE(0, copy.Allocate(1, 0, nullptr));
    EXPECT_EQ(0, copy.Allocate(1, 4, nullptr));
    hostseam::FailNextAllocations(3);
    hostseam::FailNextAllocations(0);
    EXPECT_EQ(0, copy.Allocate(1, 4, nullptr));
}

TEST(LinxServerNameList, EveryNameLeadsBackToItsProcess) {
    LinxServerNameList& names = LinxServerNameList::Instance();
    EXPECT_EQ("FpgaHal", names.Name(e_Process_Fpga));
    for (unsigned int p = 1; p < e_Process_Count; ++p) {
        EXPECT_EQ(p, static_cast<unsigned int>(names.Find(names.Name(p)))) << p;
    }
    EXPECT_EQ(e_Process_Unknown, names.Find("NoSuchProcess"));
    EXPECT_EQ(e_Process_Unknown, names.Find(""));
}

namespace {

const unsigned int kMagic = 0x4C4E5846u;

// magic, type, sender length, payload length (big-endian), sender, payload.
std::vector<unsigned char> Frame(unsigned int magic, unsigned int type, const std::string& sender,
                                 unsigned int nameLength, const std::string& payload,
                                 unsigned int payloadLength) {
    std::vector<unsigned char> frame;
    for (unsigned int value : {magic, type, nameLength, payloadLength}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            frame.push_back(static_cast<unsigned char>(value >> shift));
        }
    }
    frame.insert(frame.end(), sender.begin(), sender.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

}  // namespace

TEST(IpcWire, HeaderIsBigEndianAndMalformedDatagramsAreDropped) {
    TestEnv env;
    RawSocket raw(env.Domain(), "Raw");
    ASSERT_TRUE(raw.Bound());
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    ASSERT_TRUE(Send(main, "Raw", 0x01020304u, "xyz"));
    EXPECT_EQ(Frame(kMagic, 0x01020304u, "Main", 4, "xyz", 3), raw.Receive());
    ASSERT_TRUE(Send(main, "Raw", 5));
    EXPECT_EQ(Frame(kMagic, 5, "Main", 4, "", 0), raw.Receive());

    const std::vector<std::vector<unsigned char>> hostile = {
        {1, 2, 3},
        Frame(0x12345678u, 1, "Raw", 3, "hi", 2),                 // wrong magic
        Frame(kMagic, 1, "Raw", 3, "hi", 100),                    // claims more than it carries
        Frame(kMagic, 1, "Raw", 3, "hi", 1),                      // carries more than it claims
        Frame(kMagic, 1, "", 0, "hi", 2),                         // no sender
        Frame(kMagic, 1, "Raw", 0xFFFFFFFFu, "hi", 0xFFFFFFFFu),  // lengths that wrap a sum
        Frame(kMagic, 1, "Raw", 3, std::string(IpcMessage::kMaxPayload + 1, 'x'),
              IpcMessage::kMaxPayload + 1),  // above the largest payload
    };
    for (const auto& datagram : hostile) {
        ASSERT_TRUE(raw.SendTo("Main", datagram));
    }
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, 0x0A0B0C0Du, "Raw", 3, "ok", 2)));
    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, &got));
    EXPECT_EQ(0x0A0B0C0Du, got.MsgType());
    EXPECT_EQ("Raw", got.GetSender());
    EXPECT_EQ("ok", Text(got));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, LinxIpc::emptyString, &got));
}
