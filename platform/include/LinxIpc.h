// IPC endpoint of the message-passing layer: named endpoints, numbered messages,
// handlers dispatched inside Receive.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

class LinxIpc;

// Every handler of the system has this shape: the endpoint and the context given at registration.
typedef void (*LinxHandler)(LinxIpc* ipc, void* context);

// One message: a type, an optional payload and the name of the endpoint that sent it.
class IpcMessage {
public:
    // Bytes past the payload that are always readable and zero: a reader of a fixed layout
    // longer than a short payload sees zeros, never foreign memory.
    static const unsigned kGuardBytes = 4096;
    // Largest payload one message carries.
    static const unsigned kMaxPayload = 64 * 1024;

    IpcMessage();
    ~IpcMessage();
    IpcMessage(const IpcMessage& other);
    IpcMessage& operator=(const IpcMessage& other);

    // Turns this object into a new message of `type` holding a copy of `size` bytes of `data`
    // (zeros when data is null). Returns 0 on success, non-zero on failure (too large,
    // allocation refused). Reuses the buffer it already has where it can.
    int Allocate(unsigned int type, unsigned int size, char* data);

    unsigned int MsgType() const { return type_; }
    unsigned int Size() const { return size_; }
    // The payload, or null when the message carries none (size 0).
    unsigned char* DataPtr();
    const unsigned char* DataPtr() const;
    // Name of the endpoint that sent the message (empty for one built locally).
    const std::string& GetSender() const { return sender_; }

    // Used by the endpoint when it fills a received message.
    void SetSender(const std::string& sender) { sender_ = sender; }

private:
    bool Reserve(unsigned int size);

    unsigned int type_ = 0;
    unsigned int size_ = 0;
    unsigned int capacity_ = 0;  // payload bytes the buffer holds besides the guard
    unsigned char* buffer_ = nullptr;
    std::string sender_;
};

class LinxIpcImpl;

class LinxIpc {
public:
    static const std::string emptyString;

    // Receive results besides 0 (a message was received).
    static const int kShutdown = 108;  // a shutdown notice was dispatched in this call
    static const int kTimeout = 110;   // nothing matching arrived in time
    static const int kError = 5;       // endpoint not initialised or the transport failed

    // Reserved message types. The state manager sends the first two; the endpoint dispatches
    // them to the handlers set with RegisterShutdown and RegisterProcessDied.
    static const unsigned int kShutdownNotice = 0xFFFFFF01u;
    static const unsigned int kProcessDiedNotice = 0xFFFFFF02u;
    // Subscribe protocol (SubscribeClient / SubscribeServer).
    static const unsigned int kSubscribeRequest = 0xFFFFFF10u;
    static const unsigned int kSubscribeReply = 0xFFFFFF11u;
    static const unsigned int kUnsubscribeRequest = 0xFFFFFF12u;

    explicit LinxIpc(const std::string& name);
    ~LinxIpc();
    LinxIpc(const LinxIpc&) = delete;
    LinxIpc& operator=(const LinxIpc&) = delete;

    // Opens the endpoint under its name in the current domain. 0 = success.
    int Init();
    const std::string& Name() const;

    // Waits up to timeoutMs (-1 = for ever) for the first message whose type matches `type`
    // (0 = any) and whose sender matches `sender` (empty = any). Messages are taken in arrival
    // order; those that do not match are kept, up to a bound, for a later Receive. With `out`
    // null the message becomes the current message and its handler runs; with `out` given it is
    // copied there and no handler runs. Returns 0, kShutdown, kTimeout or kError.
    int Receive(int timeoutMs, unsigned int type, const std::string& sender, IpcMessage* out);

    // Sends `message` to the endpoint named `destination`. 0 = success; non-zero when the
    // destination does not exist or the send failed. The bool is kept for interface
    // compatibility (the target's library uses it to mark the message as owned by the sender).
    int Notify(const std::string& destination, IpcMessage& message, bool keep);

    void RegisterHandler(unsigned int type, LinxHandler handler, void* context);
    void DeregisterHandler(unsigned int type);
    void RegisterShutdown(LinxHandler handler, void* context);
    void DeregisterShutdown();
    void RegisterProcessDied(LinxHandler handler, void* context);
    void DeregisterProcessDied();

    // The message last received with Receive(..., nullptr); handlers read it and may reuse it
    // (Allocate) to build their answer.
    IpcMessage& CurrentMessage();

private:
    std::unique_ptr<LinxIpcImpl> impl_;
};
