// The server processes of the vehicle played by the test: each has its own endpoint under the
// process's real name and serves items through the real subscribe protocol. A thread of the
// test polls the endpoints while the manager, on the test's main thread, waits for answers.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Item.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "Subscribe.h"

// Serves the items it was given; an item it does not hold, or one marked refused, is refused.
class ItemServer : public SubscribeServer {
public:
    explicit ItemServer(LinxIpc& ipc) : SubscribeServer(ipc) {}
    void Serve(unsigned int itemId, const Item& item) { items_[itemId] = &item; }
    void Refuse(unsigned int itemId) { refused_.insert(itemId); }
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override;

private:
    std::map<unsigned int, const Item*> items_;
    std::set<unsigned int> refused_;
};

class ServerFarm {
public:
    ServerFarm();
    ~ServerFarm();  // stops polling
    ServerFarm(const ServerFarm&) = delete;
    ServerFarm& operator=(const ServerFarm&) = delete;

    // Opens the endpoint of `process` (before Start, or while stopped).
    ItemServer& Add(e_Process process);
    // Closes the endpoint of `process`: its subscribers are forgotten, as after a crash.
    void Remove(e_Process process);
    ItemServer* Find(e_Process process);
    LinxIpc* EndpointOf(e_Process process);
    // The stream manager's answer to the recording-in-progress request ("" = none).
    void SetRecording(const std::string& reid) { recording_ = reid; }

    void Start();
    void Stop();

private:
    struct Served {
        e_Process process;
        std::unique_ptr<LinxIpc> ipc;
        std::unique_ptr<ItemServer> server;
    };
    static void RecordingRequestHandler(LinxIpc* ipc, void* context);
    void Poll();

    std::vector<Served> served_;
    std::unique_ptr<LinxIpc> streamMgr_;
    std::string recording_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
