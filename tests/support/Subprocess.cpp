#include "Subprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <thread>

#include "TestEnv.h"

namespace {

std::atomic<unsigned> gSequence{0};

bool PollUntil(const std::function<bool()>& done, int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace

std::string ProgramPath(const std::string& name) {
    return std::string(TEST_BIN_DIR) + "/" + name;
}

std::string HostToolPath(const std::string& name) {
    const std::string dir = HOST_TOOLS_DIR;
    if (dir.empty()) {
        return ProgramPath(name);  // a native build: its own tools are the host's
    }
    const std::string path = dir + "/" + name;
    return ::access(path.c_str(), X_OK) == 0 ? path : std::string();
}

Subprocess::Subprocess(std::vector<std::string> argv, std::vector<std::string> env,
                       const std::string& workDir)
    : argv_(std::move(argv)), env_(std::move(env)) {
    const std::string stem =
        workDir + "/proc" + std::to_string(::getpid()) + "_" + std::to_string(gSequence++);
    outPath_ = stem + ".out";
    errPath_ = stem + ".err";
}

Subprocess::~Subprocess() {
    Wait(0);
}

bool Subprocess::Start() {
    // Native tools of the host build (HostToolPath) run as they are, not through the emulator.
    const std::string hostTools = HOST_TOOLS_DIR;
    const bool native =
        !hostTools.empty() && !argv_.empty() && argv_[0].rfind(hostTools + "/", 0) == 0;
    std::istringstream emulator(native ? "" : TEST_EMULATOR);
    std::vector<std::string> args;
    for (std::string word; emulator >> word;) {
        args.push_back(word);
    }
    args.insert(args.end(), argv_.begin(), argv_.end());

    pid_ = ::fork();
    if (pid_ == 0) {
        for (std::string& entry : env_) {
            ::putenv(&entry[0]);  // glibc removes the variable for an entry without '='
        }
        const int in = ::open("/dev/null", O_RDONLY);
        const int out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || out < 0 || err < 0 || ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 ||
            ::dup2(err, 2) < 0) {
            ::_exit(126);
        }
        std::vector<char*> cargs;
        for (std::string& arg : args) {
            cargs.push_back(&arg[0]);
        }
        cargs.push_back(nullptr);
        ::execvp(cargs[0], cargs.data());
        ::_exit(127);
    }
    return pid_ > 0;
}

bool Subprocess::Running() {
    if (pid_ > 0 && !reaped_ && ::waitpid(pid_, &status_, WNOHANG) == pid_) {
        reaped_ = true;
    }
    return pid_ > 0 && !reaped_;
}

void Subprocess::Signal(int signal) {
    if (Running()) {
        ::kill(pid_, signal);
    }
}

ProgramResult Subprocess::Wait(int timeoutMs) {
    if (!PollUntil([this] { return !Running(); }, timeoutMs)) {
        ::kill(pid_, SIGKILL);
        reaped_ = ::waitpid(pid_, &status_, 0) == pid_;
    }
    ProgramResult result;
    if (reaped_) {
        result.exitCode = WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
    }
    result.out = Out();
    result.err = Err();
    return result;
}

std::string Subprocess::Out() const {
    return ReadFileText(outPath_);
}
std::string Subprocess::Err() const {
    return ReadFileText(errPath_);
}

bool Subprocess::WaitForOut(const std::string& text, int timeoutMs) const {
    return PollUntil([&] { return Out().find(text) != std::string::npos; }, timeoutMs);
}

ProgramResult RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& workDir, int timeoutMs) {
    Subprocess process(argv, env, workDir);
    process.Start();
    return process.Wait(timeoutMs);
}

ProgramResult RunMdstore(std::vector<std::string> args, const std::string& workDir) {
    args.insert(args.begin(), ProgramPath("mdstore"));
    return RunProgram(args, {}, workDir);
}

int Shell(const std::string& command, std::string& output) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return -1;
    }
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, n);
    }
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
