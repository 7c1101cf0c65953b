// The fields of one record by name ("tag", "item.latDegrees"), for code that wants a few
// values of a record rather than to print it all.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "JournalFormat.h"
#include "RecordSchema.h"

namespace meaning {

class RecordFields : public mdj::FieldVisitor {
public:
    // False when the record does not decode (a snapshot has no fields here).
    bool Read(const mdj::RecordView& record);
    bool Has(const char* name) const;
    long long Number(const char* name) const;  // 0 when absent
    std::string Text(const char* name) const;  // "" when absent
    // Every text field, in order ("item.name" -> "Jörgen Åström").
    const std::vector<std::pair<std::string, std::string>>& Texts() const { return texts_; }

    void BeginObject(const char* name) override;
    void EndObject() override;
    void BeginArray(const char* name) override;
    void EndArray() override;
    void Unsigned(const char* name, std::uint32_t value) override;
    void Signed(const char* name, std::int32_t value) override;
    void Boolean(const char* name, bool value) override;
    void Text(const char* name, const char* text, std::size_t size) override;
    void Mac(const char* name, const unsigned char* bytes) override;

private:
    std::string Key(const char* name) const;
    std::vector<std::pair<std::string, long long>> numbers_;
    std::vector<std::pair<std::string, std::string>> texts_;
    std::vector<std::string> path_;
    unsigned skip_ = 0;  // inside an array: not collected
};

}  // namespace meaning
