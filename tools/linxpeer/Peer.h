// The endpoints the bench peer plays: one role per process name, each with its own endpoint,
// the items it serves, the subscriptions it made and the parts it answers by itself (state
// manager, stream manager). All roles are polled in turn on one thread.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FieldCodec.h"
#include "ItemRegistry.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "Subscribe.h"

// One message that reached a role, kept until an expectation takes it.
struct Received {
    unsigned long number = 0;
    std::string role;
    std::string sender;
    unsigned int type = 0;
    Bytes payload;
    std::string itemClass;  // set when it is a notice of one of the role's subscriptions
    NamedValues item;
    bool taken = false;

    // "recv ROLE <- SENDER TYPE NAME len=N FIELDS [CLASS f=v...] hex=..."
    std::string Line() const;
};

struct ServedItem {
    const ItemClass* itemClass = nullptr;
    std::unique_ptr<Item> item;
    // Without an item: served as these bytes, as a replayed capture gives them.
    Bytes raw;
    bool refused = false;
};
typedef std::map<unsigned int, ServedItem> ServedItems;

// Answers subscribe requests from the role's item table; a refused or unknown item is left
// unserved, which refuses the subscription.
class PeerServer : public SubscribeServer {
public:
    PeerServer(LinxIpc& ipc, ServedItems& items, const std::string& role)
        : SubscribeServer(ipc), items_(items), role_(role) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override;

private:
    ServedItems& items_;
    const std::string& role_;
};

struct Subscription {
    std::unique_ptr<SubscribeClient> client;
    unsigned int notifyId = 0;
    const ItemClass* itemClass = nullptr;
};

class Peer;

class Role {
public:
    Role(Peer& peer, const std::string& name, e_Process process);
    ~Role();
    Role(const Role&) = delete;
    Role& operator=(const Role&) = delete;

    // Opens the endpoint and its server (again after Close); false with `error` set.
    bool Open(std::string& error);
    // Closes the endpoint as a dying process would; served values are kept for a restart.
    void Close();
    bool Alive() const { return ipc_ != nullptr; }
    const std::string& Name() const { return name_; }
    e_Process Process() const { return process_; }
    LinxIpc& Ipc() { return *ipc_; }
    PeerServer& Server() { return *server_; }
    // Receives and records everything waiting; the number of messages.
    int Poll();

    ServedItems served;
    std::vector<Subscription> subscriptions;

    // Playing the state manager: answer the started notice with a subscribe request carrying
    // `subscribeFlag`, and the subscribed answer with the full-run message.
    bool stateMgr = false;
    unsigned char subscribeFlag = 1;
    bool sendFullRun = true;
    std::vector<std::string> announced;  // endpoints that sent the started notice
    // The endpoint whose sync reply the role waits for (Peer::Sync), and whether it came.
    std::string syncWith;
    bool synced = false;
    // Playing the stream manager: answer the recording question with `reid`.
    bool streamMgr = false;
    std::string reid;

private:
    static void NoticeHandler(LinxIpc* ipc, void* context);

    Peer& peer_;
    std::string name_;
    e_Process process_;
    // The server and subscriptions hold the endpoint: destroyed before it.
    std::unique_ptr<LinxIpc> ipc_;
    std::unique_ptr<PeerServer> server_;
};

class Peer {
public:
    // Endpoint name of a process given by name or number, and its number (e_Process_Unknown
    // for a name outside the system's list).
    static std::string ResolveName(const std::string& process, e_Process& number);
    // Ends every Pump: set from a signal handler.
    static void RequestStop();
    static bool StopRequested();

    Role* Find(const std::string& process);
    // The role of that process, opened when it is new or dead; null with `error` set.
    Role* Open(const std::string& process, std::string& error);
    // The role steps send from when none is named: the first live one, else a private one.
    Role* Default(std::string& error);
    Role* StateMgr();

    // Polls every role for `ms` milliseconds (0: one pass). False when stopped by a signal.
    bool Pump(int ms);
    void Record(Role& role, const IpcMessage& message);
    bool Send(Role& from, const std::string& destination, unsigned int type, const Bytes& payload,
              std::string& error);

    // Sends a sync request to `destination`: its reply sets from.synced once every message
    // `from` sent before it has been handled and the destination's loop is waiting again.
    bool Sync(Role& from, const std::string& destination, std::string& error);

    std::list<Received>& Inbox() { return inbox_; }

private:
    // The parts a role plays by itself.
    void Answer(Role& role, const Received& received);

    static const std::size_t kInboxLimit = 10000;

    std::vector<std::unique_ptr<Role>> roles_;
    std::list<Received> inbox_;
    unsigned long received_ = 0;
};
