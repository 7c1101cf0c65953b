// The draws log of a simulated drive, as MetadataMgr -s writes it with SIMULATOR_DRAWS_LOG:
// "# simulator -s" (or "-s -r"), then each loop pass of the simulator as "# pass TICK" and its
// draws, one a line. Read twice: once whole to check it, then pass by pass as the traffic is
// written; neither holds more than a line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// The log's name in the directory of the store it belongs to.
extern const char* const kDrawsLogName;

struct LoggedPass {
    unsigned long number = 0;  // 1 the first
    std::uint32_t tick = 0;    // the tick that stamps the pass's records
};

class DrawsLog {
public:
    // A full pass draws the inputs, the GPS, the microphones, the bookmark and the radar; a
    // radar-only pass the radar.
    static const unsigned kFullPassDraws = 5;
    static const unsigned kRadarPassDraws = 1;

    DrawsLog() {}
    ~DrawsLog();
    DrawsLog(const DrawsLog&) = delete;
    DrawsLog& operator=(const DrawsLog&) = delete;

    // Reads the whole log at `path`; false, with `error`, when it is no draws log of one run,
    // a pass has not the draws a pass takes (the last one cut short included) or the log
    // stopped at its size bound.
    bool Open(const std::string& path, std::string& error);
    bool RadarOnly() const { return radarOnly_; }
    unsigned long Passes() const { return passes_; }
    // The next pass; false after the last.
    bool Next(LoggedPass& pass);
    // Back to the first pass.
    void Rewind();

private:
    // The next line, at most a few dozen characters kept; false at the end.
    bool Line(std::string& line);
    bool Check(const std::string& path, std::string& error);

    std::FILE* file_ = nullptr;
    unsigned long line_ = 0;
    bool radarOnly_ = false;
    unsigned long passes_ = 0;
    unsigned long read_ = 0;  // passes Next has given
};
