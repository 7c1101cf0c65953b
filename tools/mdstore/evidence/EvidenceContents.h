// What an evidence package says of its store copy and of the store it was taken from: the
// records per kind, the range held, the unit, the source's identity and segments.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace evidence {

// The copy read through once.
struct Contents {
    unsigned long long records = 0;
    std::map<std::string, unsigned long long> perKind;  // by the names cat prints
    bool anyTick = false;
    std::uint32_t firstTick = 0xFFFFFFFFu;
    std::uint32_t lastTick = 0;
    bool anyUtc = false;
    long long firstUtc = 0;
    long long lastUtc = 0;
    std::string serial;               // the unit's serial number, "" when the copy does not hold it
    std::string unitNumber;           // the unit number of its system information, "" likewise
    unsigned long long problems = 0;  // damaged or torn places
};

// False when `path` cannot be read as a metadata file or store.
bool ReadContents(const std::string& path, Contents& contents);

// The store (or file) a package was made from.
struct Source {
    std::string path;
    std::uint64_t identity = 0;
    std::vector<std::uint32_t> segments;  // the numbers of its own segments, oldest first
};

// False when `path` is neither a store with segments nor a readable metadata file.
bool ReadSource(const std::string& path, Source& source);

}  // namespace evidence
