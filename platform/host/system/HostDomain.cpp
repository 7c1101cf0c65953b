#include "HostDomain.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace hostsystem {

namespace {

const mode_t kOwnDirMode = 0700;
const mode_t kOwnFileMode = 0600;

const char* KindOf(mode_t mode) {
    if (S_ISREG(mode)) {
        return "a regular file";
    }
    if (S_ISDIR(mode)) {
        return "a directory";
    }
    if (S_ISLNK(mode)) {
        return "a symbolic link";
    }
    return S_ISSOCK(mode) ? "a socket" : "a special file";
}

// True when `info` is of the wanted kind, belongs to this user and nobody else may write it;
// otherwise says why `path` is refused.
bool Acceptable(const std::string& path, const struct stat& info, bool directory) {
    const unsigned self = static_cast<unsigned>(::geteuid());
    if (directory ? !S_ISDIR(info.st_mode) : !S_ISREG(info.st_mode)) {
        std::fprintf(stderr, "LinxDomain: refusing %s: it is %s, not %s\n", path.c_str(),
                     KindOf(info.st_mode), directory ? "a directory" : "a regular file");
        return false;
    }
    if (static_cast<unsigned>(info.st_uid) != self) {
        std::fprintf(stderr,
                     "LinxDomain: refusing %s: owned by uid %u, not by this user (uid %u)\n",
                     path.c_str(), static_cast<unsigned>(info.st_uid), self);
        return false;
    }
    if (directory && (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        std::fprintf(stderr, "LinxDomain: refusing %s: group or others may write it (mode %04o)\n",
                     path.c_str(), static_cast<unsigned>(info.st_mode & 07777));
        return false;
    }
    return true;
}

// Every directory above ours must keep it where it is: owned by root or this user, and when
// others may write it, only with the sticky bit (as /tmp has), or someone else could move ours
// away and put theirs in its place.
bool CheckAncestors(const std::string& dir) {
    char* resolved = ::realpath(dir.c_str(), nullptr);
    if (resolved == nullptr) {
        std::fprintf(stderr, "LinxDomain: cannot use %s: %s\n", dir.c_str(), std::strerror(errno));
        return false;
    }
    std::string path(resolved);
    std::free(resolved);
    const unsigned self = static_cast<unsigned>(::geteuid());
    while (path != "/") {
        const std::string::size_type slash = path.rfind('/');
        path = slash == 0 ? "/" : path.substr(0, slash);
        struct stat info;
        if (::stat(path.c_str(), &info) != 0) {
            std::fprintf(stderr, "LinxDomain: cannot use %s: %s: %s\n", dir.c_str(), path.c_str(),
                         std::strerror(errno));
            return false;
        }
        const unsigned owner = static_cast<unsigned>(info.st_uid);
        if (owner != 0 && owner != self) {
            std::fprintf(stderr,
                         "LinxDomain: refusing %s: it lies in %s, owned by uid %u, not by this "
                         "user (uid %u) or root\n",
                         dir.c_str(), path.c_str(), owner, self);
            return false;
        }
        if ((info.st_mode & S_IWOTH) != 0 && (info.st_mode & S_ISVTX) == 0) {
            std::fprintf(stderr,
                         "LinxDomain: refusing %s: it lies in %s, which others may write without "
                         "the sticky bit (mode %04o)\n",
                         dir.c_str(), path.c_str(), static_cast<unsigned>(info.st_mode & 07777));
            return false;
        }
    }
    return true;
}

bool CheckOwnDir(const std::string& dir) {
    struct stat info;
    if (::lstat(dir.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && info.st_uid != ::geteuid()) {
        // Planted in a shared directory by someone else: following it would hand them the domain.
        std::fprintf(stderr, "LinxDomain: refusing %s: a symbolic link of uid %u\n", dir.c_str(),
                     static_cast<unsigned>(info.st_uid));
        return false;
    }
    if (::stat(dir.c_str(), &info) != 0) {
        std::fprintf(stderr, "LinxDomain: cannot use %s: %s\n", dir.c_str(), std::strerror(errno));
        return false;
    }
    return Acceptable(dir, info, true) && CheckAncestors(dir);
}

}  // namespace

std::string DefaultDomainDir() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    struct stat info;
    if (runtime != nullptr && runtime[0] == '/' && ::stat(runtime, &info) == 0 &&
        S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() &&
        (info.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
        return std::string(runtime) + "/linx";
    }
    return "/tmp/linx-" + std::to_string(static_cast<unsigned>(::geteuid()));
}

std::string DomainDir() {
    const char* domain = std::getenv("LINX_DOMAIN");
    return (domain != nullptr && *domain != '\0') ? std::string(domain) : DefaultDomainDir();
}

bool PrepareOwnDir(const std::string& dir) {
    // Missing parents are made private too; existing ones are left as they are.
    for (std::string::size_type slash = dir.find('/', 1); slash != std::string::npos;
         slash = dir.find('/', slash + 1)) {
        ::mkdir(dir.substr(0, slash).c_str(), kOwnDirMode);
    }
    if (::mkdir(dir.c_str(), kOwnDirMode) == 0) {
        // The mode is the platform's choice, not whatever the umask left of it.
        ::chmod(dir.c_str(), kOwnDirMode);
    } else if (errno != EEXIST) {
        std::fprintf(stderr, "LinxDomain: cannot create %s: %s\n", dir.c_str(),
                     std::strerror(errno));
        return false;
    }
    return CheckOwnDir(dir);
}

int OpenOwnFile(const std::string& path, int flags) {
    // O_NONBLOCK: a FIFO put in the file's place must not stall the open.
    const int fd = ::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kOwnFileMode);
    if (fd < 0) {
        if (errno == ELOOP) {
            std::fprintf(stderr, "LinxDomain: refusing %s: it is a symbolic link\n", path.c_str());
        } else if (errno != ENOENT || (flags & O_CREAT) != 0) {
            std::fprintf(stderr, "LinxDomain: cannot open %s: %s\n", path.c_str(),
                         std::strerror(errno));
        }
        return -1;
    }
    struct stat info;
    const bool writing = (flags & O_ACCMODE) != O_RDONLY;
    if (::fstat(fd, &info) != 0 || !Acceptable(path, info, false) ||
        (writing && ::fchmod(fd, kOwnFileMode) != 0)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

unsigned long long MonotonicMs() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000ull +
           static_cast<unsigned long long>(now.tv_nsec) / 1000000ull;
}

}  // namespace hostsystem
