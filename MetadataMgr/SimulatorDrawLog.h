// The simulator's draws written down as it takes them, so that a simulated drive can be played
// again: the file is one SIMULATOR_DRAWS reads (one draw a line, '#' lines skipped). It starts
// with "# simulator -s" (or "-s -r"), and each loop pass of the simulator with "# pass TICK",
// the tick that stamps the pass's records, followed by the pass's draws. A pass is written
// whole, in one write, when the next begins or the log closes; memory is one pass's text.
// The file opens at the first pass (the store has made its directory by then) for appending.
// A failure to open or write is logged once, and the process goes on without the log. At
// kMaxBytes the log stops at a pass's end with a "# stopped" line.
#pragma once

#include <cstddef>

#include "Simulator.h"

class SimulatorDrawLog {
public:
    static const unsigned long long kMaxBytes = 64ull << 20;

    SimulatorDrawLog() {}
    ~SimulatorDrawLog();
    SimulatorDrawLog(const SimulatorDrawLog&) = delete;
    SimulatorDrawLog& operator=(const SimulatorDrawLog&) = delete;

    // Logs to `path` (kept, not copied: an environment string lives as long as the process),
    // the draws coming from `draw` at `context` (null: the clock's).
    void Start(const char* path, bool radarOnly, SimulatorDraw draw, void* context);
    // A SimulatorDraw: the next draw of the source, written down.
    static int Next(void* context);
    // A SimulatorPassMark.
    static void Pass(void* context, unsigned int tick);

private:
    bool OpenFile();
    void Append(const char* text);
    // Writes the pending pass; false (logged once, the log closed) when it cannot.
    bool WritePending();
    void Close();

    const char* path_ = nullptr;
    bool radarOnly_ = false;
    SimulatorDraw draw_ = nullptr;
    void* drawContext_ = nullptr;
    int fd_ = -1;
    bool givenUp_ = false;  // closed for good: no more opening or writing
    unsigned long long written_ = 0;
    char pending_[256];
    std::size_t size_ = 0;
};
