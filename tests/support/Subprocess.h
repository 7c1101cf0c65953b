// Starts the project's programs from tests, through the cross emulator when there is one.
#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

// build/<preset>/bin/<name>
std::string ProgramPath(const std::string& name);
// The native tool of the host build (for cross-build tests), "" when it was not built.
std::string HostToolPath(const std::string& name);

struct ProgramResult {
    int exitCode = -1;  // exit status, or 128 + signal
    bool timedOut = false;
    std::string out;  // standard output
    std::string err;  // standard error
};

class Subprocess {
public:
    // argv[0] is the program's path. `env` entries ("NAME=value") are added to this process's
    // environment; "NAME" alone removes the variable. Output goes to files under `workDir`.
    Subprocess(std::vector<std::string> argv, std::vector<std::string> env,
               const std::string& workDir);
    ~Subprocess();  // kills a program still running
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    // `stdinText` is fed through a file; the program sees end of file after it.
    bool Start(const std::string& stdinText = "");
    bool Running();
    void Signal(int signal);
    // Waits up to timeoutMs; kills the program when it is still running then.
    ProgramResult Wait(int timeoutMs);
    // Output so far.
    std::string Out() const;
    std::string Err() const;
    // Waits until standard error contains `text`; false after timeoutMs.
    bool WaitForErr(const std::string& text, int timeoutMs) const;
    bool WaitForOut(const std::string& text, int timeoutMs) const;
    pid_t Pid() const { return pid_; }

private:
    std::vector<std::string> argv_;
    std::vector<std::string> env_;
    std::string outPath_;
    std::string errPath_;
    std::string inPath_;
    pid_t pid_ = -1;
    int status_ = 0;
    bool reaped_ = false;
};

// Runs a program to its end.
ProgramResult RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& workDir, const std::string& stdinText = "",
                         int timeoutMs = 60000);
