// What every fuzz target shares: a private directory for the files and endpoints an input
// becomes, and a check that ends the run with a line when a property does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

// <tmp>/mmfuzz.XXXXXX, made at first use with domain/ and media/ inside, LINX_DOMAIN and
// MEDIA_ROOT pointing there; removed when the process exits.
const std::string& Root();
// <root>/<relative>
std::string Path(const std::string& relative);
// Replaces the file at `path` with `size` bytes of `data`.
void WriteFile(const std::string& path, const void* data, std::size_t size);
// Removes everything inside `dir`, which stays.
void Empty(const std::string& dir);
// The input cut at every `separator`.
std::vector<std::string> Split(const std::uint8_t* data, std::size_t size,
                               const std::string& separator);

// The store an input stands for: cut at every kFileSeparator, its parts become segment 1, the
// index of segment 1, segment 2, its index ... of the store <root>/store/metadata (whatever was
// there before is removed). Returns the store's base path.
extern const char* const kFileSeparator;
std::string WriteStore(const std::uint8_t* data, std::size_t size);

// Reads a store or a copied file as every reader does: each record that checks out is taken
// into the state and dated. Counts what it saw.
struct ReadCounts {
    unsigned long records = 0;
    unsigned long troubles = 0;
    // A bookmark at kMarkerTick was read, and its file had trouble.
    bool marker = false;
    bool markerFileTroubled = false;
};
const std::uint32_t kMarkerTick = 0x5EED5EED;
ReadCounts ReadAll(const std::string& path);

// Prints `what` and aborts, so the fuzzer keeps the input, when `holds` is false.
void Check(bool holds, const char* what);

}  // namespace fuzz
