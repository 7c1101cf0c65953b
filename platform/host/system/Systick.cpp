#include "Systick.h"

#include "HostDomain.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>

namespace {

// Tests and benches pin the tick through a file, so they can make it unavailable or jump.
unsigned int TickFromFile(const char* path) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return Systick::kUnavailable;
    }
    char text[32];
    const ssize_t n = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    if (n <= 0) {
        return Systick::kUnavailable;
    }
    text[n] = '\0';
    const char* p = text;
    while (*p == ' ' || *p == '\t') {
        ++p;
    }
    if (*p < '0' || *p > '9') {
        return Systick::kUnavailable;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(p, &end, 10);
    while (*end == ' ' || *end == '\t' || *end == '\n' || *end == '\r') {
        ++end;
    }
    if (errno != 0 || *end != '\0' || value > 0xFFFFFFFFull) {
        return Systick::kUnavailable;
    }
    return static_cast<unsigned int>(value);
}

}  // namespace

const unsigned int Systick::kUnavailable;
const unsigned int Systick::kTicksPerSecond;

Systick::Systick() {}

unsigned int Systick::SystemTick() {
    const char* file = std::getenv("HOST_SYSTICK_FILE");
    if (file != nullptr) {
        return TickFromFile(file);
    }
    const unsigned int tick = static_cast<unsigned int>(hostsystem::MonotonicMs());
    // The all-ones value means "no tick"; a running clock must never say that by accident.
    return tick == kUnavailable ? 0u : tick;
}
