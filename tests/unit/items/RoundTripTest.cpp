// Every item survives Encode/Decode and EncodeMsg/DecodeMsg unchanged. The wire layout tests
// prove what Encode writes; re-encoding what Decode read then proves every field was read. The
// buffers end at an unreadable page, so an item that writes or reads past its Size() crashes.
#include <gtest/gtest.h>

#include <string>

#include "ItemTestSupport.h"
#include "LinxIpc.h"
#include "SampleItems.h"

using namespace itemtest;

namespace {

const unsigned int kAnyType = 4711;

template <typename T>
void ExpectRoundTrip(const T& original) {
    const Bytes bytes = Encoded(original);
    ASSERT_EQ(original.Size(), bytes.size());

    FencedBuffer fenced(original.Size());
    unsigned char* data = fenced.data();
    ASSERT_NE(nullptr, data);
    EXPECT_EQ(data + bytes.size(), original.Encode(data));
    EXPECT_EQ(0, std::memcmp(bytes.data(), data, bytes.size()));
    T decoded;
    EXPECT_EQ(data + bytes.size(), decoded.Decode(data));
    EXPECT_EQ(bytes, Encoded(decoded));

    // The message keeps its type and gets exactly the item's bytes, whatever it held before.
    IpcMessage msg;
    ASSERT_EQ(0, msg.Allocate(kAnyType, 300, nullptr));
    EXPECT_EQ(0, original.EncodeMsg(msg));
    EXPECT_EQ(kAnyType, msg.MsgType());
    ASSERT_EQ(bytes.size(), msg.Size());
    EXPECT_EQ(0, std::memcmp(bytes.data(), msg.DataPtr(), bytes.size()));
    T fromMessage;
    EXPECT_EQ(0, fromMessage.DecodeMsg(msg));
    EXPECT_EQ(bytes, Encoded(fromMessage));
}

}  // namespace

TEST(ItemRoundTrip, MemberItems) {
    ExpectRoundTrip(BoolItem(true));
    ExpectRoundTrip(UShortItem(0xBEEF));
    ExpectRoundTrip(SystickItem(0xFFFFFFFEu));
    ExpectRoundTrip(StringItem("10.0.0.5"));
    ExpectRoundTrip(StringItem());
    ExpectRoundTrip(StringItem(std::string(StringItem::kMaxLength, 'x').c_str()));
}

TEST(ItemRoundTrip, HardwareAndVideoItems) {
    ExpectRoundTrip(SampleFpga());
    ExpectRoundTrip(SampleGps());
    ExpectRoundTrip(SampleRadar());
    ExpectRoundTrip(SampleTemp());
    ExpectRoundTrip(SampleCrash());
    ExpectRoundTrip(SampleCameras());
    ExpectRoundTrip(SampleQuality());
    ExpectRoundTrip(SampleMics());
    ExpectRoundTrip(MicStatusResponse());

    MicStatusResponse full;
    for (unsigned int i = 0; i < MicStatusResponse::kMaxEntries; ++i) {
        EXPECT_TRUE(full.Add(static_cast<e_MicrophonePosition>(i), i % 2 == 0, i % 3 == 0));
    }
    EXPECT_FALSE(full.Add(e_Mic_0, true, true));
    full.tick = 77;
    ExpectRoundTrip(full);
}

TEST(ItemRoundTrip, RecordsAndTheStreamingItem) {
    ExpectRoundTrip(SampleVehicle());
    ExpectRoundTrip(SampleOfficer());
    ExpectRoundTrip(SampleDepartment());
    ExpectRoundTrip(SampleSystem());
    ExpectRoundTrip(SampleRecordingSettings());
    ExpectRoundTrip(SampleStream());
    ExpectRoundTrip(ExternalMgrApi::StreamingLvsStateItem());

    ExternalMgrApi::StreamingLvsStateItem decoded;
    const Bytes bytes = Encoded(SampleStream());
    Bytes copy = bytes;
    decoded.Decode(copy.data());
    EXPECT_TRUE(decoded.Enabled());
    EXPECT_FALSE(decoded.HighQuality());
    EXPECT_EQ(0x0102, decoded.Camera());
    EXPECT_STREQ("192.168.1.20", decoded.Address());
    EXPECT_EQ(554, decoded.Port());
}
