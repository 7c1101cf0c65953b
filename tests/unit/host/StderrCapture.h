// Sends this process's standard error (fd 2) to a file while it lives, so a test can read the
// exact bytes the log wrote.
#pragma once

#include <fcntl.h>
#include <unistd.h>
#include <string>

#include "TestEnv.h"

class StderrCapture {
public:
    explicit StderrCapture(const std::string& path) : path_(path), saved_(::dup(STDERR_FILENO)) {
        const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
    }
    ~StderrCapture() { Restore(); }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    // Everything written so far; standard error is restored first.
    std::string Text() {
        Restore();
        return ReadFileText(path_);
    }

private:
    void Restore() {
        if (saved_ >= 0) {
            ::dup2(saved_, STDERR_FILENO);
            ::close(saved_);
            saved_ = -1;
        }
    }
    std::string path_;
    int saved_;
};
