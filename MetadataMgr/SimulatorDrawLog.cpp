#include "SimulatorDrawLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Log.h"

SimulatorDrawLog::~SimulatorDrawLog() {
    WritePending();
    Close();
}

void SimulatorDrawLog::Start(const char* path, bool radarOnly, SimulatorDraw draw, void* context) {
    path_ = path;
    radarOnly_ = radarOnly;
    draw_ = draw;
    drawContext_ = context;
}

int SimulatorDrawLog::Next(void* context) {
    SimulatorDrawLog& self = *static_cast<SimulatorDrawLog*>(context);
    const int value = self.draw_ != nullptr ? self.draw_(self.drawContext_) : SimulatorClockDraw();
    if (self.fd_ >= 0) {
        char line[24];
        std::snprintf(line, sizeof line, "%d\n", value);
        self.Append(line);
    }
    return value;
}

void SimulatorDrawLog::Pass(void* context, unsigned int tick) {
    SimulatorDrawLog& self = *static_cast<SimulatorDrawLog*>(context);
    if (self.givenUp_ || (self.fd_ < 0 && !self.OpenFile()) || !self.WritePending()) {
        return;
    }
    // A pass takes a few dozen bytes: the bound is checked once a pass, so the log ends whole.
    if (self.written_ >= kMaxBytes) {
        self.Append("# stopped: the log reached its size bound; later passes are not logged\n");
        self.WritePending();
        MM_LOG(1) << "Simulator draws log: " << self.path_ << " reached " << self.written_
                  << " bytes; later passes are not logged";
        self.Close();
        return;
    }
    char line[32];
    std::snprintf(line, sizeof line, "# pass %u\n", tick);
    self.Append(line);
}

bool SimulatorDrawLog::OpenFile() {
    fd_ = ::open(path_, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    if (fd_ < 0) {
        MM_LOG(1) << "Simulator draws log: cannot open " << path_ << " (" << std::strerror(errno)
                  << "); the draws are not logged";
        givenUp_ = true;
        return false;
    }
    MM_LOG(128) << "Simulator draws logged to " << path_;
    Append(radarOnly_ ? "# simulator -s -r\n" : "# simulator -s\n");
    return true;
}

void SimulatorDrawLog::Append(const char* text) {
    const std::size_t length = std::strlen(text);
    if (size_ + length > sizeof pending_ && !WritePending()) {
        return;
    }
    std::memcpy(pending_ + size_, text, length);
    size_ += length;
}

bool SimulatorDrawLog::WritePending() {
    std::size_t done = 0;
    while (fd_ >= 0 && done < size_) {
        const ssize_t wrote = ::write(fd_, pending_ + done, size_ - done);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        if (wrote <= 0) {
            MM_LOG(1) << "Simulator draws log: cannot write " << path_ << " ("
                      << (wrote < 0 ? std::strerror(errno) : "nothing written")
                      << "); the draws are not logged from now on";
            Close();
            break;
        }
        done += static_cast<std::size_t>(wrote);
    }
    written_ += done;
    size_ = 0;
    return fd_ >= 0;
}

void SimulatorDrawLog::Close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    givenUp_ = true;
}
