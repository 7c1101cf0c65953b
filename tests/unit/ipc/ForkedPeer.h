// A second process for tests: runs `body` in a forked child with its own endpoints and reports
// the child's exit code. The child ends with _exit, so it never runs the parent's destructors
// (which would remove the parent's sockets and test directory).
#pragma once

#include <sys/types.h>

#include <functional>

class LinxIpc;

class ForkedPeer {
public:
    // `body` returns the child's exit code.
    explicit ForkedPeer(std::function<int()> body);
    // Kills a child still running.
    ~ForkedPeer();
    ForkedPeer(const ForkedPeer&) = delete;
    ForkedPeer& operator=(const ForkedPeer&) = delete;

    // The child's exit code; -1 when it did not end within timeoutMs (it is killed then).
    int Wait(int timeoutMs);

private:
    pid_t pid_ = -1;
};

// Sends a message without payload; true when it was sent.
bool SendSignal(LinxIpc& from, const char* to, unsigned int type);
