// GPS and radar readings: the store's records and the shared record other processes read.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Gps;
using events::Radar;

TEST(EventsGpsRadar, StoreRecordsAndTheSharedRecordWithAndWithoutFix) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::GpsStatusEventHandler, 40001);
    events::Bind(h, MetadataMgr::RadarEventHandler, 40002);

    ASSERT_TRUE(h.DeliverItem(40001, Gps(1, 19, 100)));  // 1.9 -> 1 in the store
    ExpectFields({{0x04, 1, 0xA5},   {0x08, 1, 'N'},        {0x0C, 4, 51},  {0x10, 2, 30},
                  {0x14, 4, 123456}, {0x18, 1, 'E'},        {0x1C, 4, 359}, {0x20, 2, 7},
                  {0x24, 4, 654321}, {0x28, 2, 271},        {0x2A, 2, 11},  {0x2C, 4, 1},
                  {0x30, 4, 3},      {0x34, 4, 9},          {0x38, 4, 8},   {0x3C, 4, -47},
                  {0x40, 2, 19},  // raw, not divided
                  {0x42, 2, 3},      {0x44, 4, 0x12345678}, {0x48, 4, -12}});
    ASSERT_TRUE(h.DeliverItem(40001, Gps(7, 500, 110)));
    // Without a fix the record is refreshed all the same; hemispheres other than 1 are S and W.
    GpsStatusItem south = Gps(0, 40, 120);
    south.latHemisphere = 2;
    south.lonHemisphere = 0;
    ASSERT_TRUE(h.DeliverItem(40001, south));
    ExpectFields({{0x08, 1, 'S'}, {0x18, 1, 'W'}, {0x2C, 4, 0}, {0x40, 2, 40}});
    GpsStatusItem initial = Gps(6, 999, 130);
    initial.latHemisphere = 0;
    h.manager->ReportGpsStatus(initial, false);
    ExpectFields({{0x08, 1, 'S'}, {0x18, 1, 'E'}, {0x40, 2, 999}});

    ASSERT_TRUE(h.DeliverItem(40002, Radar(0x0001, 200)));
    // An invalid radar reading is written as received; GPS fields and the running mark stay.
    ASSERT_TRUE(h.DeliverItem(40002, Radar(0x0081, 210)));
    ExpectFields({{0x4C, 2, 0x0081},
                  {0x4E, 2, 55},
                  {0x50, 2, 61},
                  {0x52, 2, 72},
                  {0x54, 2, 68},
                  {0x40, 2, 999},
                  {0x00, 2, 0x0100}});

    const std::vector<std::string> expected = {
        "GpsState true true",   "Gps 51 true 100",         "Speed 1 1 true 100",
        "GpsState false true",  "ValidSpeed 1 false",      "GpsState false true",
        "ValidSpeed 1 false",   "GpsState true false",     "Gps 51 false 130",
        "Speed 1 99 false 130", "RadarState 1 true true",  "Radar 1 61 72 68 0 true 200",
        "Speed 2 55 true 200",  "RadarState 1 false true", "ValidSpeed 2 false",
    };
    EXPECT_EQ(expected, Brief(h.Records(),
                              {"ReportGpsState", "ReportGps", "ReportSpeed", "ReportValidSpeed",
                               "ReportRadarState", "ReportRadar"},
                              {"source", "speed", "radar", "valid", "item.latDegrees", "speedA",
                               "speedB", "speedC", "direction", "flag", "tick"}));
}
