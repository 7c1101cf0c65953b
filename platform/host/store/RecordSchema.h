// What each record of the metadata files holds: one record per DataStore operation, its
// arguments in call order, each field big-endian. The tables here drive decoding, printing,
// the record's time and the state key, so a field is described once.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdj {

// Record types; the number is the frame's type byte and never changes meaning.
enum Op : std::uint8_t {
    kOpReportShutdownDataAtStartup = 1,
    kOpReportShutdownData = 2,
    kOpWriteFullState = 3,
    kOpReportMac = 4,
    kOpReportSystemSerialNum = 5,
    kOpReportVersion = 6,
    kOpReportConfiguration = 7,
    kOpReportStringData = 8,
    kOpReportStateData = 9,
    kOpReportBookmark = 10,
    kOpReportGpsState = 11,
    kOpReportGps = 12,
    kOpReportValidSpeed = 13,
    kOpReportSpeed = 14,
    kOpReportRadarState = 15,
    kOpReportRadar = 16,
    kOpReportMicPresent = 17,
    kOpReportMicState = 18,
    kOpReportTemp = 19,
    kOpReportVideoStreamState = 20,
    kOpReportCameraState = 21,
    kOpReportStreamQualityItem = 22,
    kOpReportLvsState = 23,
    kOpReportVehicleInfo = 24,
    kOpReportSystemInfo = 25,
    kOpReportDepartmentInfo = 26,
    kOpReportOfficerInfo = 27,
    kOpReportVideoRecordingSettings = 28,
    // Written by the store itself, not a DataStore operation: the real-time clock (UTC) and
    // the system tick at one moment, so readers can put a date on every tick.
    kOpTimeAnchor = 29,
    kOpCount = 30  // one past the last
};

enum class FieldType : std::uint8_t {
    U8,
    Bool,
    U16,
    S16,
    U32,
    S32,
    Text,    // 16-bit length, then the bytes
    Mac,     // 6 bytes
    Object,  // the member fields in order
    Array,   // arrayCount times the member fields, each group an object
};

struct Field {
    const char* name;
    FieldType type;
    const Field* members = nullptr;  // Object and Array
    unsigned memberCount = 0;
    unsigned arrayCount = 0;  // Array
};

// Why a snapshot was written (field "cause" of WriteFullState).
enum SnapshotCause : std::uint8_t {
    kCauseCall = 0,     // DataStore::WriteFullState
    kCauseSegment = 1,  // a new segment begins
    kCauseOpen = 2,     // the store was opened (a new run)
    kCauseCopy = 3,     // first record of a copied range: the state as of its start
    kCauseIndex = 4,    // a block of the segment's index begins (see SegmentIndex.h)
};
const char* SnapshotCauseName(std::uint8_t cause);

// Why a time anchor was written (field "reason" of TimeAnchor).
enum AnchorReason : std::uint8_t {
    kAnchorSegment = 0,    // a new segment begins
    kAnchorPeriodic = 1,   // the last one is old enough
    kAnchorClockStep = 2,  // the clock or the tick jumped against the other
};

struct OpLayout {
    const char* name;  // the DataStore operation's name
    const Field* fields;
    unsigned fieldCount;
    // The current-value slot the record fills: -2 none (not a state), -1 one slot for the
    // operation, else the index of the top-level field whose value keys the slot.
    int keyField;
};

// Null for an unknown type and for WriteFullState, whose body is a snapshot (see StoreState).
const OpLayout* FindOp(std::uint8_t op);
const char* OpName(std::uint8_t op);  // "Unknown" when not a record type
// The type whose name is `name`; 0 when none.
std::uint8_t OpByName(const char* name);

// Receives the fields of a record as they are decoded. Names are null inside arrays.
class FieldVisitor {
public:
    virtual ~FieldVisitor() = default;
    virtual void BeginObject(const char* name) = 0;
    virtual void EndObject() = 0;
    virtual void BeginArray(const char* name) = 0;
    virtual void EndArray() = 0;
    virtual void Unsigned(const char* name, std::uint32_t value) = 0;
    virtual void Signed(const char* name, std::int32_t value) = 0;
    virtual void Boolean(const char* name, bool value) = 0;
    virtual void Text(const char* name, const char* text, std::size_t size) = 0;
    // A MAC address: printed as six numbers.
    virtual void Mac(const char* name, const unsigned char* bytes) = 0;
};

// Decodes the body of a record of type `op` into `visitor` (which may be null: then it only
// checks). False when the body does not match its type exactly (short, long, bad text length,
// bool other than 0/1) or the type is unknown; the visitor may then have seen a part.
bool WalkRecord(std::uint8_t op, const unsigned char* body, std::size_t size,
                FieldVisitor* visitor);

// The value of the top-level unsigned field `index` of a valid record body.
bool TopField(const OpLayout& layout, const unsigned char* body, std::size_t size, unsigned index,
              std::uint32_t& value);

// The time of a record used for ranges: its own tick argument when it has one that is a real
// tick (not 0, not 0xFFFFFFFF), else the store's tick written in its frame; 0 when the store
// had no tick yet.
std::uint32_t RecordTime(std::uint8_t op, std::uint32_t stamp, const unsigned char* body,
                         std::size_t size);

}  // namespace mdj
