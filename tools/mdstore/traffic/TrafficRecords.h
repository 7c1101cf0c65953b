// The records of a drive as `mdstore traffic` reads them: each one's fields in call order, so
// that the notice or request that wrote it can be built back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "RecordSchema.h"
#include "reading/DriveRecords.h"

// The fields of a record in call order (the report flag and texts apart).
class Values : public mdj::FieldVisitor {
public:
    std::vector<long long> n;
    std::vector<std::string> texts;
    bool flag = false;

    void BeginObject(const char*) override {}
    void EndObject() override {}
    void BeginArray(const char*) override {}
    void EndArray() override {}
    void Unsigned(const char*, std::uint32_t value) override { n.push_back(value); }
    void Signed(const char*, std::int32_t value) override { n.push_back(value); }
    void Boolean(const char* name, bool value) override {
        if (name != nullptr && std::strcmp(name, "flag") == 0) {
            flag = value;
        } else {
            n.push_back(value);
        }
    }
    void Text(const char*, const char* text, std::size_t size) override {
        texts.emplace_back(text, size);
    }
    void Mac(const char*, const unsigned char*) override {}
};

struct Rec {
    std::uint8_t op = 0;
    Values v;
    std::uint32_t time = 0;  // its own tick when it has a real one, else the store's
    // Absent fields read 0 and empty: a server the store has no values of serves defaults.
    std::uint32_t U(std::size_t index) const {
        return index < v.n.size() ? static_cast<std::uint32_t>(v.n[index]) : 0;
    }
    const char* T(std::size_t index) const {
        return index < v.texts.size() ? v.texts[index].c_str() : "";
    }
};

// The records of a drive by their number in it (0 the first), read from the store as they are
// asked for and forgotten once the reader has passed them, so that what is held is the few
// records a message or a loop pass spans, not the drive.
class RecWindow {
public:
    // `reader` is open; it is read as far as asked.
    explicit RecWindow(DriveReader& reader) : reader_(reader) {}
    // True when the drive has a record k (reading on to it); k must not be forgotten.
    bool Has(std::size_t k) const;
    // Record k, decoded; Has(k) must be true.
    const Rec& operator[](std::size_t k) const { return held_[k - base_].rec; }
    // Record k as the store holds it.
    const DriveRecord& Raw(std::size_t k) const { return held_[k - base_].raw; }
    // Records before k are not asked for again.
    void Forget(std::size_t k);

private:
    struct Held {
        DriveRecord raw;
        Rec rec;
    };
    DriveReader& reader_;
    mutable std::deque<Held> held_;
    mutable bool ended_ = false;
    std::size_t base_ = 0;  // the number of held_.front()
};

// Record k of `recs` is `op` with the report flag `flag`.
inline bool RecIs(const RecWindow& recs, std::size_t k, std::uint8_t op, bool flag) {
    return recs.Has(k) && recs[k].op == op && recs[k].v.flag == flag;
}

// The six inputs in the order the handler and the simulator report them: the FPGA's bit and
// the tags of on and off.
struct Input {
    unsigned int bit;
    unsigned int on;
    unsigned int off;
};
const Input kInputs[] = {{0x8000, 52, 53}, {0x10000, 56, 57}, {0x20000, 54, 55},
                         {0x4000, 60, 61}, {0x80000, 62, 63}, {0x2000, 68, 69}};

inline int InputIndex(unsigned int tag) {
    for (int i = 0; i < 6; ++i) {
        if (tag == kInputs[i].on || tag == kInputs[i].off) {
            return i;
        }
    }
    return -1;
}
