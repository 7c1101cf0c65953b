// Copies stored metadata into a new file.
#pragma once

#include <string>

class Watchdog;

class MetadataReader {
public:
    MetadataReader();
    // Copies the records of the store at `source` (its base path) whose tick lies in
    // [first, second] into a new file at `destination`, beginning with the full state as of
    // `first`. The file is made only inside the export directory: a relative `destination`
    // names a file in it, an absolute one must lie in it. False, one log line saying why, and
    // nothing written when the name leaves that directory, passes a symbolic link, names the
    // store's directory or a segment, or exists, or when the store cannot be read. Pets
    // `watchdog` (may be null) while it works.
    bool ReadToNewFile(const std::string& source, const std::string& destination,
                       unsigned int first, unsigned int second, Watchdog* watchdog);
};
