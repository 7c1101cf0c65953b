// Configuration records: their member items back to back, in declaration order.
#include "ConfigItems.h"

#include <cstddef>

namespace {

template <std::size_t N>
unsigned int SizeOf(const Item* const (&members)[N]) {
    unsigned int size = 0;
    for (const Item* member : members) {
        size += member->Size();
    }
    return size;
}

template <std::size_t N>
unsigned char* EncodeAll(const Item* const (&members)[N], unsigned char* p) {
    for (const Item* member : members) {
        p = member->Encode(p);
    }
    return p;
}

template <std::size_t N>
unsigned char* DecodeAll(Item* const (&members)[N], unsigned char* p) {
    for (Item* member : members) {
        p = member->Decode(p);
    }
    return p;
}

}  // namespace

unsigned int VehicleInfo::Size() const {
    return SizeOf({&vehicleId, &licensePlate, &description});
}
unsigned char* VehicleInfo::Encode(unsigned char* p) const {
    return EncodeAll({&vehicleId, &licensePlate, &description}, p);
}
unsigned char* VehicleInfo::Decode(unsigned char* p) {
    return DecodeAll({&vehicleId, &licensePlate, &description}, p);
}

unsigned int Officer::Size() const {
    return SizeOf({&officerId, &name});
}
unsigned char* Officer::Encode(unsigned char* p) const {
    return EncodeAll({&officerId, &name}, p);
}
unsigned char* Officer::Decode(unsigned char* p) {
    return DecodeAll({&officerId, &name}, p);
}

unsigned int DepartmentInfo::Size() const {
    return SizeOf({&departmentId, &name});
}
unsigned char* DepartmentInfo::Encode(unsigned char* p) const {
    return EncodeAll({&departmentId, &name}, p);
}
unsigned char* DepartmentInfo::Decode(unsigned char* p) {
    return DecodeAll({&departmentId, &name}, p);
}

unsigned int SystemInfo::Size() const {
    return SizeOf({&systemName, &unitNumber});
}
unsigned char* SystemInfo::Encode(unsigned char* p) const {
    return EncodeAll({&systemName, &unitNumber}, p);
}
unsigned char* SystemInfo::Decode(unsigned char* p) {
    return DecodeAll({&systemName, &unitNumber}, p);
}

unsigned int VideoRecordingSettings::Size() const {
    return SizeOf({&preEventSeconds, &postEventSeconds, &resolution, &frameRate, &recordAudio});
}
unsigned char* VideoRecordingSettings::Encode(unsigned char* p) const {
    return EncodeAll({&preEventSeconds, &postEventSeconds, &resolution, &frameRate, &recordAudio},
                     p);
}
unsigned char* VideoRecordingSettings::Decode(unsigned char* p) {
    return DecodeAll({&preEventSeconds, &postEventSeconds, &resolution, &frameRate, &recordAudio},
                     p);
}
