#include "LinxIpcImpl.h"

#include <errno.h>
#include <poll.h>
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
#include "PendingWrites.h"

namespace {

// Room for several largest frames in flight from one sender.
const int kSocketBufferBytes = 4 * (IpcMessage::kMaxPayload + 4096);
// How long the socket may stay empty before the process counts as idle.
const int kIdleGraceMs = 2;

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

bool LinxIpcImpl::Authentic(const hostipc::FrameView& frame, const struct sockaddr_un& from,
                            socklen_t fromLength) const {
    // The source address is the path the sender bound: <domain>/<its name>.
    const std::size_t offset = offsetof(struct sockaddr_un, sun_path);
    std::size_t pathLength = fromLength > offset ? fromLength - offset : 0;
    if (pathLength > sizeof from.sun_path) {
        pathLength = sizeof from.sun_path;  // the kernel reports the length before truncation
    }
    while (pathLength > 0 && from.sun_path[pathLength - 1] == '\0') {
        --pathLength;
    }
    const bool fromItsName =
        pathLength == domain_.size() + 1 + frame.senderLength &&
        std::memcmp(from.sun_path, domain_.data(), domain_.size()) == 0 &&
        from.sun_path[domain_.size()] == '/' &&
        std::memcmp(from.sun_path + domain_.size() + 1, frame.sender, frame.senderLength) == 0;
    if (!fromItsName) {
        std::fprintf(stderr,
                     "LinxIpc: %s dropped a message of type %#x claiming to be from %.*s: it came "
                     "from '%.*s'\n",
                     name_.c_str(), frame.type, static_cast<int>(frame.senderLength), frame.sender,
                     static_cast<int>(pathLength), from.sun_path);
        return false;
    }
    if ((frame.type == LinxIpc::kShutdownNotice || frame.type == LinxIpc::kProcessDiedNotice) &&
        (frame.senderLength != stateMgrName_.size() ||
         std::memcmp(frame.sender, stateMgrName_.data(), frame.senderLength) != 0)) {
        std::fprintf(stderr, "LinxIpc: %s dropped a %s notice from %.*s: only %s gives it\n",
                     name_.c_str(),
                     frame.type == LinxIpc::kShutdownNotice ? "shutdown" : "process-died",
                     static_cast<int>(frame.senderLength), frame.sender, stateMgrName_.c_str());
        return false;
    }
    return true;
}

void LinxIpcImpl::SetReceiveWait(int waitMs) {
    if (waitMs == receiveWaitMs_) {
        return;
    }
    // 0 waits for ever.
    const struct timeval wait = {waitMs / 1000, (waitMs % 1000) * 1000};
    if (::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) == 0) {
        receiveWaitMs_ = waitMs;
    }
}

LinxIpcImpl::Read LinxIpcImpl::ReadOne(hostipc::FrameView& frame, int waitMs) {
    if (waitMs != 0) {
        SetReceiveWait(waitMs < 0 ? 0 : waitMs);
    }
    struct sockaddr_un from;
    socklen_t fromLength = sizeof from;
    const ssize_t got =
        ::recvfrom(fd_, datagram_.data(), datagram_.size(), waitMs == 0 ? MSG_DONTWAIT : 0,
                   reinterpret_cast<struct sockaddr*>(&from), &fromLength);
    if (got < 0) {
        if (errno == EINTR) {
            return Read::kDropped;
        }
        return errno == EAGAIN || errno == EWOULDBLOCK ? Read::kEmpty : Read::kFailed;
    }
    // A datagram filling the whole buffer was longer than any valid frame.
    if (static_cast<std::size_t>(got) >= datagram_.size() ||
        !hostipc::ParseFrame(datagram_.data(), static_cast<std::size_t>(got), frame)) {
        std::fprintf(stderr, "LinxIpc: %s dropped a malformed datagram of %ld bytes\n",
                     name_.c_str(), static_cast<long>(got));
        return Read::kDropped;
    }
    return Authentic(frame, from, fromLength) ? Read::kGot : Read::kDropped;
}

void LinxIpcImpl::Fill(IpcMessage& message, const hostipc::FrameView& frame) {
    {
        hostipc::SeamBypass bypass;
        if (message.Allocate(frame.type, frame.payloadLength,
                             reinterpret_cast<char*>(frame.payload)) != 0) {
            std::fprintf(stderr,
                         "LinxIpc: %s: no memory for the %u bytes of a message of type %u\n",
                         name_.c_str(), frame.payloadLength, frame.type);
            message.Allocate(frame.type, 0, nullptr);
        }
    }
    senderScratch_.assign(frame.sender, frame.senderLength);
    message.SetSender(senderScratch_);
}

void LinxIpcImpl::ReadAhead() {
    hostipc::FrameView next;
    Read read;
    while ((read = ReadOne(next, 0)) == Read::kDropped) {
    }
    if (read == Read::kGot) {
        backlog_.Push(next);
    }
}

void LinxIpcImpl::AnswerSync() {
    // A requester that does not read its replies falls under the stalled-peer pacing.
    Notify(senderScratch_, syncReply_, true);
}

void LinxIpcImpl::Dispatch(const IpcMessage& message) {
    Handler handler;
    switch (message.MsgType()) {
        case LinxIpc::kShutdownNotice:
            handler = shutdown;
            break;
        case LinxIpc::kProcessDiedNotice:
            handler = processDied;
            break;
        default:
            handler = HandlerOf(message.MsgType());
            break;
    }
    // Copied out first: the handler may deregister itself or register others.
    if (handler.function != nullptr) {
        handler.function(&owner_, handler.context);
    }
}

bool LinxIpcImpl::Matches(const Wanted& wanted, const hostipc::FrameView& frame) {
    return hostipc::TypeMatches(wanted.type, frame.type) &&
           (wanted.sender.empty() ||
            (wanted.sender.size() == frame.senderLength &&
             std::memcmp(wanted.sender.data(), frame.sender, frame.senderLength) == 0));
}

bool LinxIpcImpl::TakeHeld(const Wanted& wanted, IpcMessage& target) {
    std::size_t held = wanted.any ? backlog_.First() : backlog_.Find(wanted.type, wanted.sender);
    // A sync request held back is answered when its turn comes: what came before it is handled.
    while (wanted.any && held != hostipc::Backlog::kNone &&
           backlog_.TypeAt(held) == hostipc::kSyncRequest) {
        backlog_.Drop(held, senderScratch_);
        AnswerSync();
        held = backlog_.First();
    }
    if (held == hostipc::Backlog::kNone) {
        return false;
    }
    backlog_.Take(held, target, senderScratch_);
    return true;
}

void LinxIpcImpl::LogBacklogFull(const Wanted& wanted) {
    if (backlogFullLogged_) {
        return;
    }
    std::fprintf(stderr,
                 "LinxIpc: %s holds back %zu messages (%zu bytes) while waiting for type %#x "
                 "from '%s'; the rest waits in its queue\n",
                 name_.c_str(), backlog_.Count(), backlog_.Bytes(), wanted.type,
                 wanted.sender.c_str());
    backlogFullLogged_ = true;
}

bool LinxIpcImpl::WaitedOut(bool& idle, bool shortWait, int waitMs, int remaining) {
    // Also when the time-out is already over: the caller is about to get on with its pass,
    // maybe to wait again at once, and what it stored must not wait.
    if (!idle) {
        hostsystem::WritePending();
        idle = true;
    }
    struct pollfd ready = {fd_, POLLIN, 0};
    if (shortWait && ::poll(&ready, 1, waitMs) > 0) {
        return false;
    }
    return waitMs == remaining;
}

int LinxIpcImpl::ReadUntilMatch(int timeoutMs, const Wanted& wanted, IpcMessage& target) {
    const unsigned long long deadline =
        timeoutMs < 0 ? 0 : hostsystem::MonotonicMs() + static_cast<unsigned int>(timeoutMs);
    // Nothing came within the grace and what was kept for writing has been written.
    bool idle = false;
    for (;;) {
        // A selective receive stops reading at the bound: the rest stays in the socket and its
        // senders wait, and what it waits for cannot get past them before the loop has taken
        // what is held.
        if (!backlog_.HasRoom()) {
            LogBacklogFull(wanted);
            return LinxIpc::kTimeout;
        }
        int remaining = -1;
        if (timeoutMs >= 0) {
            const unsigned long long now = hostsystem::MonotonicMs();
            remaining = now >= deadline ? 0 : static_cast<int>(deadline - now);
        }
        // One blocking recv per message: it returns at once when something waits. Only the
        // first kIdleGraceMs are waited without writing: a sender pausing for a moment in a
        // flood costs no write, a process about to sit idle leaves nothing unwritten.
        const int waitMs =
            idle || (remaining >= 0 && remaining <= kIdleGraceMs) ? remaining : kIdleGraceMs;
        // SO_RCVTIMEO counts in scheduler ticks: a short wait (peers polling several endpoints
        // in turn) is timed by poll instead.
        const bool shortWait = waitMs > 0 && waitMs <= kIdleGraceMs && waitMs == remaining;
        hostipc::FrameView frame;
        const Read read = ReadOne(frame, shortWait ? 0 : waitMs);
        if (read == Read::kFailed) {
            return LinxIpc::kError;
        }
        if (read == Read::kGot && wanted.any && frame.type == hostipc::kSyncRequest) {
            senderScratch_.assign(frame.sender, frame.senderLength);
            AnswerSync();
            // Answered in the call's last look: a flood of them ends it like silence.
            if (remaining == 0) {
                return LinxIpc::kTimeout;
            }
        } else if (read == Read::kGot) {
            if (Matches(wanted, frame)) {
                Fill(target, frame);
                return 0;
            }
            backlog_.Push(frame);
        } else if (read == Read::kEmpty && WaitedOut(idle, shortWait, waitMs, remaining)) {
            return LinxIpc::kTimeout;
        }
    }
}

int LinxIpcImpl::Deliver(bool any) {
    if (any && backlog_.Empty() && current_.GetSender() == stateMgrName_) {
        ReadAhead();
    }
    // Read first: the quit handler builds its answer in the current message.
    const bool quit = current_.MsgType() == LinxIpc::kShutdownNotice;
    Dispatch(current_);
    if (quit) {
        return LinxIpc::kShutdown;
    }
    // A shutdown notice right behind this message is handled in the same call, after it: the
    // caller learns of the quit together with the last message that came before it.
    const std::size_t next = backlog_.First();
    if (!any || next == hostipc::Backlog::kNone ||
        backlog_.TypeAt(next) != LinxIpc::kShutdownNotice) {
        return 0;
    }
    backlog_.Take(next, notice_, senderScratch_);
    active_ = &notice_;
    Dispatch(notice_);
    active_ = &current_;
    return LinxIpc::kShutdown;
}

int LinxIpcImpl::Receive(int timeoutMs, unsigned int type, const std::string& sender,
                         IpcMessage* out) {
    if (fd_ < 0) {
        return LinxIpc::kError;
    }
    const Wanted wanted = {type, sender, type == 0 && sender.empty()};
    IpcMessage& target = out != nullptr ? *out : current_;
    // What was read before and held back is older than anything still in the socket.
    if (!TakeHeld(wanted, target)) {
        const int read = ReadUntilMatch(timeoutMs, wanted, target);
        if (read != 0) {
            return read;
        }
    }
    if (backlog_.Empty()) {
        backlogFullLogged_ = false;
    }
    return out != nullptr ? 0 : Deliver(wanted.any);
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
