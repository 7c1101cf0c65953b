// Helpers of the IPC tests: messages from text or words, a bare socket in the domain, and a
// second process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "LinxIpc.h"

IpcMessage Msg(unsigned int type, const std::string& bytes = "");
std::string Text(const IpcMessage& message);
std::uint32_t Word(const IpcMessage& message, unsigned int index);
std::string Words(const std::vector<std::uint32_t>& words);
// True when the message was sent.
bool Send(LinxIpc& from, const std::string& to, unsigned int type, const std::string& bytes = "");

// A datagram socket bound in the domain without the platform: what another implementation of
// the frame sees. Closing it leaves the socket file behind, as a crashed process does.
class RawSocket {
public:
    RawSocket(const std::string& domain, const std::string& name);
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;
    bool Bound() const { return bound_; }
    bool SendTo(const std::string& name, const std::vector<unsigned char>& bytes);
    std::vector<unsigned char> Receive();

private:
    std::string domain_;
    int fd_ = -1;
    bool bound_ = false;
};

// Runs `body` in a forked child; the child ends with _exit, so it never runs the parent's
// destructors (which would remove the parent's sockets and test directory).
class ForkedPeer {
public:
    explicit ForkedPeer(std::function<int()> body);
    ~ForkedPeer();  // kills a child still running
    ForkedPeer(const ForkedPeer&) = delete;
    ForkedPeer& operator=(const ForkedPeer&) = delete;
    // The child's exit code; -1 when it did not end within timeoutMs.
    int Wait(int timeoutMs);

private:
    pid_t pid_ = -1;
};
