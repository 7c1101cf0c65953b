#include "SimulatorDrawFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Log.h"
#include "Simulator.h"

namespace {

// A bad line is shown in the log as far as it is plain text: a byte that could drive the
// terminal showing the log becomes '?'.
void ShowPlainly(char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        text[i] = byte < 0x20 || byte >= 0x7F ? '?' : text[i];
    }
}

}  // namespace

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
    for (;;) {
        // A line into a small buffer: a draw is at most ten digits, a comment any length.
        char text[24];
        std::size_t length = 0;
        bool tooLong = false;
        int c;
        while ((c = std::getc(file_)) != EOF && c != '\n') {
            if (length + 1 < sizeof text) {
                text[length++] = static_cast<char>(c);
            } else {
                tooLong = true;
            }
        }
        if (c == EOF && length == 0) {
            break;
        }
        ++line_;
        text[length] = '\0';
        if (length == 0 || text[0] == '#') {
            continue;
        }
        char* end = nullptr;
        errno = 0;
        const unsigned long value = std::strtoul(text, &end, 10);
        if (tooLong || text[0] < '0' || text[0] > '9' || errno != 0 || value > RAND_MAX ||
            *end != '\0') {
            ShowPlainly(text, length);
            MM_LOG(1) << "Simulator draws: " << path_ << " line " << line_ << " is no draw ('"
                      << text << (tooLong ? "...'" : "'")
                      << "); drawing from the clock from now on";
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
