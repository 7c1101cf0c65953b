// manifest.json of an evidence package: where the range came from, what was asked and what
// is held, the unit, the tool, when it was made and each file's name, size and SHA-256. The
// parts check-package compares with the copy are made by the same functions on both sides.
#pragma once

#include <string>
#include <vector>

#include "evidence/EvidenceContents.h"
#include "reading/Options.h"

namespace evidence {

struct FileEntry {
    std::string name;
    unsigned long long size = 0;
    std::string sha256;  // lowercase hex
};

struct Manifest {
    Source source;
    const Options* asked = nullptr;  // the range and kinds the package was asked for
    Contents contents;               // of the copy
    long long madeUtcMs = 0;
    std::vector<FileEntry> files;  // every file but the manifest and the checksums
};

std::string ManifestJson(const Manifest& manifest);

// "held": the ticks and UTC of the first and last records of the copy.
std::string HeldJson(const Contents& contents);
// "records": the total and the number of each kind.
std::string RecordsJson(const Contents& contents);
// One entry of "files".
std::string FileJson(const FileEntry& file);

}  // namespace evidence
