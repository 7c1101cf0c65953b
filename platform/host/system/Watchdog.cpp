#include "Watchdog.h"

#include "HostDomain.h"
#include "HostInspect.h"
#include "WatchdogHeartbeat.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cstdlib>

namespace hostsystem {

std::string HeartbeatPath(e_Process process, e_ThreadIds thread) {
    return DomainDir() + "/watchdog/" + std::to_string(static_cast<unsigned int>(process)) + "." +
           std::to_string(static_cast<unsigned int>(thread));
}

}  // namespace hostsystem

namespace {

WatchdogHeartbeat* MapHeartbeat(e_Process process, e_ThreadIds thread) {
    const std::string domain = hostsystem::DomainDir();
    if (!hostsystem::PrepareOwnDir(domain) || !hostsystem::PrepareOwnDir(domain + "/watchdog")) {
        return nullptr;
    }
    // Sized only once it is known to be our own regular file, never through a link.
    const int fd =
        hostsystem::OpenOwnFile(hostsystem::HeartbeatPath(process, thread), O_RDWR | O_CREAT);
    if (fd < 0) {
        return nullptr;
    }
    void* mapped = MAP_FAILED;
    if (::ftruncate(fd, sizeof(WatchdogHeartbeat)) == 0) {
        mapped =
            ::mmap(nullptr, sizeof(WatchdogHeartbeat), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    ::close(fd);
    return mapped == MAP_FAILED ? nullptr : static_cast<WatchdogHeartbeat*>(mapped);
}

}  // namespace

Watchdog::Watchdog(e_Process process, e_ThreadIds thread) : process_(process), thread_(thread) {}

Watchdog::~Watchdog() {
    if (heartbeat_ != nullptr) {
        ::munmap(heartbeat_, sizeof(WatchdogHeartbeat));
    }
}

bool Watchdog::Subscribe(unsigned int timeoutSeconds) {
    if (std::getenv("HOST_WATCHDOG_REFUSE") != nullptr) {
        return false;
    }
    if (heartbeat_ == nullptr) {
        heartbeat_ = MapHeartbeat(process_, thread_);
        if (heartbeat_ == nullptr) {
            return false;
        }
    }
    heartbeat_->magic = WatchdogHeartbeat::kMagic;
    heartbeat_->timeoutSeconds = timeoutSeconds;
    heartbeat_->lastPetMs = hostsystem::MonotonicMs();
    heartbeat_->petCount = 0;
    heartbeat_->subscribed = 1;
    return true;
}

void Watchdog::PetWatchdog() {
    if (heartbeat_ == nullptr || heartbeat_->subscribed == 0) {
        return;
    }
    heartbeat_->lastPetMs = hostsystem::MonotonicMs();
    ++heartbeat_->petCount;
}

void Watchdog::Unsubscribe() {
    if (heartbeat_ != nullptr) {
        heartbeat_->subscribed = 0;
    }
}

bool Watchdog::Subscribed() const {
    return heartbeat_ != nullptr && heartbeat_->subscribed != 0;
}

unsigned int Watchdog::PetCount() const {
    return heartbeat_ == nullptr ? 0u : static_cast<unsigned int>(heartbeat_->petCount);
}

namespace hostinspect {

bool ReadWatchdog(e_Process process, e_ThreadIds thread, WatchdogStatus& status) {
    const std::string path = hostsystem::HeartbeatPath(process, thread);
    const int fd = hostsystem::OpenOwnFile(path, O_RDONLY);
    if (fd < 0) {
        return false;
    }
    WatchdogHeartbeat beat;
    const ssize_t n = ::read(fd, &beat, sizeof beat);
    ::close(fd);
    if (n != static_cast<ssize_t>(sizeof beat) || beat.magic != WatchdogHeartbeat::kMagic) {
        return false;
    }
    status.subscribed = beat.subscribed != 0;
    status.timeoutSeconds = beat.timeoutSeconds;
    status.lastPetMs = beat.lastPetMs;
    status.petCount = beat.petCount;
    const unsigned long long now = hostsystem::MonotonicMs();
    status.expired = status.subscribed && now > beat.lastPetMs &&
                     now - beat.lastPetMs > 1000ull * beat.timeoutSeconds;
    return true;
}

}  // namespace hostinspect
