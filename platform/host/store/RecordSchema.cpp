#include "RecordSchema.h"

#include <cstring>

#include "BigEndian.h"

namespace mdj {

namespace {

template <unsigned N>
constexpr Field ObjectField(const char* name, const Field (&members)[N]) {
    return Field{name, FieldType::Object, members, N, 0};
}

template <unsigned N>
constexpr Field ArrayField(const char* name, const Field (&members)[N], unsigned count) {
    return Field{name, FieldType::Array, members, N, count};
}

constexpr Field F(const char* name, FieldType type) {
    return Field{name, type, nullptr, 0, 0};
}

using T = FieldType;

// Items, their fields in the item's declaration order.
const Field kGpsItem[] = {
    F("latDegrees", T::U16),
    F("latMinutes", T::U16),
    F("latMinuteFraction", T::U32),
    F("latHemisphere", T::S32),
    F("lonDegrees", T::U16),
    F("lonMinutes", T::U16),
    F("lonMinuteFraction", T::U32),
    F("lonHemisphere", T::S32),
    F("altitude", T::S32),
    F("speed", T::U16),
    F("heading", T::U16),
    F("magneticVariation", T::U16),
    F("satellitesInView", T::U16),
    F("fixStatus", T::U32),
    F("fixMode", T::S32),
    F("hdop", T::S32),
    F("satellitesUsed", T::S32),
    F("geoidSeparation", T::S32),
    F("utcTime", T::U32),
    F("dataValid", T::U8),
    F("tick", T::U32),
};
const Field kQualityStream[] = {F("quality", T::U32), F("bitRateKbps", T::U32),
                                F("frameRate", T::U16), F("resolution", T::U16)};
const Field kQualityItem[] = {ArrayField("streams", kQualityStream, 4), F("tick", T::U32)};
const Field kVehicleItem[] = {F("vehicleId", T::Text), F("licensePlate", T::Text),
                              F("description", T::Text)};
const Field kOfficerItem[] = {F("officerId", T::Text), F("name", T::Text)};
const Field kDepartmentItem[] = {F("departmentId", T::Text), F("name", T::Text)};
const Field kSystemItem[] = {F("systemName", T::Text), F("unitNumber", T::Text)};
const Field kRecordingItem[] = {F("preEventSeconds", T::U16), F("postEventSeconds", T::U16),
                                F("resolution", T::U16), F("frameRate", T::U16),
                                F("recordAudio", T::Bool)};

// Operations: their arguments in call order; "flag" is the report flag of the call.
const Field kStartup[] = {F("previousRunFound", T::Bool), F("clean", T::Bool),
                          F("lastTick", T::U32)};
const Field kMac[] = {F("mac", T::Mac), F("flag", T::Bool)};
const Field kSerial[] = {F("serial", T::Text)};
const Field kVersion[] = {F("component", T::U32), F("version", T::Text)};
const Field kConfiguration[] = {F("flag", T::Bool)};
const Field kStringData[] = {F("tag", T::U32), F("text", T::Text)};
const Field kStateData[] = {F("tag", T::U32), F("flag", T::Bool), F("tick", T::U32)};
const Field kBookmark[] = {F("tick", T::U32)};
const Field kGpsState[] = {F("valid", T::Bool), F("flag", T::Bool)};
const Field kGps[] = {ObjectField("item", kGpsItem), F("tick", T::U32), F("flag", T::Bool)};
const Field kValidSpeed[] = {F("source", T::U8), F("valid", T::Bool)};
const Field kSpeed[] = {F("source", T::U8), F("speed", T::U16), F("flag", T::Bool),
                        F("tick", T::U32), F("tag", T::U32)};
const Field kRadarState[] = {F("radar", T::U8), F("valid", T::Bool), F("flag", T::Bool)};
const Field kRadar[] = {F("radar", T::U8),   F("speedA", T::U16),    F("speedB", T::U16),
                        F("speedC", T::U16), F("direction", T::U32), F("flag", T::Bool),
                        F("tick", T::U32),   F("tag", T::U32)};
const Field kMicPresent[] = {F("mic", T::U32), F("present", T::Bool), F("flag", T::Bool),
                             F("tick", T::U32)};
const Field kMicState[] = {F("mic", T::U32), F("active", T::Bool), F("flag", T::Bool),
                           F("tick", T::U32)};
const Field kTemp[] = {F("sensor", T::U32), F("value", T::S16), F("flag", T::Bool),
                       F("tick", T::U32)};
const Field kStreamState[] = {F("stream", T::U32), F("state", T::U32), F("flag", T::Bool),
                              F("tick", T::U32)};
const Field kCameraState[] = {F("port", T::U32), F("state", T::U32), F("flag", T::Bool),
                              F("tick", T::U32)};
const Field kQuality[] = {ObjectField("item", kQualityItem), F("flag", T::Bool)};
const Field kLvs[] = {F("stream", T::U32),   F("camera", T::U8),   F("highQuality", T::Bool),
                      F("enabled", T::Bool), F("address", T::U32), F("port", T::U16),
                      F("flag", T::Bool),    F("tick", T::U32)};
const Field kVehicle[] = {ObjectField("item", kVehicleItem), F("flag", T::Bool)};
const Field kSystem[] = {ObjectField("item", kSystemItem), F("flag", T::Bool)};
const Field kDepartment[] = {ObjectField("item", kDepartmentItem), F("flag", T::Bool)};
const Field kOfficer[] = {ObjectField("item", kOfficerItem), F("flag", T::Bool)};
const Field kRecording[] = {ObjectField("item", kRecordingItem), F("flag", T::Bool)};
// Seconds since 1970-01-01 UTC, the milliseconds within that second, the system tick at that
// instant, and an AnchorReason.
const Field kTimeAnchor[] = {F("utcSeconds", T::U32), F("utcMilliseconds", T::U16),
                             F("tick", T::U32), F("reason", T::U8)};

template <unsigned N>
constexpr OpLayout Layout(const char* name, const Field (&fields)[N], int keyField) {
    return OpLayout{name, fields, N, keyField};
}
constexpr int kNoState = -2;
constexpr int kOneSlot = -1;

const OpLayout kOps[kOpCount] = {
    {"Unknown", nullptr, 0, kNoState},
    Layout("ReportShutdownDataAtStartup", kStartup, kOneSlot),
    {"ReportShutdownData", nullptr, 0, kNoState},
    {"WriteFullState", nullptr, 0, kNoState},
    Layout("ReportMac", kMac, kOneSlot),
    Layout("ReportSystemSerialNum", kSerial, kOneSlot),
    Layout("ReportVersion", kVersion, 0),
    Layout("ReportConfiguration", kConfiguration, kOneSlot),
    Layout("ReportStringData", kStringData, 0),
    Layout("ReportStateData", kStateData, 0),
    Layout("ReportBookmark", kBookmark, kOneSlot),
    Layout("ReportGpsState", kGpsState, kOneSlot),
    Layout("ReportGps", kGps, kOneSlot),
    Layout("ReportValidSpeed", kValidSpeed, 0),
    Layout("ReportSpeed", kSpeed, 0),
    Layout("ReportRadarState", kRadarState, 0),
    Layout("ReportRadar", kRadar, 0),
    Layout("ReportMicPresent", kMicPresent, 0),
    Layout("ReportMicState", kMicState, 0),
    Layout("ReportTemp", kTemp, 0),
    Layout("ReportVideoStreamState", kStreamState, 0),
    Layout("ReportCameraState", kCameraState, 0),
    Layout("ReportStreamQualityItem", kQuality, kOneSlot),
    Layout("ReportLvsState", kLvs, 0),
    Layout("ReportVehicleInfo", kVehicle, kOneSlot),
    Layout("ReportSystemInfo", kSystem, kOneSlot),
    Layout("ReportDepartmentInfo", kDepartment, kOneSlot),
    Layout("ReportOfficerInfo", kOfficer, kOneSlot),
    Layout("ReportVideoRecordingSettings", kRecording, kOneSlot),
    // One slot: every snapshot, and so every copy, carries the anchor in force.
    Layout("TimeAnchor", kTimeAnchor, kOneSlot),
};

const char* const kCauseNames[] = {"call", "segment", "open", "copy", "index"};

bool WalkFields(const Field* fields, unsigned count, BodyReader& in, FieldVisitor* out);

bool WalkField(const Field& field, const char* name, BodyReader& in, FieldVisitor* out) {
    std::uint8_t u8 = 0;
    std::uint16_t u16 = 0;
    std::uint32_t u32 = 0;
    const unsigned char* bytes = nullptr;
    switch (field.type) {
        case FieldType::U8:
            if (!in.U8(u8)) {
                return false;
            }
            if (out != nullptr) {
                out->Unsigned(name, u8);
            }
            return true;
        case FieldType::Bool:
            if (!in.U8(u8) || u8 > 1) {
                return false;
            }
            if (out != nullptr) {
                out->Boolean(name, u8 != 0);
            }
            return true;
        case FieldType::U16:
        case FieldType::S16:
            if (!in.U16(u16)) {
                return false;
            }
            if (out != nullptr) {
                if (field.type == FieldType::U16) {
                    out->Unsigned(name, u16);
                } else {
                    out->Signed(name, static_cast<std::int16_t>(u16));
                }
            }
            return true;
        case FieldType::U32:
        case FieldType::S32:
            if (!in.U32(u32)) {
                return false;
            }
            if (out != nullptr) {
                if (field.type == FieldType::U32) {
                    out->Unsigned(name, u32);
                } else {
                    out->Signed(name, static_cast<std::int32_t>(u32));
                }
            }
            return true;
        case FieldType::Text:
            if (!in.U16(u16) || u16 > BodyWriter::kMaxText || !in.Bytes(bytes, u16)) {
                return false;
            }
            if (out != nullptr) {
                char text[BodyWriter::kMaxText + 1];
                std::memcpy(text, bytes, u16);
                text[u16] = '\0';
                out->Text(name, text, u16);
            }
            return true;
        case FieldType::Mac:
            if (!in.Bytes(bytes, 6)) {
                return false;
            }
            if (out != nullptr) {
                out->Mac(name, bytes);
            }
            return true;
        case FieldType::Object:
            if (out != nullptr) {
                out->BeginObject(name);
            }
            if (!WalkFields(field.members, field.memberCount, in, out)) {
                return false;
            }
            if (out != nullptr) {
                out->EndObject();
            }
            return true;
        case FieldType::Array:
            if (out != nullptr) {
                out->BeginArray(name);
            }
            for (unsigned i = 0; i < field.arrayCount; ++i) {
                if (out != nullptr) {
                    out->BeginObject(nullptr);
                }
                if (!WalkFields(field.members, field.memberCount, in, out)) {
                    return false;
                }
                if (out != nullptr) {
                    out->EndObject();
                }
            }
            if (out != nullptr) {
                out->EndArray();
            }
            return true;
    }
    return false;
}

bool WalkFields(const Field* fields, unsigned count, BodyReader& in, FieldVisitor* out) {
    for (unsigned i = 0; i < count; ++i) {
        if (!WalkField(fields[i], fields[i].name, in, out)) {
            return false;
        }
    }
    return true;
}

// Snapshot body: force, cause, entry count, then per entry its type, body length and body.
bool WalkSnapshot(BodyReader& in, FieldVisitor* out) {
    std::uint8_t force = 0;
    std::uint8_t cause = 0;
    std::uint16_t count = 0;
    if (!in.U8(force) || force > 1 || !in.U8(cause) || cause > kCauseIndex || !in.U16(count)) {
        return false;
    }
    if (out != nullptr) {
        out->Boolean("force", force != 0);
        out->Text("cause", kCauseNames[cause], std::strlen(kCauseNames[cause]));
        out->BeginArray("state");
    }
    for (unsigned i = 0; i < count; ++i) {
        std::uint8_t op = 0;
        std::uint16_t length = 0;
        const unsigned char* body = nullptr;
        if (!in.U8(op) || !in.U16(length) || !in.Bytes(body, length)) {
            return false;
        }
        const OpLayout* layout = FindOp(op);
        if (layout == nullptr || layout->keyField == kNoState) {
            return false;
        }
        if (out != nullptr) {
            out->BeginObject(nullptr);
            out->Text("op", layout->name, std::strlen(layout->name));
        }
        BodyReader entry(body, length);
        if (!WalkFields(layout->fields, layout->fieldCount, entry, out) || !entry.AtEnd()) {
            return false;
        }
        if (out != nullptr) {
            out->EndObject();
        }
    }
    if (out != nullptr) {
        out->EndArray();
    }
    return in.AtEnd();
}

}  // namespace

const char* SnapshotCauseName(std::uint8_t cause) {
    return cause <= kCauseIndex ? kCauseNames[cause] : "unknown";
}

const OpLayout* FindOp(std::uint8_t op) {
    if (op == 0 || op >= kOpCount || op == kOpWriteFullState) {
        return nullptr;
    }
    return &kOps[op];
}

const char* OpName(std::uint8_t op) {
    return op < kOpCount ? kOps[op].name : kOps[0].name;
}

std::uint8_t OpByName(const char* name) {
    for (std::uint8_t op = 1; op < kOpCount; ++op) {
        if (std::strcmp(kOps[op].name, name) == 0) {
            return op;
        }
    }
    return 0;
}

bool WalkRecord(std::uint8_t op, const unsigned char* body, std::size_t size,
                FieldVisitor* visitor) {
    BodyReader in(body, size);
    if (op == kOpWriteFullState) {
        return WalkSnapshot(in, visitor);
    }
    if (op == kOpReportShutdownData) {
        return size == 0;
    }
    const OpLayout* layout = FindOp(op);
    if (layout == nullptr) {
        return false;
    }
    return WalkFields(layout->fields, layout->fieldCount, in, visitor) && in.AtEnd();
}

bool TopField(const OpLayout& layout, const unsigned char* body, std::size_t size, unsigned index,
              std::uint32_t& value) {
    if (index >= layout.fieldCount) {
        return false;
    }
    BodyReader in(body, size);
    if (!WalkFields(layout.fields, index, in, nullptr)) {
        return false;
    }
    std::uint8_t u8 = 0;
    std::uint16_t u16 = 0;
    switch (layout.fields[index].type) {
        case FieldType::U8:
        case FieldType::Bool:
            if (!in.U8(u8)) {
                return false;
            }
            value = u8;
            return true;
        case FieldType::U16:
        case FieldType::S16:
            if (!in.U16(u16)) {
                return false;
            }
            value = u16;
            return true;
        case FieldType::U32:
        case FieldType::S32:
            return in.U32(value);
        default:
            return false;
    }
}

std::uint32_t RecordTime(std::uint8_t op, std::uint32_t stamp, const unsigned char* body,
                         std::size_t size) {
    const OpLayout* layout = FindOp(op);
    for (unsigned i = 0; layout != nullptr && i < layout->fieldCount; ++i) {
        if (std::strcmp(layout->fields[i].name, "tick") != 0) {
            continue;
        }
        std::uint32_t tick = 0;
        if (TopField(*layout, body, size, i, tick) && tick != 0 && tick != 0xFFFFFFFFu) {
            return tick;
        }
        break;
    }
    // Written before the store had any tick: it precedes everything.
    return stamp == 0xFFFFFFFFu ? 0 : stamp;
}

}  // namespace mdj
