#include "traffic/DrawsLog.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

const char* const kDrawsLogName = "draws.log";

namespace {

const char kFull[] = "# simulator -s";
const char kRadarOnly[] = "# simulator -s -r";
const char kPassMark[] = "# pass ";
const char kStopped[] = "# stopped";

bool StartsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// A whole decimal number up to `max`.
bool Number(const char* text, unsigned long max, unsigned long& value) {
    if (*text < '0' || *text > '9') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    value = std::strtoul(text, &end, 10);
    return errno == 0 && *end == '\0' && value <= max;
}

}  // namespace

DrawsLog::~DrawsLog() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

bool DrawsLog::Line(std::string& line) {
    line.clear();
    int c;
    while ((c = std::getc(file_)) != EOF && c != '\n') {
        if (line.size() < 64) {
            line += static_cast<char>(c);
        }
    }
    if (c == EOF && line.empty()) {
        return false;
    }
    ++line_;
    return true;
}

bool DrawsLog::Open(const std::string& path, std::string& error) {
    file_ = std::fopen(path.c_str(), "re");
    if (file_ == nullptr) {
        error = "cannot read the draws log " + path + " (" + std::strerror(errno) + ")";
        return false;
    }
    if (!Check(path, error)) {
        return false;
    }
    Rewind();
    return true;
}

void DrawsLog::Rewind() {
    std::rewind(file_);
    line_ = 0;
    read_ = 0;
}

bool DrawsLog::Check(const std::string& path, std::string& error) {
    std::string line;
    bool heading = false;
    unsigned long draws = 0;
    unsigned long tick = 0;
    const auto passTakes = [this]() { return radarOnly_ ? kRadarPassDraws : kFullPassDraws; };
    const auto passComplete = [&]() {
        if (passes_ == 0 || draws == passTakes()) {
            return true;
        }
        error = path + ": pass " + std::to_string(passes_) + " (tick " + std::to_string(tick) +
                ") has " + std::to_string(draws) + " draws, a pass takes " +
                std::to_string(passTakes());
        return false;
    };
    while (Line(line)) {
        const std::string where = path + " line " + std::to_string(line_) + ": ";
        unsigned long value = 0;
        if (line == kFull || line == kRadarOnly) {
            if (heading) {
                error = where + "the draws of a second run; keep the run of this store alone";
                return false;
            }
            heading = true;
            radarOnly_ = line == kRadarOnly;
        } else if (!heading) {
            error = path + " is no draws log: it does not begin with '" + kFull + "' or '" +
                    kRadarOnly + "'";
            return false;
        } else if (StartsWith(line, kPassMark)) {
            if (!Number(line.c_str() + std::strlen(kPassMark), 0xFFFFFFFFul, tick)) {
                error = where + "a pass without its tick ('" + line + "')";
                return false;
            }
            if (!passComplete()) {
                return false;
            }
            ++passes_;
            draws = 0;
        } else if (StartsWith(line, kStopped)) {
            error = where + "the log stopped at its size bound after pass " +
                    std::to_string(passes_) + ": the passes after it were not logged";
            return false;
        } else if (Number(line.c_str(), RAND_MAX, value)) {
            if (passes_ == 0) {
                error = where + "a draw before the first pass";
                return false;
            }
            ++draws;
        } else if (!line.empty() && line[0] != '#') {
            error = where + "neither a draw nor a pass ('" + line + "')";
            return false;
        }
    }
    if (!heading) {
        error = path + " is no draws log: it is empty";
        return false;
    }
    if (passes_ > 0 && draws != passTakes()) {
        error = path + " is cut short in its last pass (pass " + std::to_string(passes_) +
                ", tick " + std::to_string(tick) + "): " + std::to_string(draws) + " of its " +
                std::to_string(passTakes()) + " draws";
        return false;
    }
    return passComplete();
}

bool DrawsLog::Next(LoggedPass& pass) {
    std::string line;
    unsigned long tick = 0;
    while (read_ < passes_ && Line(line)) {
        if (StartsWith(line, kPassMark) &&
            Number(line.c_str() + std::strlen(kPassMark), 0xFFFFFFFFul, tick)) {
            pass.number = ++read_;
            pass.tick = static_cast<std::uint32_t>(tick);
            return true;
        }
    }
    return false;
}
