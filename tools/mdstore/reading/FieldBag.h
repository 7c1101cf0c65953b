// The numeric fields of one record by name ("tag", "item.latDegrees"), for the tools that add
// records up rather than print them; texts and arrays are left out.
#pragma once

#include <cstdint>
#include <string>

#include "RecordSchema.h"

namespace summary {

class FieldBag : public mdj::FieldVisitor {
public:
    void Clear();
    bool Get(const char* name, long long& value) const;
    long long Value(const char* name) const;  // 0 when absent

    void BeginObject(const char* name) override;
    void EndObject() override;
    void BeginArray(const char*) override { ++depth_; }
    void EndArray() override { --depth_; }
    void Unsigned(const char* name, std::uint32_t value) override { Put(name, value); }
    void Signed(const char* name, std::int32_t value) override { Put(name, value); }
    void Boolean(const char* name, bool value) override { Put(name, value ? 1 : 0); }
    void Text(const char*, const char*, std::size_t) override {}
    void Mac(const char*, const unsigned char*) override {}

private:
    void Put(const char* name, long long value);

    static const unsigned kMaxFields = 32;
    std::string names_[kMaxFields];
    long long values_[kMaxFields] = {};
    unsigned count_ = 0;
    unsigned depth_ = 0;
    std::string object_;
};

}  // namespace summary
