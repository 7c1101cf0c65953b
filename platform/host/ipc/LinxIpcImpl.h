// The endpoint behind LinxIpc: one AF_UNIX datagram socket bound at <domain>/<name>, the
// messages read but not yet taken, and the handler table.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include "IpcFrame.h"
#include "LinxIpc.h"

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

    IpcMessage current;

private:
    // Moves every datagram already waiting into pending_. False on a transport error.
    bool Drain();
    // Runs the handler for `current`'s type, if any.
    void Dispatch();
    enum class Pick { kAny, kShutdownOnly, kNoShutdown };
    // First pending message, in arrival order, that matches the filter; pending_.end() when none.
    std::list<IpcMessage>::iterator FindPending(unsigned int type, const std::string& sender,
                                                Pick pick);
    void Recycle(std::list<IpcMessage>::iterator message);
    bool FillAddress(const std::string& destination, struct sockaddr_un& address,
                     socklen_t& length) const;

    LinxIpc& owner_;
    std::string name_;
    std::string domain_;
    int fd_ = -1;
    dev_t boundDevice_ = 0;
    ino_t boundInode_ = 0;
    // Arrival order; spare_ keeps emptied nodes and their buffers for the next arrivals.
    std::list<IpcMessage> pending_;
    std::list<IpcMessage> spare_;
    std::vector<unsigned char> datagram_;
    std::string senderScratch_;
    std::map<unsigned int, Handler> handlers_;
};
