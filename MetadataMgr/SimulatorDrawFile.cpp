#include "SimulatorDrawFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Log.h"
#include "Simulator.h"

SimulatorDrawFile::~SimulatorDrawFile() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

bool SimulatorDrawFile::Open(const char* path) {
    file_ = std::fopen(path, "re");
    if (file_ == nullptr) {
        MM_LOG(1) << "Simulator draws: cannot read " << path << " (" << std::strerror(errno)
                  << "); drawing from the clock";
        return false;
    }
    path_ = path;
    MM_LOG(128) << "Simulator draws from " << path_;
    return true;
}

int SimulatorDrawFile::Next(void* context) {
    SimulatorDrawFile& self = *static_cast<SimulatorDrawFile*>(context);
    return self.file_ != nullptr ? self.NextFromFile() : SimulatorClockDraw();
}

int SimulatorDrawFile::NextFromFile() {
    char text[32];
    while (std::fgets(text, sizeof text, file_) != nullptr) {
        ++line_;
        const std::size_t length = std::strlen(text);
        const bool whole = length > 0 && text[length - 1] == '\n';
        if (!whole && !std::feof(file_)) {
            MM_LOG(1) << "Simulator draws: " << path_ << " line " << line_
                      << " is too long for a draw; drawing from the clock from now on";
            Stop();
            return SimulatorClockDraw();
        }
        if (text[0] == '#' || text[0] == '\n') {
            continue;
        }
        char* end = nullptr;
        errno = 0;
        const unsigned long value = std::strtoul(text, &end, 10);
        if (text[0] < '0' || text[0] > '9' || errno != 0 || value > RAND_MAX ||
            (*end != '\n' && *end != '\0')) {
            if (whole) {
                text[length - 1] = '\0';
            }
            MM_LOG(1) << "Simulator draws: " << path_ << " line " << line_ << " is no draw ('"
                      << text << "'); drawing from the clock from now on";
            Stop();
            return SimulatorClockDraw();
        }
        ++draws_;
        return static_cast<int>(value);
    }
    MM_LOG(128) << "Simulator draws: " << path_ << " ended after " << draws_
                << " draws; drawing from the clock from now on";
    Stop();
    return SimulatorClockDraw();
}

void SimulatorDrawFile::Stop() {
    std::fclose(file_);
    file_ = nullptr;
}
