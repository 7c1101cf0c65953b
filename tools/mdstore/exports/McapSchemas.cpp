#include "exports/McapSchemas.h"

#include <cstring>
#include <vector>

#include "RecordSchema.h"
#include "reading/RecordMeaning.h"
#include "reading/RecordPrinter.h"

namespace mcapexport {

namespace {

// The size of a body whose numbers are all 0 and whose texts are all empty.
std::size_t ZeroSize(const mdj::Field* fields, unsigned count) {
    std::size_t size = 0;
    for (unsigned i = 0; i < count; ++i) {
        switch (fields[i].type) {
            case mdj::FieldType::U8:
            case mdj::FieldType::Bool:
                size += 1;
                break;
            case mdj::FieldType::U16:
            case mdj::FieldType::S16:
            case mdj::FieldType::Text:  // its length
                size += 2;
                break;
            case mdj::FieldType::U32:
            case mdj::FieldType::S32:
                size += 4;
                break;
            case mdj::FieldType::Mac:
                size += 6;
                break;
            case mdj::FieldType::Object:
                size += ZeroSize(fields[i].members, fields[i].memberCount);
                break;
            case mdj::FieldType::Array:
                size += fields[i].arrayCount * ZeroSize(fields[i].members, fields[i].memberCount);
                break;
        }
    }
    return size;
}

// Walks a record as cat would print it and writes the JSON schema of what it meets; arrays
// are described by their first element.
class SchemaBuilder : public mdj::FieldVisitor {
public:
    explicit SchemaBuilder(std::string& out) : out_(out) { levels_.push_back(Level{false, 0}); }

    void Leaf(const char* name, const char* type) {
        if (skip_ == 0 && Key(name)) {
            out_ += std::string("{\"type\":\"") + type + "\"}";
        }
    }
    void BeginObject(const char* name) override {
        if (skip_ > 0 || !Key(name)) {
            ++skip_;
            return;
        }
        out_ += "{\"type\":\"object\",\"properties\":{";
        levels_.push_back(Level{false, 0});
    }
    void EndObject() override {
        if (skip_ > 0) {
            --skip_;
            return;
        }
        out_ += "}}";
        levels_.pop_back();
    }
    void BeginArray(const char* name) override {
        if (skip_ > 0 || !Key(name)) {
            ++skip_;
            return;
        }
        out_ += "{\"type\":\"array\",\"items\":";
        levels_.push_back(Level{true, 0});
    }
    void EndArray() override {
        if (skip_ > 0) {
            --skip_;
            return;
        }
        out_ += levels_.back().members == 0 ? "{}}" : "}";
        levels_.pop_back();
    }
    void Unsigned(const char* name, std::uint32_t) override { Leaf(name, "integer"); }
    void Signed(const char* name, std::int32_t) override { Leaf(name, "integer"); }
    void Boolean(const char* name, bool) override { Leaf(name, "boolean"); }
    void Text(const char* name, const char*, std::size_t) override { Leaf(name, "string"); }
    void Mac(const char* name, const unsigned char*) override {
        if (skip_ == 0 && Key(name)) {
            out_ += "{\"type\":\"array\",\"items\":{\"type\":\"integer\"}}";
        }
    }

private:
    struct Level {
        bool array;
        unsigned members;
    };
    // Writes the member's name; false for the second and later elements of an array.
    bool Key(const char* name) {
        Level& level = levels_.back();
        if (level.array) {
            return level.members++ == 0;
        }
        if (level.members++ > 0) {
            out_ += ',';
        }
        AppendJsonString(out_, name, std::strlen(name));
        out_ += ':';
        return true;
    }

    std::string& out_;
    std::vector<Level> levels_;
    unsigned skip_ = 0;
};

}  // namespace

std::string RecordSchemaJson(std::uint8_t op) {
    const mdj::OpLayout* layout = mdj::FindOp(op);
    const std::size_t size = op == mdj::kOpWriteFullState ? 4  // force, cause, no entries
                             : layout == nullptr          ? 0
                                                 : ZeroSize(layout->fields, layout->fieldCount);
    const std::vector<unsigned char> zeros(size + 1, 0);
    mdj::RecordView record;
    record.op = op;
    record.body = zeros.data();
    record.size = static_cast<std::uint32_t>(size);

    const std::string name = mdj::OpName(op);
    std::string out = "{\"title\":\"mdstore." + name + "\",\"description\":\"A " + name +
                      " record of the metadata store as mdstore cat --json prints it\","
                      "\"type\":\"object\",\"properties\":{";
    SchemaBuilder builder(out);
    builder.Leaf("op", "string");
    builder.Leaf("at", "integer");
    builder.Leaf("utc", "string");
    mdj::WalkRecord(op, record.body, record.size, &builder);
    std::vector<meaning::DecodedField> decoded;
    meaning::Decode(record, decoded);
    for (const meaning::DecodedField& field : decoded) {
        builder.Leaf(field.key.c_str(), field.number ? "number" : "string");
    }
    return out + "}}";
}

std::string LocationFixSchemaJson() {
    return R"({"title":"foxglove.LocationFix","description":"A GPS fix of the drive",)"
           R"("type":"object","properties":{)"
           R"("timestamp":{"type":"object","properties":{"sec":{"type":"integer","minimum":0},)"
           R"("nsec":{"type":"integer","minimum":0,"maximum":999999999}}},)"
           R"("frame_id":{"type":"string"},)"
           R"("latitude":{"type":"number","description":"degrees, south negative"},)"
           R"("longitude":{"type":"number","description":"degrees, west negative"},)"
           R"("altitude":{"type":"number"},)"
           R"("position_covariance":{"type":"array","items":{"type":"number"},)"
           R"("minItems":9,"maxItems":9},)"
           R"("position_covariance_type":{"type":"integer","description":)"
           R"("0 unknown, 1 approximated, 2 diagonal known, 3 known"}}})";
}

std::string LogSchemaJson() {
    return R"({"title":"foxglove.Log","description":"What a record of the drive means",)"
           R"("type":"object","properties":{)"
           R"("timestamp":{"type":"object","properties":{"sec":{"type":"integer","minimum":0},)"
           R"("nsec":{"type":"integer","minimum":0,"maximum":999999999}}},)"
           R"("level":{"type":"integer","description":)"
           R"("0 unknown, 1 debug, 2 info, 3 warning, 4 error, 5 fatal"},)"
           R"("message":{"type":"string"},"name":{"type":"string"},)"
           R"("file":{"type":"string"},"line":{"type":"integer","minimum":0}}})";
}

}  // namespace mcapexport
