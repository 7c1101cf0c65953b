#include "reading/RecordFields.h"

#include <cstring>

namespace meaning {

bool RecordFields::Read(const mdj::RecordView& record) {
    numbers_.clear();
    texts_.clear();
    path_.clear();
    skip_ = 0;
    return record.op != mdj::kOpWriteFullState &&
           mdj::WalkRecord(record.op, record.body, record.size, this);
}

bool RecordFields::Has(const char* name) const {
    for (const auto& entry : numbers_) {
        if (entry.first == name) {
            return true;
        }
    }
    return false;
}

long long RecordFields::Number(const char* name) const {
    for (const auto& entry : numbers_) {
        if (entry.first == name) {
            return entry.second;
        }
    }
    return 0;
}

std::string RecordFields::Text(const char* name) const {
    for (const auto& entry : texts_) {
        if (entry.first == name) {
            return entry.second;
        }
    }
    return std::string();
}

std::string RecordFields::Key(const char* name) const {
    std::string key = path_.empty() ? std::string() : path_.back() + ".";
    return key + (name != nullptr ? name : "?");
}

void RecordFields::BeginObject(const char* name) {
    path_.push_back(Key(name));
}

void RecordFields::EndObject() {
    path_.pop_back();
}

void RecordFields::BeginArray(const char* name) {
    path_.push_back(Key(name));
    ++skip_;
}

void RecordFields::EndArray() {
    path_.pop_back();
    --skip_;
}

void RecordFields::Unsigned(const char* name, std::uint32_t value) {
    if (skip_ == 0) {
        numbers_.emplace_back(Key(name), value);
    }
}

void RecordFields::Signed(const char* name, std::int32_t value) {
    if (skip_ == 0) {
        numbers_.emplace_back(Key(name), value);
    }
}

void RecordFields::Boolean(const char* name, bool value) {
    if (skip_ == 0) {
        numbers_.emplace_back(Key(name), value ? 1 : 0);
    }
}

void RecordFields::Text(const char* name, const char* text, std::size_t size) {
    if (skip_ == 0) {
        texts_.emplace_back(Key(name), std::string(text, size));
    }
}

void RecordFields::Mac(const char*, const unsigned char*) {}

}  // namespace meaning
