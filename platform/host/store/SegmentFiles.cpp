#include "SegmentFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace mdj {

namespace {
const char kSuffix[] = ".mdj";
const std::size_t kSuffixLength = sizeof kSuffix - 1;

std::string BaseName(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The number of "<base>.<digits>.mdj"; false for any other name.
bool SegmentNumber(const std::string& name, const std::string& base, std::uint32_t& number) {
    if (name.size() <= base.size() + 1 + kSuffixLength || name.compare(0, base.size(), base) != 0 ||
        name[base.size()] != '.' ||
        name.compare(name.size() - kSuffixLength, kSuffixLength, kSuffix) != 0) {
        return false;
    }
    const std::string digits =
        name.substr(base.size() + 1, name.size() - base.size() - 1 - kSuffixLength);
    if (digits.empty() || digits.size() > 10 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const unsigned long long value = std::strtoull(digits.c_str(), nullptr, 10);
    if (value > 0xFFFFFFFFull) {
        return false;
    }
    number = static_cast<std::uint32_t>(value);
    return true;
}
}  // namespace

std::string SegmentPath(const std::string& basePath, std::uint32_t number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, ".%06u", static_cast<unsigned>(number));
    return basePath + digits + kSuffix;
}

std::string DirectoryOf(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool IsDirectory(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsRegularFile(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool ListSegments(const std::string& basePath, std::vector<SegmentFile>& segments) {
    segments.clear();
    const std::string directory = DirectoryOf(basePath);
    const std::string base = BaseName(basePath);
    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return false;
    }
    while (const dirent* entry = readdir(dir)) {
        SegmentFile segment;
        if (SegmentNumber(entry->d_name, base, segment.number)) {
            segment.path = directory + "/" + entry->d_name;
            segments.push_back(segment);
        }
    }
    closedir(dir);
    std::sort(segments.begin(), segments.end(),
              [](const SegmentFile& a, const SegmentFile& b) { return a.number < b.number; });
    return true;
}

bool ReadWholeFile(const std::string& path, std::vector<unsigned char>& data) {
    data.clear();
    const int fd = OpenRegularFile(path, O_RDONLY);
    if (fd < 0) {
        return false;
    }
    struct stat info;
    if (fstat(fd, &info) == 0 && info.st_size > 0) {
        data.reserve(static_cast<std::size_t>(info.st_size));
    }
    unsigned char chunk[65536];
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            close(fd);
            return false;
        }
        if (got == 0) {
            break;
        }
        data.insert(data.end(), chunk, chunk + got);
    }
    close(fd);
    return true;
}

int OpenRegularFile(const std::string& path, int flags) {
    // O_NONBLOCK: a FIFO in a segment's place must not stall the open.
    const int fd = open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat info;
    if (fd >= 0 && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

int CreateNewFile(const std::string& path) {
    const mode_t mode = 0640;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0 && fchmod(fd, mode) != 0) {
        close(fd);
        unlink(path.c_str());
        return -1;
    }
    return fd;
}

bool WritableStoreDirectory(const std::string& dir) {
    struct stat info;
    char problem[64] = "";
    if (lstat(dir.c_str(), &info) != 0) {
        std::snprintf(problem, sizeof problem, "%s", std::strerror(errno));
    } else if (!S_ISDIR(info.st_mode)) {
        std::snprintf(problem, sizeof problem, "%s",
                      S_ISLNK(info.st_mode) ? "it is a symbolic link" : "not a directory");
    } else if (info.st_uid != geteuid() && info.st_uid != 0) {
        std::snprintf(problem, sizeof problem, "owned by uid %u",
                      static_cast<unsigned>(info.st_uid));
    } else if ((info.st_mode & S_IWOTH) != 0) {
        std::snprintf(problem, sizeof problem, "others may write it (mode %04o)",
                      static_cast<unsigned>(info.st_mode & 07777));
    }
    if (problem[0] != '\0') {
        std::fprintf(stderr, "DataStore: cannot use store directory %s: %s\n", dir.c_str(),
                     problem);
    }
    return problem[0] == '\0';
}

bool WriteAll(int fd, const unsigned char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace mdj
