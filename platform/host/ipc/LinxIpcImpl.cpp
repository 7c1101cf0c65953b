#include "LinxIpcImpl.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "HostDomain.h"
#include "IpcInternal.h"
#include "LinxServerNameList.h"

namespace {

// Room for several largest frames in flight from one sender.
const int kSocketBufferBytes = 4 * (IpcMessage::kMaxPayload + 4096);

// True when a datagram socket is bound at `address` and accepts connections.
bool SomeoneListens(const struct sockaddr_un& address, socklen_t length) {
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return true;  // cannot tell: do not take the name away from anyone
    }
    const bool live =
        ::connect(probe, reinterpret_cast<const struct sockaddr*>(&address), length) == 0 ||
        (errno != ECONNREFUSED && errno != ENOENT);
    ::close(probe);
    return live;
}

// Removes the socket file a crashed endpoint left at `address`. Anything else there (a live
// endpoint, a file, a directory, a link) is somebody's and stays: false, said on stderr.
bool RemoveStaleSocket(const std::string& name, const struct sockaddr_un& address,
                       socklen_t length) {
    struct stat info;
    if (::lstat(address.sun_path, &info) != 0) {
        return errno == ENOENT;  // gone meanwhile: the name is free
    }
    if (!S_ISSOCK(info.st_mode)) {
        std::fprintf(stderr,
                     "LinxIpc: endpoint path %s is held by %s, not a socket; left as it is\n",
                     address.sun_path,
                     S_ISREG(info.st_mode)   ? "a regular file"
                     : S_ISDIR(info.st_mode) ? "a directory"
                     : S_ISLNK(info.st_mode) ? "a symbolic link"
                                             : "a special file");
        return false;
    }
    if (SomeoneListens(address, length)) {
        std::fprintf(stderr, "LinxIpc: endpoint %s is already in use\n", name.c_str());
        return false;
    }
    return ::unlink(address.sun_path) == 0 || errno == ENOENT;
}

}  // namespace

LinxIpcImpl::LinxIpcImpl(LinxIpc& owner, const std::string& name) : owner_(owner), name_(name) {}

LinxIpcImpl::~LinxIpcImpl() {
    if (fd_ < 0) {
        return;
    }
    ::close(fd_);
    // Remove our socket file, but not one that a later endpoint of the same name bound after
    // taking ours for stale.
    struct sockaddr_un address;
    socklen_t length;
    struct stat info;
    if (FillAddress(name_, address, length) && ::lstat(address.sun_path, &info) == 0 &&
        info.st_dev == boundDevice_ && info.st_ino == boundInode_) {
        ::unlink(address.sun_path);
    }
}

bool LinxIpcImpl::FillAddress(const std::string& destination, struct sockaddr_un& address,
                              socklen_t& length) const {
    const std::size_t total = domain_.size() + 1 + destination.size();
    if (!hostipc::ValidName(destination.data(), destination.size()) ||
        total >= sizeof address.sun_path) {
        return false;
    }
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, domain_.data(), domain_.size());
    address.sun_path[domain_.size()] = '/';
    std::memcpy(address.sun_path + domain_.size() + 1, destination.data(), destination.size());
    length = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + total + 1);
    return true;
}

int LinxIpcImpl::Init() {
    if (fd_ >= 0) {
        return 0;
    }
    domain_ = hostsystem::DomainDir();
    struct sockaddr_un address;
    socklen_t length;
    if (!FillAddress(name_, address, length)) {
        const std::size_t pathLength = domain_.size() + 1 + name_.size();
        if (pathLength >= sizeof address.sun_path) {
            std::fprintf(stderr,
                         "LinxIpc: endpoint path %s/%s is %zu bytes long; a socket address holds "
                         "at most %zu\n",
                         domain_.c_str(), name_.c_str(), pathLength, sizeof address.sun_path - 1);
        } else {
            std::fprintf(stderr, "LinxIpc: cannot use endpoint name '%s'\n", name_.c_str());
        }
        return 1;
    }
    if (!hostsystem::PrepareOwnDir(domain_)) {
        return 2;
    }
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return 3;
    }
    const struct sockaddr* raw = reinterpret_cast<const struct sockaddr*>(&address);
    int error = ::bind(fd, raw, length) == 0 ? 0 : errno;
    if (error == EADDRINUSE) {
        if (!RemoveStaleSocket(name_, address, length)) {
            ::close(fd);
            return 4;
        }
        error = ::bind(fd, raw, length) == 0 ? 0 : errno;
    }
    if (error != 0) {
        std::fprintf(stderr, "LinxIpc: cannot bind endpoint %s: %s\n", address.sun_path,
                     std::strerror(error));
        ::close(fd);
        return 4;
    }
    // The file's mode is the platform's choice, not the umask's; only this user may connect.
    ::chmod(address.sun_path, 0600);
    const int bufferBytes = kSocketBufferBytes;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
    const struct timeval sendWait = {hostipc::kNotifyWaitMs / 1000, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendWait, sizeof sendWait);
    struct stat info;
    if (::lstat(address.sun_path, &info) == 0) {
        boundDevice_ = info.st_dev;
        boundInode_ = info.st_ino;
    }
    datagram_.resize(hostipc::kFrameHeaderSize + hostipc::kMaxNameLength + IpcMessage::kMaxPayload +
                     1);
    if (!backlog_.Allocate() || syncReply_.Allocate(hostipc::kSyncReply, 0, nullptr) != 0) {
        ::close(fd);
        return 3;
    }
    stateMgrName_ = LinxServerNameList::Instance().Name(e_Process_StateMgr);
    fd_ = fd;
    return 0;
}

int LinxIpcImpl::Notify(const std::string& destination, const IpcMessage& message,
                        bool waitForRoom) {
    if (fd_ < 0) {
        return hostipc::kNotifyNotOpen;
    }
    struct sockaddr_un address;
    socklen_t length;
    if (!FillAddress(destination, address, length)) {
        return hostipc::kNotifySendFailed;
    }
    unsigned char header[hostipc::kFrameHeaderSize];
    hostipc::PutFrameHeader(header, message.MsgType(), static_cast<std::uint32_t>(name_.size()),
                            message.Size());
    struct iovec parts[3];
    parts[0].iov_base = header;
    parts[0].iov_len = sizeof header;
    parts[1].iov_base = const_cast<char*>(name_.data());
    parts[1].iov_len = name_.size();
    parts[2].iov_base = const_cast<unsigned char*>(message.DataPtr());
    parts[2].iov_len = message.Size();
    struct msghdr frame;
    std::memset(&frame, 0, sizeof frame);
    frame.msg_name = &address;
    frame.msg_namelen = length;
    frame.msg_iov = parts;
    frame.msg_iovlen = message.Size() > 0 ? 3 : 2;

    const bool stalled = stalled_.Contains(destination);
    const int result = Send(frame, waitForRoom && !stalled, destination);
    if (result == hostipc::kNotifyQueueFull && waitForRoom && !stalled) {
        stalled_.Add(destination);
        std::fprintf(stderr,
                     "LinxIpc: %s: %s does not read its queue; sends to it fail at once until it "
                     "does\n",
                     name_.c_str(), destination.c_str());
    } else if (result != hostipc::kNotifyQueueFull && stalled) {
        stalled_.Remove(destination);
        if (result == 0) {
            std::fprintf(stderr, "LinxIpc: %s: %s reads its queue again\n", name_.c_str(),
                         destination.c_str());
        }
    }
    return result;
}

int LinxIpcImpl::Send(const struct msghdr& frame, bool wait, const std::string& destination) {
    // A blocking send to a full datagram queue sleeps in the kernel until the receiver takes
    // a message or SO_SNDTIMEO (kNotifyWaitMs) runs out; a signal restarts the wait.
    const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
    for (;;) {
        if (::sendmsg(fd_, &frame, flags) >= 0) {
            return 0;
        }
        const int error = errno;
        if (error == EINTR) {
            continue;
        }
        if (error == ENOENT || error == ECONNREFUSED || error == ENOTSOCK) {
            return hostipc::kNotifyNoEndpoint;
        }
        if (error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS) {
            return hostipc::kNotifyQueueFull;
        }
        std::fprintf(stderr, "LinxIpc: %s: send to %s failed: %s\n", name_.c_str(),
                     destination.c_str(), std::strerror(error));
        return hostipc::kNotifySendFailed;
    }
}

void LinxIpcImpl::SetHandler(unsigned int type, LinxHandler function, void* context) {
    Handler& handler = handlers_[type];
    handler.function = function;
    handler.context = context;
}

void LinxIpcImpl::ClearHandler(unsigned int type) {
    handlers_.erase(type);
}

LinxIpcImpl::Handler LinxIpcImpl::HandlerOf(unsigned int type) const {
    auto found = handlers_.find(type);
    return found != handlers_.end() ? found->second : Handler();
}
