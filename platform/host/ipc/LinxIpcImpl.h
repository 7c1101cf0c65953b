// The endpoint behind LinxIpc: one AF_UNIX datagram socket bound at <domain>/<name>, the
// messages read but not yet taken, the destinations that stopped reading, and the handler table.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <map>
#include <string>
#include <vector>

#include "Backlog.h"
#include "IpcFrame.h"
#include "LinxIpc.h"
#include "StalledPeers.h"

class LinxIpcImpl {
public:
    LinxIpcImpl(LinxIpc& owner, const std::string& name);
    ~LinxIpcImpl();

    int Init();
    const std::string& Name() const { return name_; }
    int Receive(int timeoutMs, unsigned int type, const std::string& sender, IpcMessage* out);
    int Notify(const std::string& destination, const IpcMessage& message, bool waitForRoom);

    struct Handler {
        LinxHandler function = nullptr;
        void* context = nullptr;
    };
    void SetHandler(unsigned int type, LinxHandler function, void* context);
    void ClearHandler(unsigned int type);
    Handler HandlerOf(unsigned int type) const;
    Handler shutdown;
    Handler processDied;

    // The message handlers see: the one received, or the shutdown notice while its handler runs.
    IpcMessage& Current() { return *active_; }

private:
    enum class Read { kGot, kEmpty, kDropped, kFailed };
    // One recv, waiting up to waitMs (0: not at all, -1: for ever): a well-formed frame from its
    // claimed sender (kGot), nothing in time (kEmpty), or a datagram dropped with a line or an
    // interrupted wait (kDropped).
    Read ReadOne(hostipc::FrameView& frame, int waitMs);
    // SO_RCVTIMEO, set only when it changes (0 = for ever).
    void SetReceiveWait(int waitMs);
    // True when the frame may be taken: its sender is the socket it came from, and notices
    // only the state manager gives come from it.
    bool Authentic(const hostipc::FrameView& frame, const struct sockaddr_un& from,
                   socklen_t fromLength) const;
    void Fill(IpcMessage& message, const hostipc::FrameView& frame);
    // Reads ahead, without waiting, one message into the backlog, so that a shutdown notice
    // right behind the state manager's message just taken is seen.
    void ReadAhead();
    // Sends the sync reply to senderScratch_.
    void AnswerSync();
    // Runs the handler for `message`'s type, if any.
    void Dispatch(const IpcMessage& message);
    // What a receive waits for: a message of a type, from a sender, or (any) the next one.
    struct Wanted {
        unsigned int type;
        const std::string& sender;
        bool any;
    };
    static bool Matches(const Wanted& wanted, const hostipc::FrameView& frame);
    // Takes into `target` the oldest message held back that `wanted` matches, answering the
    // sync requests held before it; false when none is held.
    bool TakeHeld(const Wanted& wanted, IpcMessage& target);
    // Reads the socket until a message `wanted` matches is in `target` (0), holding back the
    // others and answering sync requests; kTimeout when the time is out or the backlog full,
    // kError when the socket fails.
    int ReadUntilMatch(int timeoutMs, const Wanted& wanted, IpcMessage& target);
    // Says once, until the backlog empties, that it is full.
    void LogBacklogFull(const Wanted& wanted);
    // After a read found nothing: writes what is pending the first time, then waits out a short
    // wait by poll; true when the call's time is over.
    bool WaitedOut(bool& idle, bool shortWait, int waitMs, int remaining);
    // Runs the handler of the message just taken, and of a shutdown notice right behind it.
    int Deliver(bool any);
    int Send(const struct msghdr& frame, bool wait, const std::string& destination);
    bool FillAddress(const std::string& destination, struct sockaddr_un& address,
                     socklen_t& length) const;

    LinxIpc& owner_;
    std::string name_;
    std::string domain_;
    std::string stateMgrName_;
    int fd_ = -1;
    dev_t boundDevice_ = 0;
    ino_t boundInode_ = 0;
    IpcMessage current_;
    IpcMessage notice_;
    IpcMessage syncReply_;
    IpcMessage* active_ = &current_;
    hostipc::Backlog backlog_;
    bool backlogFullLogged_ = false;
    int receiveWaitMs_ = -1;
    hostipc::StalledPeers stalled_;
    std::vector<unsigned char> datagram_;
    std::string senderScratch_;
    std::map<unsigned int, Handler> handlers_;
};
