// The exact bytes of the item layouts, built field by field in the machine's own byte order, so
// the same expectations hold on little- and big-endian machines.
#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "SampleItems.h"

using namespace itemtest;

namespace {

// `fill` stands for whatever a sender leaves in the reserved bytes.
Layout GpsLayout(const GpsStatusItem& gps, unsigned char fill) {
    Layout layout(GpsStatusItem::kWireSize, fill);
    layout.At<unsigned short>(0x04, gps.latDegrees)
        .At<unsigned short>(0x0C, gps.latMinutes)
        .At<unsigned int>(0x14, gps.latMinuteFraction)
        .At<int>(0x18, gps.latHemisphere)
        .At<unsigned short>(0x20, gps.lonDegrees)
        .At<unsigned short>(0x28, gps.lonMinutes)
        .At<unsigned int>(0x30, gps.lonMinuteFraction)
        .At<int>(0x34, gps.lonHemisphere)
        .At<int>(0x3C, gps.altitude)
        .At<unsigned short>(0x44, gps.speed)
        .At<unsigned short>(0x4C, gps.heading)
        .At<unsigned short>(0x54, gps.magneticVariation)
        .At<unsigned short>(0x5C, gps.satellitesInView)
        .At<unsigned int>(0x60, gps.fixStatus)
        .At<int>(0x64, gps.fixMode)
        .At<int>(0x6C, gps.hdop)
        .At<int>(0x70, gps.satellitesUsed)
        .At<int>(0x78, gps.geoidSeparation)
        .At<unsigned int>(0x80, gps.utcTime)
        .At<unsigned char>(0x84, gps.dataValid)
        .At<unsigned int>(0x88, gps.tick);
    return layout;
}

Layout RadarLayout(const RadarItem& radar, unsigned char fill) {
    Layout layout(RadarItem::kWireSize, fill);
    layout.At<unsigned short>(0x04, radar.status)
        .At<unsigned short>(0x0C, radar.patrolSpeed)
        .At<unsigned short>(0x14, radar.targetSpeed)
        .At<unsigned short>(0x1C, radar.fastestSpeed)
        .At<unsigned short>(0x24, radar.lockedSpeed)
        .At<unsigned int>(0x28, radar.tick);
    return layout;
}

Layout TempLayout(const TempStatus& temp, unsigned char fill) {
    Layout layout(TempStatus::kWireSize, fill);
    layout.At<short>(0x04, temp.temperatures[0])
        .At<short>(0x0C, temp.temperatures[1])
        .At<short>(0x14, temp.temperatures[2])
        .At<short>(0x1C, temp.temperatures[3])
        .At<unsigned int>(0x48, temp.tick);
    return layout;
}

Layout CrashLayout(const CrashItem& crash, unsigned char fill) {
    Layout layout(CrashItem::kWireSize, fill);
    layout.At<unsigned char>(0x00, crash.crash ? 1 : 0).At<unsigned int>(0x04, crash.tick);
    return layout;
}

// The layout with garbage in its reserved bytes decodes to the item whose encoding is the clean
// layout: fields are read from their offsets and the reserved bytes are skipped.
template <typename T>
void ExpectLayout(const T& item, Layout (*layoutOf)(const T&, unsigned char)) {
    const Layout clean = layoutOf(item, 0x00);
    EXPECT_EQ(clean.bytes(), Encoded(item));
    Layout dirty = layoutOf(item, 0xA5);
    T decoded;
    EXPECT_EQ(dirty.data() + T::kWireSize, decoded.Decode(dirty.data()));
    EXPECT_EQ(clean.bytes(), Encoded(decoded));
}

}  // namespace

TEST(WireLayout, MemberItemsAreNativeOrder) {
    const bool big = BigEndianMachine();
    EXPECT_EQ(big ? (Bytes{0x12, 0x34}) : (Bytes{0x34, 0x12}), Encoded(UShortItem(0x1234)));
    EXPECT_EQ(big ? (Bytes{1, 2, 3, 4}) : (Bytes{4, 3, 2, 1}), Encoded(SystickItem(0x01020304u)));
    EXPECT_EQ((Bytes{1}), Encoded(BoolItem(true)));
    EXPECT_EQ((Bytes{0}), Encoded(BoolItem(false)));
    EXPECT_EQ((Bytes{'a', 'b', 0}), Encoded(StringItem("ab")));
    EXPECT_EQ((Bytes{0}), Encoded(StringItem()));

    unsigned char two = 2;
    BoolItem flag;
    flag.Decode(&two);
    EXPECT_TRUE(flag.Get());
}

TEST(WireLayout, HardwareItemsKeepFieldOffsetsAndSkipReservedBytes) {
    {
        SCOPED_TRACE("GpsStatusItem");
        ExpectLayout(SampleGps(), GpsLayout);
    }
    {
        SCOPED_TRACE("RadarItem");
        ExpectLayout(SampleRadar(), RadarLayout);
    }
    {
        SCOPED_TRACE("TempStatus");
        ExpectLayout(SampleTemp(), TempLayout);
    }
    {
        SCOPED_TRACE("CrashItem");
        ExpectLayout(SampleCrash(), CrashLayout);
    }
    // Signed fields keep their sign through the wire.
    Layout gps = GpsLayout(SampleGps(), 0);
    GpsStatusItem decoded;
    decoded.Decode(gps.data());
    EXPECT_EQ(-123456, decoded.altitude);
    EXPECT_EQ(-2, decoded.lonHemisphere);
    EXPECT_EQ(0xFEDCBA98u, decoded.tick);
    Layout temp = TempLayout(SampleTemp(), 0);
    TempStatus temps;
    temps.Decode(temp.data());
    EXPECT_EQ(-40, temps.temperatures[0]);
    EXPECT_EQ(-32768, temps.temperatures[2]);
}

TEST(WireLayout, CountedAndRepeatedLayouts) {
    const FpgaExternalEventItem fpga = SampleFpga();
    EXPECT_EQ(Layout(16)
                  .At<unsigned int>(0, fpga.changedMask)
                  .At<unsigned int>(4, fpga.inputLevels)
                  .At<unsigned int>(8, fpga.debounce)
                  .At<unsigned int>(12, fpga.tick)
                  .bytes(),
              Encoded(fpga));

    // Count, then 8 bytes per entry (position, present, active, two reserved), then the tick.
    const MicStatusResponse mics = SampleMics();
    EXPECT_EQ(Layout(4 + 3 * 8 + 4)
                  .At<unsigned int>(0, 3)
                  .At<unsigned int>(4, 2)
                  .At<unsigned char>(8, 1)
                  .At<unsigned char>(9, 1)
                  .At<unsigned int>(12, 0)
                  .At<unsigned char>(16, 1)
                  .At<unsigned int>(20, 7)
                  .At<unsigned char>(25, 1)
                  .At<unsigned int>(28, mics.tick)
                  .bytes(),
              Encoded(mics));
    EXPECT_EQ(Layout(8).bytes(), Encoded(MicStatusResponse()));

    const VideoMgrCameraItem cameras = SampleCameras();
    Layout cameraLayout(VideoMgrCameraItem::kWireSize);
    for (unsigned int i = 0; i < VideoMgrCameraItem::kEntries; ++i) {
        cameraLayout.At<unsigned int>(4 * i, cameras.cameraState[i]);
    }
    cameraLayout.At<unsigned int>(36, cameras.tick);
    EXPECT_EQ(cameraLayout.bytes(), Encoded(cameras));

    const VideoMgrStreamQualityItem quality = SampleQuality();
    Layout qualityLayout(VideoMgrStreamQualityItem::kWireSize);
    for (unsigned int i = 0; i < VideoMgrStreamQualityItem::kStreams; ++i) {
        const VideoMgrStreamQualityItem::Stream& s = quality.streams[i];
        qualityLayout.At<unsigned int>(12 * i, s.quality)
            .At<unsigned int>(12 * i + 4, s.bitRateKbps)
            .At<unsigned short>(12 * i + 8, s.frameRate)
            .At<unsigned short>(12 * i + 10, s.resolution);
    }
    qualityLayout.At<unsigned int>(48, quality.tick);
    EXPECT_EQ(qualityLayout.bytes(), Encoded(quality));
}

TEST(WireLayout, RecordsAreTheirMembersBackToBack) {
    // enabled, high quality, camera, address text with its NUL, port.
    EXPECT_EQ(Layout(1 + 1 + 2 + 13 + 2)
                  .At<unsigned char>(0, 1)
                  .At<unsigned char>(1, 0)
                  .At<unsigned short>(2, 0x0102)
                  .Text(4, "192.168.1.20")
                  .At<unsigned short>(17, 554)
                  .bytes(),
              Encoded(SampleStream()));
    EXPECT_EQ(Layout(7).bytes(), Encoded(ExternalMgrApi::StreamingLvsStateItem()));

    EXPECT_EQ(Layout(8 + 8 + 19)
                  .Text(0, "Unit 12")
                  .Text(8, "AB-1234")
                  .Text(16, "Interceptor, white")
                  .bytes(),
              Encoded(SampleVehicle()));
    EXPECT_EQ(Layout(9)
                  .At<unsigned short>(0, 30)
                  .At<unsigned short>(2, 0xFFFF)
                  .At<unsigned short>(4, 0x0102)
                  .At<unsigned short>(6, 25)
                  .At<unsigned char>(8, 1)
                  .bytes(),
              Encoded(SampleRecordingSettings()));
}
