#include "reading/FieldBag.h"

namespace summary {

void FieldBag::Clear() {
    count_ = 0;
    depth_ = 0;
    object_.clear();
}

bool FieldBag::Get(const char* name, long long& value) const {
    for (unsigned i = 0; i < count_; ++i) {
        if (names_[i] == name) {
            value = values_[i];
            return true;
        }
    }
    return false;
}

long long FieldBag::Value(const char* name) const {
    long long value = 0;
    Get(name, value);
    return value;
}

void FieldBag::BeginObject(const char* name) {
    if (depth_++ == 0 && name != nullptr) {
        object_ = name;
    }
}

void FieldBag::EndObject() {
    if (--depth_ == 0) {
        object_.clear();
    }
}

void FieldBag::Put(const char* name, long long value) {
    // Only top-level fields and the members of a top-level item.
    if (name == nullptr || count_ == kMaxFields || depth_ > 1) {
        return;
    }
    names_[count_] = depth_ == 1 ? object_ + "." + name : std::string(name);
    values_[count_] = value;
    ++count_;
}

}  // namespace summary
