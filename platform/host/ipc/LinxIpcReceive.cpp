// The receiving side of the endpoint: a datagram read and checked, the messages held back for a
// selective receive, sync requests answered in their turn, and the handler run.
#include "LinxIpcImpl.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "HostDomain.h"
#include "IpcInternal.h"
#include "PendingWrites.h"

namespace {

// How long the socket may stay empty before the process counts as idle.
const int kIdleGraceMs = 2;

}  // namespace

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
