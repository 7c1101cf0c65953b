// Every item class against its documented layout. Expected bytes are written field by field in
// the machine's own byte order, so the same expectations hold on little- and big-endian builds
// and a swapped or misplaced field shows up on either. Buffers end at an unreadable page, so an
// item that reads or writes past its layout crashes the test instead of passing by luck.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "ConfigItems.h"
#include "HalItems.h"
#include "HostSeams.h"
#include "LinxIpc.h"
#include "MicItems.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Stream = ExternalMgrApi::StreamingLvsStateItem;
const unsigned int kAnyType = 4711;

Bytes Encoded(const Item& item) {
    Bytes bytes(item.Size());
    item.Encode(bytes.data());
    return bytes;
}

// An expected layout, each field written with its documented width W; Field also gives the item's
// field the value it writes, so sample and expectation cannot drift apart. Bytes no field covers
// are the reserved ones.
class Layout {
public:
    explicit Layout(unsigned int size) : bytes_(size, 0), used_(size, false) {}
    template <typename W, typename F>
    Layout& Field(unsigned int offset, F& field, W value) {
        field = static_cast<F>(value);
        return At<W>(offset, value);
    }
    template <typename W>
    Layout& At(unsigned int offset, W value) {
        return Put(offset, &value, sizeof value);
    }
    Layout& Text(unsigned int offset, const char* text) {
        return Put(offset, text, std::strlen(text) + 1);
    }
    Layout& Text(unsigned int offset, StringItem& field, const char* text) {
        field.Set(text);
        return Text(offset, text);
    }
    const Bytes& Clean() const { return bytes_; }
    // What a sender may leave in the reserved bytes.
    Bytes Dirty() const {
        Bytes dirty = bytes_;
        for (std::size_t i = 0; i < dirty.size(); ++i) {
            dirty[i] = used_[i] ? dirty[i] : 0xA5;
        }
        return dirty;
    }

private:
    Layout& Put(unsigned int offset, const void* value, std::size_t size) {
        if (offset + size > bytes_.size()) {
            ADD_FAILURE() << "field at " << offset << " outside the layout";
            return *this;
        }
        std::memcpy(bytes_.data() + offset, value, size);
        std::fill(used_.begin() + offset, used_.begin() + offset + size, true);
        return *this;
    }
    Bytes bytes_;
    std::vector<bool> used_;
};

// A copy of `bytes` followed by a page that faults on any access.
class FencedBuffer {
public:
    explicit FencedBuffer(const Bytes& bytes)
        : page_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
          length_((bytes.size() / page_ + 2) * page_) {
        void* base =
            ::mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base_ = base == MAP_FAILED ? nullptr : static_cast<unsigned char*>(base);
        if (base_ != nullptr && ::mprotect(base_ + length_ - page_, page_, PROT_NONE) == 0) {
            data_ = base_ + length_ - page_ - bytes.size();
            std::memcpy(data_, bytes.data(), bytes.size());
        }
    }
    ~FencedBuffer() {
        if (base_ != nullptr) {
            ::munmap(base_, length_);
        }
    }
    FencedBuffer(const FencedBuffer&) = delete;
    FencedBuffer& operator=(const FencedBuffer&) = delete;
    unsigned char* data() { return data_; }

private:
    std::size_t page_;
    std::size_t length_;
    unsigned char* base_ = nullptr;
    unsigned char* data_ = nullptr;
};

// Encode writes exactly the layout; Decode of the layout with garbage in its reserved bytes reads
// every field from its offset (re-encoding gives the clean layout); the message keeps its type
// and carries exactly the same bytes.
template <typename T>
void ExpectWire(const T& item, const Layout& layout) {
    const Bytes& clean = layout.Clean();
    const unsigned int size = static_cast<unsigned int>(clean.size());
    ASSERT_EQ(size, item.Size());
    FencedBuffer out(Bytes(size, 0xEE));  // reserved bytes must be written as zero
    FencedBuffer in(layout.Dirty());
    ASSERT_TRUE(out.data() != nullptr && in.data() != nullptr);
    EXPECT_EQ(out.data() + size, item.Encode(out.data()));
    EXPECT_EQ(clean, Bytes(out.data(), out.data() + size));
    T decoded;
    EXPECT_EQ(in.data() + size, decoded.Decode(in.data()));
    EXPECT_EQ(clean, Encoded(decoded));

    IpcMessage msg;
    ASSERT_EQ(0, msg.Allocate(kAnyType, 300, nullptr));
    EXPECT_EQ(0, item.EncodeMsg(msg));
    EXPECT_EQ(kAnyType, msg.MsgType());
    ASSERT_EQ(size, msg.Size());
    EXPECT_EQ(clean, Bytes(msg.DataPtr(), msg.DataPtr() + size));
    T fromMessage;
    EXPECT_EQ(0, fromMessage.DecodeMsg(msg));
    EXPECT_EQ(clean, Encoded(fromMessage));
}

// Distinct values, negative where a field is signed.
Layout GpsLayout(GpsStatusItem& gps) {
    Layout layout(0x8C);
    layout.Field<unsigned short>(0x04, gps.latDegrees, 0x0102)
        .Field<unsigned short>(0x0C, gps.latMinutes, 0x0304)
        .Field<unsigned int>(0x14, gps.latMinuteFraction, 0x05060708u)
        .Field<int>(0x18, gps.latHemisphere, 1)
        .Field<unsigned short>(0x20, gps.lonDegrees, 0x090A)
        .Field<unsigned short>(0x28, gps.lonMinutes, 0x0B0C)
        .Field<unsigned int>(0x30, gps.lonMinuteFraction, 0x0D0E0F10u)
        .Field<int>(0x34, gps.lonHemisphere, -2)
        .Field<int>(0x3C, gps.altitude, -123456)
        .Field<unsigned short>(0x44, gps.speed, 0x1234)
        .Field<unsigned short>(0x4C, gps.heading, 359)
        .Field<unsigned short>(0x54, gps.magneticVariation, 0x1718)
        .Field<unsigned short>(0x5C, gps.satellitesInView, 12)
        .Field<unsigned int>(0x60, gps.fixStatus, 0x191A1B1Cu)
        .Field<int>(0x64, gps.fixMode, -3)
        .Field<int>(0x6C, gps.hdop, 0x1D1E1F20)
        .Field<int>(0x70, gps.satellitesUsed, 9)
        .Field<int>(0x78, gps.geoidSeparation, -47)
        .Field<unsigned int>(0x80, gps.utcTime, 0x21222324u)
        .Field<unsigned char>(0x84, gps.dataValid, 0xA5)
        .Field<unsigned int>(0x88, gps.tick, 0xFEDCBA98u);
    return layout;
}

// Count, then `entries` entries of 8 bytes (position, present flag, active flag, two reserved)
// with varying positions and flags, then the tick. `mics` gets the same entries, as many as it
// holds.
Layout MicList(unsigned int count, unsigned int entries, MicStatusResponse& mics) {
    Layout layout(4 + 8 * entries + 4);
    layout.At<unsigned int>(0, count);
    for (unsigned int i = 0; i < entries; ++i) {
        const unsigned char present = i % 2 == 0 ? 1 : 0;
        const unsigned char active = i % 3 == 0 ? 1 : 0;
        mics.Add(static_cast<e_MicrophonePosition>(i ^ 5), present != 0, active != 0);
        layout.At<unsigned int>(4 + 8 * i, i ^ 5)
            .At<unsigned char>(8 + 8 * i, present)
            .At<unsigned char>(9 + 8 * i, active);
    }
    return layout.Field<unsigned int>(4 + 8 * entries, mics.tick, 0x01020304u);
}

}  // namespace

TEST(ItemWire, MemberItems) {
    UShortItem number;
    ExpectWire(number, Layout(2).Field<unsigned short>(0, number, 0xBEEF));
    SystickItem tick;
    ExpectWire(tick, Layout(4).Field<unsigned int>(0, tick, 0xFFFFFFFEu));
    for (unsigned char value : {0, 1}) {
        BoolItem flag;
        ExpectWire(flag, Layout(1).Field<unsigned char>(0, flag, value));
    }
    unsigned char two = 2;  // any non-zero byte is true
    BoolItem flag;
    flag.Decode(&two);
    EXPECT_TRUE(flag.Get());
    const std::string longest(StringItem::kMaxLength, 'x');
    for (const char* value : {"10.0.0.5", "", longest.c_str()}) {
        StringItem text;
        ExpectWire(text,
                   Layout(static_cast<unsigned int>(std::strlen(value) + 1)).Text(0, text, value));
    }
}

TEST(ItemWire, GpsStatusItem) {
    GpsStatusItem gps;
    ExpectWire(gps, GpsLayout(gps));
}

TEST(ItemWire, RadarTempCrashAndFpgaItems) {
    RadarItem radar;
    ExpectWire(radar, Layout(0x2C)
                          .Field<unsigned short>(0x04, radar.status, 0x0081)
                          .Field<unsigned short>(0x0C, radar.patrolSpeed, 0x0203)
                          .Field<unsigned short>(0x14, radar.targetSpeed, 0x0405)
                          .Field<unsigned short>(0x1C, radar.fastestSpeed, 0x0607)
                          .Field<unsigned short>(0x24, radar.lockedSpeed, 0x0809)
                          .Field<unsigned int>(0x28, radar.tick, 0x0A0B0C0Du));
    TempStatus temp;
    ExpectWire(temp, Layout(0x4C)
                         .Field<short>(0x04, temp.temperatures[0], -40)
                         .Field<short>(0x0C, temp.temperatures[1], 85)
                         .Field<short>(0x14, temp.temperatures[2], -32768)
                         .Field<short>(0x1C, temp.temperatures[3], 32767)
                         .Field<unsigned int>(0x48, temp.tick, 0x55667788u));
    CrashItem crash;
    ExpectWire(crash, Layout(8)
                          .Field<unsigned char>(0x00, crash.crash, 1)
                          .Field<unsigned int>(0x04, crash.tick, 0x99AABBCCu));
    FpgaExternalEventItem fpga;
    ExpectWire(fpga, Layout(16)
                         .Field<unsigned int>(0x00, fpga.changedMask, 0x000A8000u)
                         .Field<unsigned int>(0x04, fpga.inputLevels, 0x00008000u)
                         .Field<unsigned int>(0x08, fpga.debounce, 0xCAFEF00Du)
                         .Field<unsigned int>(0x0C, fpga.tick, 0x11223344u));
}

TEST(ItemWire, MicAndVideoManagerItems) {
    const unsigned int kMax = MicStatusResponse::kMaxEntries;
    MicStatusResponse full;
    ExpectWire(full, MicList(kMax, kMax, full));
    EXPECT_FALSE(full.Add(e_Mic_0, true, true));
    MicStatusResponse none;
    ExpectWire(none, MicList(0, 0, none));

    VideoMgrCameraItem cameras;
    Layout cameraLayout(40);
    for (unsigned int i = 0; i < VideoMgrCameraItem::kEntries; ++i) {
        cameraLayout.Field<unsigned int>(4 * i, cameras.cameraState[i], i * 0x01010101u + 1);
    }
    ExpectWire(cameras, cameraLayout.Field<unsigned int>(36, cameras.tick, 0xDEADBEEFu));

    VideoMgrStreamQualityItem quality;
    Layout qualityLayout(52);
    for (unsigned int i = 0; i < VideoMgrStreamQualityItem::kStreams; ++i) {
        VideoMgrStreamQualityItem::Stream& s = quality.streams[i];
        qualityLayout.Field<unsigned int>(12 * i, s.quality, 0x10000000u + i)
            .Field<unsigned int>(12 * i + 4, s.bitRateKbps, 2000 + 500 * i)
            .Field<unsigned short>(12 * i + 8, s.frameRate, static_cast<unsigned short>(30 - i))
            .Field<unsigned short>(12 * i + 10, s.resolution,
                                   static_cast<unsigned short>(0x0700 + i));
    }
    ExpectWire(quality, qualityLayout.Field<unsigned int>(48, quality.tick, 0x0BADF00Du));
}

TEST(ItemWire, RecordsAreTheirMembersBackToBack) {
    VehicleInfo vehicle;
    ExpectWire(vehicle, Layout(8 + 8 + 19)
                            .Text(0, vehicle.vehicleId, "Unit 12")
                            .Text(8, vehicle.licensePlate, "AB-1234")
                            .Text(16, vehicle.description, "Interceptor, white"));
    Officer officer;
    ExpectWire(officer,
               Layout(5 + 7).Text(0, officer.officerId, "4711").Text(5, officer.name, "J. Doe"));
    DepartmentInfo department;
    ExpectWire(department, Layout(5 + 15)
                               .Text(0, department.departmentId, "D-09")
                               .Text(5, department.name, "Highway Patrol"));
    SystemInfo system;
    ExpectWire(
        system,
        Layout(9 + 5).Text(0, system.systemName, "Recorder").Text(9, system.unitNumber, "0042"));
    VideoRecordingSettings settings;
    ExpectWire(settings, Layout(9)
                             .Field<unsigned short>(0, settings.preEventSeconds, 30)
                             .Field<unsigned short>(2, settings.postEventSeconds, 0xFFFF)
                             .Field<unsigned short>(4, settings.resolution, 0x0102)
                             .Field<unsigned short>(6, settings.frameRate, 25)
                             .Field<unsigned char>(8, settings.recordAudio, 1));

    // Enabled, high quality, camera, address text with its NUL, port.
    Stream stream;
    stream.SetEnabled(true);
    stream.SetHighQuality(false);
    stream.SetCamera(0x0102);
    stream.SetAddress("192.168.1.20");
    stream.SetPort(554);
    ExpectWire(stream, Layout(1 + 1 + 2 + 13 + 2)
                           .At<unsigned char>(0, 1)
                           .At<unsigned char>(1, 0)
                           .At<unsigned short>(2, 0x0102)
                           .Text(4, "192.168.1.20")
                           .At<unsigned short>(17, 554));
    ExpectWire(Stream(), Layout(7).At<unsigned int>(0, 0).Text(4, "").At<unsigned short>(5, 0));
}

TEST(ItemBounds, TextsAreCutAtTheirLimit) {
    const unsigned int kLimit = StringItem::kMaxLength;

    // No NUL at all: the byte after kMaxLength characters ends the text, whatever it is.
    FencedBuffer unterminated(Bytes(kLimit + 1, 'A'));
    StringItem text;
    EXPECT_EQ(unterminated.data() + kLimit + 1, text.Decode(unterminated.data()));
    EXPECT_EQ(kLimit, text.Length());
    EXPECT_EQ(std::string(kLimit, 'A'), text.Get());

    text.Set(std::string(400, 'C').c_str());
    EXPECT_EQ(kLimit + 1, text.Size());
    text.Set(text.Get());
    EXPECT_EQ(std::string(kLimit, 'C'), text.Get());
    text.Set(nullptr);
    EXPECT_STREQ("", text.Get());

    // An unterminated address (the reserved fill) inside the streaming item: the port still
    // follows the cut text.
    const unsigned int size = 1 + 1 + 2 + (kLimit + 1) + 2;
    FencedBuffer fenced(
        Layout(size).At<unsigned short>(2, 3).At<unsigned short>(size - 2, 8554).Dirty());
    Stream stream;
    EXPECT_EQ(fenced.data() + size, stream.Decode(fenced.data()));
    EXPECT_EQ(kLimit, std::strlen(stream.Address()));
    EXPECT_EQ(3, stream.Camera());
    EXPECT_EQ(8554, stream.Port());
}

// A longer list than the item holds is malformed: only the count word is read, and the item
// ends up empty with no tick, so nothing of the list reaches the store.
TEST(ItemBounds, MicListsBeyondTheEntriesDecodeEmpty) {
    const unsigned int kMax = MicStatusResponse::kMaxEntries;
    MicStatusResponse full;
    Bytes whole = MicList(kMax, kMax, full).Clean();
    for (unsigned int count : {kMax + 1, 0xFFFFFFFFu}) {
        MicStatusResponse ignored;
        Bytes bytes = MicList(count, kMax + 1, ignored).Clean();
        FencedBuffer fenced(Bytes(bytes.begin(), bytes.begin() + 4));
        MicStatusResponse mics = full;
        EXPECT_EQ(fenced.data() + 4, mics.Decode(fenced.data()));
        EXPECT_EQ(Layout(8).Clean(), Encoded(mics));
        IpcMessage msg;
        ASSERT_EQ(0, msg.Allocate(13511, static_cast<unsigned int>(bytes.size()),
                                  reinterpret_cast<char*>(bytes.data())));
        mics = full;
        ASSERT_EQ(0, mics.DecodeMsg(msg));
        EXPECT_EQ(Layout(8).Clean(), Encoded(mics));
    }

    // A count the payload cannot hold fails the decode.
    IpcMessage msg;
    ASSERT_EQ(0, msg.Allocate(13511, 4 + 8, reinterpret_cast<char*>(whole.data())));
    EXPECT_NE(0, full.DecodeMsg(msg));
}

TEST(ItemMessage, MissingPayloadOrRefusedAllocationFails) {
    IpcMessage never;
    IpcMessage msg;
    ASSERT_EQ(0, msg.Allocate(13504, 0, nullptr));
    for (IpcMessage* payloadless : {&never, &msg}) {
        GpsStatusItem gps;
        const Bytes before = GpsLayout(gps).Clean();
        EXPECT_NE(0, gps.DecodeMsg(*payloadless));
        EXPECT_EQ(before, Encoded(gps));  // untouched
    }

    hostseam::FailNextAllocations(1);
    EXPECT_NE(0, SystickItem(5).EncodeMsg(msg));
    EXPECT_EQ(0, SystickItem(5).EncodeMsg(msg));
    EXPECT_EQ(4u, msg.Size());

    // A text whose NUL is not in the payload is incomplete; bytes after a whole item are not.
    ASSERT_EQ(0, msg.Allocate(1, 3, const_cast<char*>("abc")));
    StringItem text;
    EXPECT_NE(0, text.DecodeMsg(msg));
    EXPECT_STREQ("abc", text.Get());
    ASSERT_EQ(0, msg.Allocate(1, 4, const_cast<char*>("ab\0c")));
    EXPECT_EQ(0, text.DecodeMsg(msg));
    EXPECT_STREQ("ab", text.Get());
}
