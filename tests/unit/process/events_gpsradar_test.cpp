// GPS and radar readings: the store's records and the shared record other processes read.
#include <gtest/gtest.h>

#include <cstring>

#include "HostInspect.h"
#include "events_support.h"

namespace {
const unsigned int kGps = 40001;
const unsigned int kRadar = 40002;

GpsStatusItem Gps(unsigned int fix, unsigned short speed, unsigned int tick) {
    GpsStatusItem gps;
    gps.latDegrees = 51;
    gps.latMinutes = 30;
    gps.latMinuteFraction = 123456;
    gps.latHemisphere = 1;
    gps.lonDegrees = 359;
    gps.lonMinutes = 7;
    gps.lonMinuteFraction = 654321;
    gps.lonHemisphere = 1;
    gps.altitude = -12;
    gps.speed = speed;
    gps.heading = 271;
    gps.magneticVariation = 3;
    gps.satellitesInView = 11;
    gps.fixStatus = fix;
    gps.fixMode = 3;
    gps.hdop = 9;
    gps.satellitesUsed = 8;
    gps.geoidSeparation = -47;
    gps.utcTime = 0x12345678u;
    gps.dataValid = 0xA5;
    gps.tick = tick;
    return gps;
}

RadarItem Radar(unsigned short status, unsigned int tick) {
    RadarItem radar;
    radar.status = status;
    radar.patrolSpeed = 55;
    radar.targetSpeed = 61;
    radar.fastestSpeed = 72;
    radar.lockedSpeed = 68;
    radar.tick = tick;
    return radar;
}

struct Block {
    unsigned char bytes[MetadataSharedMem::kBlockSize];
    template <typename T>
    T At(unsigned int offset) const {
        T value;
        std::memcpy(&value, bytes + offset, sizeof value);
        return value;
    }
};

Block ReadBlock() {
    Block block{};
    EXPECT_TRUE(hostinspect::ReadSharedBlock(block.bytes));
    return block;
}
}  // namespace

TEST(EventsGpsRadar, StoreRecordsWithAndWithoutFix) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::GpsStatusEventHandler, kGps);
    events::Bind(h, MetadataMgr::RadarEventHandler, kRadar);

    ASSERT_TRUE(h.DeliverItem(kGps, Gps(1, 19, 100)));  // 1.9 -> 1
    ASSERT_TRUE(h.DeliverItem(kGps, Gps(7, 500, 110)));
    ASSERT_TRUE(h.DeliverItem(kGps, Gps(0, 500, 120)));
    h.manager->ReportGpsStatus(Gps(6, 999, 130), false);
    ASSERT_TRUE(h.DeliverItem(kRadar, Radar(0x0001, 200)));
    ASSERT_TRUE(h.DeliverItem(kRadar, Radar(0x0081, 210)));

    const std::vector<StoreRecord> all = h.Records();
    std::vector<StoreRecord> records;
    for (const StoreRecord& r : all) {
        const std::string op = r.Op();
        if (op == "ReportGpsState" || op == "ReportGps" || op == "ReportSpeed" ||
            op == "ReportValidSpeed" || op == "ReportRadarState" || op == "ReportRadar") {
            records.push_back(r);
        }
    }
    const std::vector<std::string> ops = {
        "ReportGpsState",   "ReportGps",        "ReportSpeed",      "ReportGpsState",
        "ReportValidSpeed", "ReportGpsState",   "ReportValidSpeed", "ReportGpsState",
        "ReportGps",        "ReportSpeed",      "ReportRadarState", "ReportRadar",
        "ReportSpeed",      "ReportRadarState", "ReportValidSpeed",
    };
    ASSERT_EQ(ops, events::Ops(records));

    EXPECT_EQ("true", records[0].Get("valid"));
    EXPECT_EQ("true", records[0].Get("flag"));
    EXPECT_EQ(100, records[1].Int("tick"));
    EXPECT_EQ(51, records[1].Int("item.latDegrees"));
    EXPECT_EQ(1, records[2].Int("source"));
    EXPECT_EQ(1, records[2].Int("speed"));
    EXPECT_EQ(100, records[2].Int("tick"));
    EXPECT_EQ("false", records[3].Get("valid"));
    EXPECT_EQ(1, records[4].Int("source"));
    EXPECT_EQ("false", records[4].Get("valid"));
    EXPECT_EQ("false", records[5].Get("valid"));
    // A fix given as the value read at subscription.
    EXPECT_EQ("false", records[7].Get("flag"));
    EXPECT_EQ("false", records[8].Get("flag"));
    EXPECT_EQ(99, records[9].Int("speed"));
    EXPECT_EQ("false", records[9].Get("flag"));

    EXPECT_EQ(1, records[10].Int("radar"));
    EXPECT_EQ("true", records[10].Get("valid"));
    EXPECT_EQ(61, records[11].Int("speedA"));
    EXPECT_EQ(72, records[11].Int("speedB"));
    EXPECT_EQ(68, records[11].Int("speedC"));
    EXPECT_EQ(0, records[11].Int("direction"));
    EXPECT_EQ(200, records[11].Int("tick"));
    EXPECT_EQ(2, records[12].Int("source"));
    EXPECT_EQ(55, records[12].Int("speed"));
    EXPECT_EQ(200, records[12].Int("tick"));
    EXPECT_EQ("false", records[13].Get("valid"));
    EXPECT_EQ(2, records[14].Int("source"));
}

TEST(EventsGpsRadar, SharedRecordHoldsTheLatestReading) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::GpsStatusEventHandler, kGps);
    events::Bind(h, MetadataMgr::RadarEventHandler, kRadar);

    ASSERT_TRUE(h.DeliverItem(kGps, Gps(2, 19, 100)));
    Block b = ReadBlock();
    EXPECT_EQ(0xA5, b.At<unsigned char>(0x04));
    EXPECT_EQ('N', b.At<char>(0x08));
    EXPECT_EQ(51u, b.At<unsigned int>(0x0C));
    EXPECT_EQ(30, b.At<unsigned short>(0x10));
    EXPECT_EQ(123456u, b.At<unsigned int>(0x14));
    EXPECT_EQ('E', b.At<char>(0x18));
    EXPECT_EQ(359u, b.At<unsigned int>(0x1C));
    EXPECT_EQ(7, b.At<unsigned short>(0x20));
    EXPECT_EQ(654321u, b.At<unsigned int>(0x24));
    EXPECT_EQ(271, b.At<unsigned short>(0x28));
    EXPECT_EQ(11, b.At<unsigned short>(0x2A));
    EXPECT_EQ(2u, b.At<unsigned int>(0x2C));
    EXPECT_EQ(3, b.At<int>(0x30));
    EXPECT_EQ(9, b.At<int>(0x34));
    EXPECT_EQ(8, b.At<int>(0x38));
    EXPECT_EQ(-47, b.At<int>(0x3C));
    EXPECT_EQ(19, b.At<unsigned short>(0x40));  // raw, not divided
    EXPECT_EQ(3, b.At<unsigned short>(0x42));
    EXPECT_EQ(0x12345678u, b.At<unsigned int>(0x44));
    EXPECT_EQ(-12, b.At<int>(0x48));

    // Without a fix the record is refreshed all the same; hemispheres other than 1 are S and W.
    GpsStatusItem south = Gps(0, 40, 101);
    south.latHemisphere = 2;
    south.lonHemisphere = 0;
    ASSERT_TRUE(h.DeliverItem(kGps, south));
    b = ReadBlock();
    EXPECT_EQ('S', b.At<char>(0x08));
    EXPECT_EQ('W', b.At<char>(0x18));
    EXPECT_EQ(0u, b.At<unsigned int>(0x2C));
    EXPECT_EQ(40, b.At<unsigned short>(0x40));
    south.latHemisphere = 0;
    h.manager->ReportGpsStatus(south, true);
    EXPECT_EQ('S', ReadBlock().At<char>(0x08));

    // An invalid radar reading is written as received; GPS fields stay.
    ASSERT_TRUE(h.DeliverItem(kRadar, Radar(0x0081, 200)));
    b = ReadBlock();
    EXPECT_EQ(0x0081, b.At<unsigned short>(0x4C));
    EXPECT_EQ(55, b.At<unsigned short>(0x4E));
    EXPECT_EQ(61, b.At<unsigned short>(0x50));
    EXPECT_EQ(72, b.At<unsigned short>(0x52));
    EXPECT_EQ(68, b.At<unsigned short>(0x54));
    EXPECT_EQ(40, b.At<unsigned short>(0x40));
    EXPECT_EQ(0x0100, b.At<unsigned short>(0x00));  // the running mark is left alone
}
