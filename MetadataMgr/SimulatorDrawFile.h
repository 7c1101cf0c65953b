// The simulator's draws read from a file instead of the clock, so that a bench can play a
// simulated drive again exactly: one draw a line as rand() gives it (0..RAND_MAX), blank lines
// and lines starting with '#' skipped. When the list ends, or a line is no draw, the simulator
// goes back to the clock, and says so once.
#pragma once

#include <cstdio>
#include <string>

class SimulatorDrawFile {
public:
    SimulatorDrawFile() {}
    ~SimulatorDrawFile();
    SimulatorDrawFile(const SimulatorDrawFile&) = delete;
    SimulatorDrawFile& operator=(const SimulatorDrawFile&) = delete;

    // False, with a log line, when the file cannot be read.
    bool Open(const char* path);
    // A SimulatorDraw: the next draw of the file at `context`, or the clock's.
    static int Next(void* context);

private:
    int NextFromFile();
    void Stop();

    std::FILE* file_ = nullptr;
    std::string path_;
    unsigned long line_ = 0;
    unsigned long draws_ = 0;
};
