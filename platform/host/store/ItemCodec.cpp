#include "ItemCodec.h"

#include <cstdint>

namespace mdj {

namespace {
std::uint32_t Bits(int value) {
    return static_cast<std::uint32_t>(value);
}
}  // namespace

void PutItem(BodyWriter& out, const GpsStatusItem& item) {
    out.U16(item.latDegrees);
    out.U16(item.latMinutes);
    out.U32(item.latMinuteFraction);
    out.U32(Bits(item.latHemisphere));
    out.U16(item.lonDegrees);
    out.U16(item.lonMinutes);
    out.U32(item.lonMinuteFraction);
    out.U32(Bits(item.lonHemisphere));
    out.U32(Bits(item.altitude));
    out.U16(item.speed);
    out.U16(item.heading);
    out.U16(item.magneticVariation);
    out.U16(item.satellitesInView);
    out.U32(item.fixStatus);
    out.U32(Bits(item.fixMode));
    out.U32(Bits(item.hdop));
    out.U32(Bits(item.satellitesUsed));
    out.U32(Bits(item.geoidSeparation));
    out.U32(item.utcTime);
    out.U8(item.dataValid);
    out.U32(item.tick);
}

void PutItem(BodyWriter& out, const VideoMgrStreamQualityItem& item) {
    for (const VideoMgrStreamQualityItem::Stream& stream : item.streams) {
        out.U32(stream.quality);
        out.U32(stream.bitRateKbps);
        out.U16(stream.frameRate);
        out.U16(stream.resolution);
    }
    out.U32(item.tick);
}

void PutItem(BodyWriter& out, const VehicleInfo& item) {
    out.Text(item.vehicleId.Get());
    out.Text(item.licensePlate.Get());
    out.Text(item.description.Get());
}

void PutItem(BodyWriter& out, const Officer& item) {
    out.Text(item.officerId.Get());
    out.Text(item.name.Get());
}

void PutItem(BodyWriter& out, const DepartmentInfo& item) {
    out.Text(item.departmentId.Get());
    out.Text(item.name.Get());
}

void PutItem(BodyWriter& out, const SystemInfo& item) {
    out.Text(item.systemName.Get());
    out.Text(item.unitNumber.Get());
}

void PutItem(BodyWriter& out, const VideoRecordingSettings& item) {
    out.U16(item.preEventSeconds.Get());
    out.U16(item.postEventSeconds.Get());
    out.U16(item.resolution.Get());
    out.U16(item.frameRate.Get());
    out.Bool(item.recordAudio.Get());
}

}  // namespace mdj
