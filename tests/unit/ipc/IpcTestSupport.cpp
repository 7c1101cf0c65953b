#include "IpcTestSupport.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

IpcMessage Msg(unsigned int type, const std::string& bytes) {
    IpcMessage message;
    std::string copy = bytes;
    copy.push_back('\0');  // a writable buffer even for an empty payload
    if (message.Allocate(type, static_cast<unsigned int>(bytes.size()), &copy[0]) != 0) {
        ADD_FAILURE_AT(__FILE__, __LINE__);
    }
    return message;
}

std::string Text(const IpcMessage& message) {
    return message.Size() == 0
               ? std::string()
               : std::string(reinterpret_cast<const char*>(message.DataPtr()), message.Size());
}

std::uint32_t Word(const IpcMessage& message, unsigned int index) {
    std::uint32_t word = 0;
    if (message.Size() >= 4 * (index + 1)) {
        std::memcpy(&word, message.DataPtr() + 4 * index, sizeof word);
    }
    return word;
}

std::string Words(const std::vector<std::uint32_t>& words) {
    std::string bytes(4 * words.size(), '\0');
    if (!words.empty()) {
        std::memcpy(&bytes[0], words.data(), bytes.size());
    }
    return bytes;
}

bool Send(LinxIpc& from, const std::string& to, unsigned int type, const std::string& bytes) {
    IpcMessage message = Msg(type, bytes);
    return from.Notify(to, message, true) == 0;
}

namespace {
struct sockaddr_un Address(const std::string& path) {
    struct sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}
}  // namespace

RawSocket::RawSocket(const std::string& domain, const std::string& name) : domain_(domain) {
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un address = Address(domain_ + "/" + name);
    bound_ = ::bind(fd_, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0;
}

RawSocket::~RawSocket() {
    ::close(fd_);
}

bool RawSocket::SendTo(const std::string& name, const std::vector<unsigned char>& bytes) {
    struct sockaddr_un address = Address(domain_ + "/" + name);
    return ::sendto(fd_, bytes.data(), bytes.size(), 0,
                    reinterpret_cast<struct sockaddr*>(&address),
                    sizeof address) == static_cast<ssize_t>(bytes.size());
}

std::vector<unsigned char> RawSocket::Receive() {
    std::vector<unsigned char> bytes(70000);
    const ssize_t got = ::recv(fd_, bytes.data(), bytes.size(), 0);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

ForkedPeer::ForkedPeer(std::function<int()> body) {
    pid_ = ::fork();
    if (pid_ == 0) {
        ::_exit(body());
    }
}

ForkedPeer::~ForkedPeer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

int ForkedPeer::Wait(int timeoutMs) {
    for (int waited = 0; pid_ > 0; waited += 5) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (waited >= timeoutMs) {
            break;  // the destructor kills it
        }
        ::usleep(5000);
    }
    return -1;
}
