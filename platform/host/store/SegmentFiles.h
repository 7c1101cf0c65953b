// Where the segments of a store live: beside its base path, as <base>.000001.mdj, ...
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mdj {

struct SegmentFile {
    std::uint32_t number = 0;
    std::string path;
};

std::string SegmentPath(const std::string& basePath, std::uint32_t number);
// The directory part of a path ("." when it has none).
std::string DirectoryOf(const std::string& path);
bool IsDirectory(const std::string& path);
bool IsRegularFile(const std::string& path);
// The files named like segments of the store at `basePath`, by number; whose they are is
// StoreScan's business. False when the directory cannot be read.
bool ListSegments(const std::string& basePath, std::vector<SegmentFile>& segments);
// The whole file; false when it cannot be read or is not a regular file (a link is not
// followed).
bool ReadWholeFile(const std::string& path, std::vector<unsigned char>& data);
// The regular file at `path` opened with `flags`, never through a symbolic link; -1 otherwise.
int OpenRegularFile(const std::string& path, int flags);
// A new file at `path` for writing, mode 0640 whatever the umask; nothing already there (a link
// included) is opened or replaced. -1 when it cannot be made.
int CreateNewFile(const std::string& path);
// True when the store may write in `dir`: a directory itself (not a link) of this user or root
// that others cannot write. Otherwise false, with the reason on standard error.
bool WritableStoreDirectory(const std::string& dir);
// write() all of it, resuming after interruptions.
bool WriteAll(int fd, const unsigned char* data, std::size_t size);

}  // namespace mdj
