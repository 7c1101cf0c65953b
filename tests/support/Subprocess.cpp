#include "Subprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

#include "TestEnv.h"

extern char** environ;

namespace {

std::vector<std::string> SplitWords(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        words.push_back(word);
    }
    return words;
}

std::atomic<unsigned> gSequence{0};

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
    inPath_ = stem + ".in";
}

Subprocess::~Subprocess() {
    if (pid_ > 0 && !reaped_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status_, 0);
    }
}

bool Subprocess::Start(const std::string& stdinText) {
    {
        int fd = ::open(inPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (fd < 0) {
            return false;
        }
        if (!stdinText.empty() && ::write(fd, stdinText.data(), stdinText.size()) !=
                                      static_cast<ssize_t>(stdinText.size())) {
            ::close(fd);
            return false;
        }
        ::close(fd);
    }
    // Native tools of the host build (HostToolPath) run as they are, not through the emulator.
    const std::string hostTools = HOST_TOOLS_DIR;
    const bool native = !hostTools.empty() && !argv_.empty() &&
                        argv_[0].compare(0, hostTools.size() + 1, hostTools + "/") == 0;
    std::vector<std::string> args = native ? std::vector<std::string>() : SplitWords(TEST_EMULATOR);
    args.insert(args.end(), argv_.begin(), argv_.end());

    pid_ = ::fork();
    if (pid_ < 0) {
        return false;
    }
    if (pid_ == 0) {
        for (const std::string& entry : env_) {
            const std::string::size_type eq = entry.find('=');
            if (eq == std::string::npos) {
                ::unsetenv(entry.c_str());
            } else {
                ::setenv(entry.substr(0, eq).c_str(), entry.substr(eq + 1).c_str(), 1);
            }
        }
        int in = ::open(inPath_.c_str(), O_RDONLY);
        int out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = ::open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || out < 0 || err < 0) {
            ::_exit(126);
        }
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        std::vector<char*> cargs;
        for (std::string& arg : args) {
            cargs.push_back(&arg[0]);
        }
        cargs.push_back(nullptr);
        ::execvp(cargs[0], cargs.data());
        ::_exit(127);
    }
    return true;
}

bool Subprocess::Running() {
    if (pid_ <= 0 || reaped_) {
        return false;
    }
    if (::waitpid(pid_, &status_, WNOHANG) == pid_) {
        reaped_ = true;
        return false;
    }
    return true;
}

void Subprocess::Signal(int signal) {
    if (pid_ > 0 && !reaped_) {
        ::kill(pid_, signal);
    }
}

ProgramResult Subprocess::Wait(int timeoutMs) {
    ProgramResult result;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Running()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            result.timedOut = true;
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status_, 0);
            reaped_ = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
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

namespace {
bool WaitForText(const std::string& path, const std::string& text, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (ReadFileText(path).find(text) != std::string::npos) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
}  // namespace

bool Subprocess::WaitForErr(const std::string& text, int timeoutMs) const {
    return WaitForText(errPath_, text, timeoutMs);
}
bool Subprocess::WaitForOut(const std::string& text, int timeoutMs) const {
    return WaitForText(outPath_, text, timeoutMs);
}

ProgramResult RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& workDir, const std::string& stdinText, int timeoutMs) {
    Subprocess process(argv, env, workDir);
    if (!process.Start(stdinText)) {
        ProgramResult failed;
        failed.err = "could not start " + (argv.empty() ? std::string() : argv[0]);
        return failed;
    }
    return process.Wait(timeoutMs);
}
