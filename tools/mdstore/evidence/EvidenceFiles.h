// The files of an evidence package on disk: written new and synced, listed, removed.
#pragma once

#include <string>
#include <vector>

namespace evidence {

// A new file `path` (nothing there is replaced) holding `data`, synced to the disk.
bool WriteNewFile(const std::string& path, const std::string& data);
// fsync of the file or directory at `path`.
bool SyncPath(const std::string& path);
// Every entry under `dir` by its path relative to `dir` ("a", "sub/", "sub/b"): files, links
// and others, and directories (with a slash, then what they hold; a link is not followed);
// sorted.
bool ListTree(const std::string& dir, std::vector<std::string>& names);
// Removes `dir` and the files directly in it (a package being made has no subdirectories).
void RemoveFlatDirectory(const std::string& dir);

}  // namespace evidence
