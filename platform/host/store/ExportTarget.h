// Where a copy asked for by another process may be written: only inside the export directory
// (<media root>/export, or METADATA_EXPORT_DIR), never over anything that exists, never through
// a symbolic link, never into the store's own directory, never under a segment's name.
#pragma once

#include <string>

namespace mdj {

struct ExportTarget {
    int directory = -1;  // the directory the copy is created in
    int fd = -1;         // the new, empty file
    std::string name;    // its name in `directory`
    std::string path;    // for messages
};

// The export directory as configured (not yet created).
std::string ExportDirectory();

// Creates the new file for `requested` (relative to the export directory, or absolute inside
// it). False, with `why` saying what was refused, when the name breaks a rule or the file
// cannot be made; nothing is then created but the export directory itself.
bool OpenExportTarget(const std::string& storeBase, const std::string& requested,
                      ExportTarget& target, std::string& why);

// Closes both descriptors; `keep` false removes the file again.
void CloseExportTarget(ExportTarget& target, bool keep);

}  // namespace mdj
