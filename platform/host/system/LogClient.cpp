#include "LogClient.h"

#include <syslog.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// glibc keeps the short name of the program; it is what other processes' lines show.
std::string ShortProgramName() {
    const char* name = program_invocation_short_name;
    return (name != nullptr && *name != '\0') ? std::string(name) : std::string("process");
}

int SyslogPriority(unsigned int mask) {
    if ((mask & 1u) != 0) {
        return LOG_ERR;
    }
    if ((mask & 2u) != 0) {
        return LOG_WARNING;
    }
    if ((mask & 4u) != 0) {
        return LOG_NOTICE;
    }
    return LOG_INFO;
}

}  // namespace

// Tests and callers take these by reference, so they need a home.
const unsigned int LogClient::kDefaultLevel;
const unsigned int SysLogMsg::kMaxLine;

LogClient& LogClient::Instance() {
    static LogClient instance;
    return instance;
}

LogClient::LogClient()
    : level_(kDefaultLevel),
      processName_(ShortProgramName()),
      useSyslog_(std::getenv("LOG_SYSLOG") != nullptr) {}

SysLogMsg::SysLogMsg(unsigned int mask, const std::string& processName)
    : mask_(mask), live_(true), length_(0) {
    // The prefix is built in the same buffer so the whole line leaves in one write().
    Append(processName.data(), static_cast<unsigned int>(processName.size()));
    char pid[24];
    const int n = std::snprintf(pid, sizeof pid, "[%ld]: ", static_cast<long>(::getpid()));
    if (n > 0) {
        Append(pid, static_cast<unsigned int>(n));
    }
}

SysLogMsg::SysLogMsg(SysLogMsg&& other) noexcept
    : mask_(other.mask_), live_(other.live_), length_(other.length_) {
    std::memcpy(line_, other.line_, length_);
    other.live_ = false;
}

SysLogMsg::~SysLogMsg() {
    if (!live_) {
        return;
    }
    // Callers log errno right after a failure; writing the line must not change it.
    const int savedErrno = errno;
    // Append never fills the last byte, so the newline always fits.
    line_[length_] = '\n';
    const unsigned int total = length_ + 1;
    unsigned int done = 0;
    while (done < total) {
        const ssize_t written = ::write(STDERR_FILENO, line_ + done, total - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            break;
        }
        done += static_cast<unsigned int>(written);
    }
    if (LogClient::Instance().UseSyslog()) {
        ::syslog(LOG_USER | SyslogPriority(mask_), "%.*s", static_cast<int>(length_), line_);
    }
    errno = savedErrno;
}

void SysLogMsg::Append(const char* text, unsigned int length) {
    const unsigned int room = kMaxLine - 1 - length_;
    const unsigned int count = length < room ? length : room;
    std::memcpy(line_ + length_, text, count);
    length_ += count;
}

SysLogMsg& SysLogMsg::operator<<(const char* text) {
    if (text == nullptr) {
        text = "(null)";
    }
    Append(text, static_cast<unsigned int>(std::strlen(text)));
    return *this;
}

SysLogMsg& SysLogMsg::operator<<(const std::string& text) {
    Append(text.data(), static_cast<unsigned int>(text.size()));
    return *this;
}

SysLogMsg& SysLogMsg::operator<<(char c) {
    Append(&c, 1);
    return *this;
}

SysLogMsg& SysLogMsg::operator<<(bool value) {
    return *this << (value ? '1' : '0');
}

SysLogMsg& SysLogMsg::operator<<(int value) {
    return *this << static_cast<long long>(value);
}

SysLogMsg& SysLogMsg::operator<<(unsigned int value) {
    return *this << static_cast<unsigned long long>(value);
}

SysLogMsg& SysLogMsg::operator<<(long value) {
    return *this << static_cast<long long>(value);
}

SysLogMsg& SysLogMsg::operator<<(unsigned long value) {
    return *this << static_cast<unsigned long long>(value);
}

SysLogMsg& SysLogMsg::operator<<(long long value) {
    char text[24];
    const int n = std::snprintf(text, sizeof text, "%lld", value);
    if (n > 0) {
        Append(text, static_cast<unsigned int>(n));
    }
    return *this;
}

SysLogMsg& SysLogMsg::operator<<(unsigned long long value) {
    char text[24];
    const int n = std::snprintf(text, sizeof text, "%llu", value);
    if (n > 0) {
        Append(text, static_cast<unsigned int>(n));
    }
    return *this;
}

SysLogMsg& SysLogMsg::operator<<(LogHex value) {
    char text[24];
    const int n = std::snprintf(text, sizeof text, "%llx", value.value);
    if (n > 0) {
        Append(text, static_cast<unsigned int>(n));
    }
    return *this;
}

SysLogMsg LogMsg::Log(unsigned int mask, const std::string& processName) {
    return SysLogMsg(mask, processName);
}
