#include "HostDomain.h"

#include <sys/stat.h>
#include <time.h>
#include <cerrno>
#include <cstdlib>

namespace hostsystem {

std::string DomainDir() {
    const char* domain = std::getenv("LINX_DOMAIN");
    return (domain != nullptr && *domain != '\0') ? std::string(domain) : std::string("/tmp/linx");
}

bool MakeDirs(const std::string& path) {
    for (std::string::size_type slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        ::mkdir(path.substr(0, slash).c_str(), 0770);
    }
    if (::mkdir(path.c_str(), 0770) != 0 && errno != EEXIST) {
        return false;
    }
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

unsigned long long MonotonicMs() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000ull +
           static_cast<unsigned long long>(now.tv_nsec) / 1000000ull;
}

}  // namespace hostsystem
