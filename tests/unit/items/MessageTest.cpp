// Items as message payloads: missing and short payloads, refused allocations, and items carried
// between two real endpoints of a private domain.
#include <gtest/gtest.h>

#include "HostSeams.h"
#include "ItemTestSupport.h"
#include "LinxIpc.h"
#include "SampleItems.h"
#include "TestEnv.h"

using namespace itemtest;

namespace {

const unsigned int kGpsNotice = 13504;
const unsigned int kStreamNotice = 18957;

// A message holding the first `size` bytes of the item's encoding.
void AllocateCut(IpcMessage& msg, unsigned int type, const Item& item, unsigned int size) {
    Bytes bytes = Encoded(item);
    ASSERT_LE(size, bytes.size());
    ASSERT_EQ(0, msg.Allocate(type, size, reinterpret_cast<char*>(bytes.data())));
}

}  // namespace

TEST(ItemMessage, MissingPayloadFailsAndLeavesTheItemUntouched) {
    IpcMessage never;
    IpcMessage empty;
    ASSERT_EQ(0, empty.Allocate(kGpsNotice, 0, nullptr));
    for (IpcMessage* msg : {&never, &empty}) {
        GpsStatusItem gps = SampleGps();
        EXPECT_NE(0, gps.DecodeMsg(*msg));
        EXPECT_EQ(Encoded(SampleGps()), Encoded(gps));
        ExternalMgrApi::StreamingLvsStateItem stream = SampleStream();
        EXPECT_NE(0, stream.DecodeMsg(*msg));
        EXPECT_EQ(Encoded(SampleStream()), Encoded(stream));
    }
}

TEST(ItemMessage, ShortPayloadFailsAndMissingFieldsReadAsZero) {
    IpcMessage msg;
    AllocateCut(msg, kGpsNotice, SampleGps(), 0x64);
    GpsStatusItem gps;
    EXPECT_NE(0, gps.DecodeMsg(msg));
    EXPECT_EQ(SampleGps().latDegrees, gps.latDegrees);
    EXPECT_EQ(SampleGps().fixStatus, gps.fixStatus);
    EXPECT_EQ(0, gps.fixMode);
    EXPECT_EQ(0u, gps.tick);

    // Cut inside the port: the streaming item's last member is incomplete.
    const ExternalMgrApi::StreamingLvsStateItem sample = SampleStream();
    AllocateCut(msg, kStreamNotice, sample, sample.Size() - 1);
    ExternalMgrApi::StreamingLvsStateItem stream;
    EXPECT_NE(0, stream.DecodeMsg(msg));
    EXPECT_STREQ("192.168.1.20", stream.Address());

    // A text whose NUL is missing from the payload.
    ASSERT_EQ(0, msg.Allocate(1, 3, const_cast<char*>("abc")));
    StringItem text;
    EXPECT_NE(0, text.DecodeMsg(msg));
    EXPECT_STREQ("abc", text.Get());

    // Fewer entries than the count announces.
    AllocateCut(msg, 13511, SampleMics(), 4 + 8);
    MicStatusResponse mics;
    EXPECT_NE(0, mics.DecodeMsg(msg));

    // Trailing bytes after a complete item are not an error.
    Bytes longer = Encoded(SampleRadar());
    longer.resize(longer.size() + 10, 0x77);
    ASSERT_EQ(0, msg.Allocate(13510, static_cast<unsigned int>(longer.size()),
                              reinterpret_cast<char*>(longer.data())));
    RadarItem radar;
    EXPECT_EQ(0, radar.DecodeMsg(msg));
    EXPECT_EQ(Encoded(SampleRadar()), Encoded(radar));
}

TEST(ItemMessage, RefusedAllocationFailsTheEncode) {
    IpcMessage msg;
    hostseam::FailNextAllocations(1);
    EXPECT_NE(0, SampleStream().EncodeMsg(msg));
    EXPECT_EQ(0, SampleStream().EncodeMsg(msg));
    EXPECT_EQ(SampleStream().Size(), msg.Size());
}

TEST(ItemMessage, ItemsCrossRealEndpoints) {
    TestEnv env;
    LinxIpc sender("items_sender");
    LinxIpc receiver("items_receiver");
    ASSERT_EQ(0, sender.Init());
    ASSERT_EQ(0, receiver.Init());

    IpcMessage out;
    ASSERT_EQ(0, out.Allocate(kStreamNotice, 0, nullptr));
    ASSERT_EQ(0, SampleStream().EncodeMsg(out));
    ASSERT_EQ(0, sender.Notify("items_receiver", out, true));
    IpcMessage in;
    ASSERT_EQ(0, receiver.Receive(5000, 0, LinxIpc::emptyString, &in));
    EXPECT_EQ(kStreamNotice, in.MsgType());
    ExternalMgrApi::StreamingLvsStateItem stream;
    EXPECT_EQ(0, stream.DecodeMsg(in));
    EXPECT_EQ(Encoded(SampleStream()), Encoded(stream));

    // A received payload too short for its item: the decode reads the endpoint's zero guard,
    // never what an earlier, longer message left in the buffer.
    ASSERT_EQ(0, out.Allocate(kGpsNotice, 0, nullptr));
    ASSERT_EQ(0, SampleGps().EncodeMsg(out));
    ASSERT_EQ(0, sender.Notify("items_receiver", out, true));
    ASSERT_EQ(0, receiver.Receive(5000, 0, LinxIpc::emptyString, &in));
    AllocateCut(out, kGpsNotice, SampleGps(), 0x20);
    ASSERT_EQ(0, sender.Notify("items_receiver", out, true));
    ASSERT_EQ(0, receiver.Receive(5000, 0, LinxIpc::emptyString, &in));
    ASSERT_EQ(0x20u, in.Size());
    GpsStatusItem gps;
    EXPECT_NE(0, gps.DecodeMsg(in));
    EXPECT_EQ(SampleGps().latHemisphere, gps.latHemisphere);
    EXPECT_EQ(0, gps.lonDegrees);
    EXPECT_EQ(0u, gps.fixStatus);
    EXPECT_EQ(0u, gps.tick);
}
