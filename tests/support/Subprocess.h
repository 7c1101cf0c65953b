// Starts the project's programs from tests, through the cross emulator when there is one.
#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

// The program `name` of this build.
std::string ProgramPath(const std::string& name);
// The native tool of the host build (for cross-build tests), "" when it was not built.
std::string HostToolPath(const std::string& name);

struct ProgramResult {
    int exitCode = -1;  // exit status, 128 + signal, or -1 when it could not start
    std::string out;    // standard output
    std::string err;    // standard error
};

// A program running beside the test. Its standard input is empty; its output goes to files
// under `workDir`, so it can be read while the program runs.
class Subprocess {
public:
    // argv[0] is the program's path. `env` entries ("NAME=value") are added to this process's
    // environment; "NAME" alone removes the variable.
    Subprocess(std::vector<std::string> argv, std::vector<std::string> env,
               const std::string& workDir);
    ~Subprocess();  // kills a program still running
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    bool Start();
    void Signal(int signal);
    // Waits up to timeoutMs; kills the program when it is still running then.
    ProgramResult Wait(int timeoutMs);
    std::string Out() const;  // output so far
    std::string Err() const;
    // Wait until the output holds `text`; false after timeoutMs.
    bool WaitForOut(const std::string& text, int timeoutMs) const;

private:
    bool Running();

    std::vector<std::string> argv_;
    std::vector<std::string> env_;
    std::string outPath_;
    std::string errPath_;
    pid_t pid_ = -1;
    int status_ = 0;
    bool reaped_ = false;
};

// Runs a program to its end.
ProgramResult RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& workDir, int timeoutMs = 60000);
// Runs this build's mdstore with `args` to its end.
ProgramResult RunMdstore(std::vector<std::string> args, const std::string& workDir);
// Runs a shell command natively (also beside an emulated test): its exit status, -1 when it did
// not exit; what it writes to standard output is added to `output`.
int Shell(const std::string& command, std::string& output);
