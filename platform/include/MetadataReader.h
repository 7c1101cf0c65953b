// Copies stored metadata into a new file.
#pragma once

#include <string>

class Watchdog;

class MetadataReader {
public:
    MetadataReader();
    // Copies the records of the store at `source` (its base path) whose tick lies in
    // [first, second] into a new file at `destination`, beginning with the full state as of
    // `first`. False, and nothing written, when the destination exists, is a symbolic link or
    // its directory is missing, or the store cannot be read. Pets `watchdog` (may be null)
    // while it works.
    bool ReadToNewFile(const std::string& source, const std::string& destination,
                       unsigned int first, unsigned int second, Watchdog* watchdog);
};
