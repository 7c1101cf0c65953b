#include "ExportTarget.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "SegmentFiles.h"

namespace mdj {

namespace {

const mode_t kExportDirMode = 0750;
const mode_t kCopyMode = 0640;

std::string WithoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// The part of an absolute `name` below `directory`; false when it is not below it.
bool Below(const std::string& name, const std::string& directory, std::string& rest) {
    if (directory.empty() || name.compare(0, directory.size(), directory) != 0) {
        return false;
    }
    if (directory == "/") {
        rest = name.substr(1);
        return true;
    }
    if (name.size() <= directory.size() || name[directory.size()] != '/') {
        return false;
    }
    rest = name.substr(directory.size() + 1);
    return true;
}

// Splits on '/', dropping empty and "." parts; false when a part is "..".
bool Components(const std::string& relative, std::vector<std::string>& parts) {
    std::string::size_type start = 0;
    while (start <= relative.size()) {
        std::string::size_type end = relative.find('/', start);
        if (end == std::string::npos) {
            end = relative.size();
        }
        const std::string part = relative.substr(start, end - start);
        if (part == "..") {
            return false;
        }
        if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    return true;
}

// "<anything>.<digits>.mdj" or ".mdx": a name the store itself would use.
bool SegmentLike(const std::string& name) {
    if (name.size() < 6) {
        return false;
    }
    const std::string suffix = name.substr(name.size() - 4);
    if (suffix != ".mdj" && suffix != ".mdx") {
        return false;
    }
    std::string::size_type i = name.size() - 4;
    const std::string::size_type digitsEnd = i;
    while (i > 0 && name[i - 1] >= '0' && name[i - 1] <= '9') {
        --i;
    }
    return i < digitsEnd && i > 0 && name[i - 1] == '.';
}

// Opens the export directory, creating it (one level, mode 0750) when missing.
int OpenExportDirectory(const std::string& directory, std::string& why) {
    if (mkdir(directory.c_str(), kExportDirMode) == 0) {
        // Exactly 0750 whatever the umask.
        chmod(directory.c_str(), kExportDirMode);
    } else if (errno != EEXIST) {
        why = "cannot create export directory " + directory + ": " + std::strerror(errno);
        return -1;
    }
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        why =
            "export directory " + directory + " is not a directory (" + std::strerror(errno) + ")";
    }
    return fd;
}

bool SameFile(int fd, const std::string& path) {
    struct stat a;
    struct stat b;
    return fstat(fd, &a) == 0 && stat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

}  // namespace

std::string ExportDirectory() {
    const char* configured = std::getenv("METADATA_EXPORT_DIR");
    if (configured != nullptr && *configured != '\0') {
        return WithoutTrailingSlashes(configured);
    }
    const char* root = std::getenv("MEDIA_ROOT");
    return WithoutTrailingSlashes(root != nullptr && *root != '\0' ? root : "/mnt/hd") + "/export";
}

bool OpenExportTarget(const std::string& storeBase, const std::string& requested,
                      ExportTarget& target, std::string& why) {
    target = ExportTarget();
    const std::string directory = ExportDirectory();
    std::string relative = requested;
    if (!requested.empty() && requested[0] == '/') {
        char resolved[PATH_MAX];
        if (!Below(requested, directory, relative) &&
            !(realpath(directory.c_str(), resolved) != nullptr &&
              Below(requested, resolved, relative))) {
            why = "outside the export directory " + directory;
            return false;
        }
    }
    std::vector<std::string> parts;
    if (!Components(relative, parts)) {
        why = "'..' in the name";
        return false;
    }
    if (parts.empty()) {
        why = "no file name";
        return false;
    }
    if (SegmentLike(parts.back())) {
        why = "the name of a metadata segment";
        return false;
    }
    int dir = OpenExportDirectory(directory, why);
    std::string path = directory;
    for (std::size_t i = 0; dir >= 0 && i + 1 < parts.size(); ++i) {
        const int next =
            openat(dir, parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        path += "/" + parts[i];
        if (next < 0) {
            struct stat info;
            why = fstatat(dir, parts[i].c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISLNK(info.st_mode)
                      ? "a symbolic link on the path: " + path
                      : "not a directory: " + path;
        }
        close(dir);
        dir = next;
    }
    if (dir < 0) {
        return false;
    }
    path += "/" + parts.back();
    if (SameFile(dir, DirectoryOf(storeBase))) {
        why = "the store's own directory";
        close(dir);
        return false;
    }
    struct stat info;
    if (fstatat(dir, parts.back().c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        why = S_ISLNK(info.st_mode) ? "a symbolic link is there: " + path
                                    : "exists, not replaced: " + path;
        close(dir);
        return false;
    }
    const int fd = openat(dir, parts.back().c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kCopyMode);
    if (fd < 0) {
        why = "cannot create " + path + ": " + std::strerror(errno);
        close(dir);
        return false;
    }
    fchmod(fd, kCopyMode);  // the mode is the store's choice, not the umask's
    target.directory = dir;
    target.fd = fd;
    target.name = parts.back();
    target.path = path;
    return true;
}

void CloseExportTarget(ExportTarget& target, bool keep) {
    if (target.fd >= 0) {
        close(target.fd);
    }
    if (!keep && target.directory >= 0) {
        unlinkat(target.directory, target.name.c_str(), 0);
    }
    if (target.directory >= 0) {
        close(target.directory);
    }
    target = ExportTarget();
}

}  // namespace mdj
