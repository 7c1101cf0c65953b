// The rest of the vehicle as the process under test sees it: the state manager (handshake,
// control messages, its record and covert-mode events) and the external manager (live
// streams), each on its real endpoint name and served through the real subscribe protocol.
// Everything runs on the test's thread: Pump() receives and dispatches.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "LinxIpc.h"
#include "Subprocess.h"
#include "Subscribe.h"
#include "TestEnv.h"

// Answers every subscribe request for the item ids it was given with a default item.
class StubServer : public SubscribeServer {
public:
    StubServer(LinxIpc& ipc, std::function<Item*(unsigned int itemId)> make);
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override;

private:
    std::function<Item*(unsigned int)> make_;
};

struct Received {
    unsigned int type;
    std::vector<unsigned char> payload;
    bool hasPayload;
};

class Vehicle {
public:
    Vehicle();
    Vehicle(const Vehicle&) = delete;
    Vehicle& operator=(const Vehicle&) = delete;

    // Receives and dispatches on every endpoint for about `ms` milliseconds.
    void Pump(int ms);
    // Pumps until `done` holds; false after timeoutMs.
    bool PumpUntil(const std::function<bool()>& done, int timeoutMs = 20000);
    // Pumps until a message of `type` reached the state manager and takes it from the inbox.
    bool Expect(unsigned int type, Received* out = nullptr, int timeoutMs = 20000);
    // The state manager sends to the process under test, waiting for its endpoint to open.
    bool Send(unsigned int type, const void* payload, unsigned int size);
    bool SendWord(unsigned int type, unsigned int word);
    bool SendByte(unsigned int type, unsigned char byte);

    // Messages that reached the state manager and were not taken yet, in arrival order.
    std::vector<Received> inbox;

private:
    static void Collect(LinxIpc* ipc, void* context);

    LinxIpc stateMgr_;
    LinxIpc externalMgr_;
    StubServer stateServer_;
    StubServer externalServer_;
};

// The process under test with every server but the state manager and the external manager
// switched off, logging every line.
std::vector<std::string> ServerSwitchesOff();
std::unique_ptr<Subprocess> StartManager(const TestEnv& env, std::vector<std::string> extraEnv,
                                         std::vector<std::string> args = {"-l", "255"});
// Index of the first line of `log` containing `text` at or after `from`; npos when none.
size_t FindFrom(const std::string& log, const std::string& text, size_t from = 0);
