// Helpers of the event tests: raw payloads and the manager's handlers bound on its endpoint.
#pragma once

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "ManagerHarness.h"

namespace events {

// Ids the tests bind subscription handlers to on the manager's endpoint; the real ids belong to
// the subscriptions and play no part in what a handler does.
const unsigned int kTestNotice = 40001;

// Messages the manager serves on its own endpoint.
const unsigned int kPing = 13488;
const unsigned int kPingResponse = 13489;
const unsigned int kMetadataToFile = 13490;
const unsigned int kMetadataToFileResponse = 13491;
const unsigned int kLastSystemTick = 13498;
const unsigned int kLastSystemTickResponse = 13499;
const unsigned int kVideoStreamState = 13500;
const unsigned int kCameraState = 13501;
const unsigned int kMicState = 13502;
const unsigned int kRecordStartStop = 13503;
const unsigned int kBookmark = 13509;

// A payload built field by field in native order.
class Payload {
public:
    template <typename T>
    Payload& Add(T value) {
        const size_t at = bytes_.size();
        bytes_.resize(at + sizeof value);
        std::memcpy(&bytes_[at], &value, sizeof value);
        return *this;
    }
    Payload& Words(std::initializer_list<unsigned int> words) {
        for (unsigned int w : words) {
            Add(w);
        }
        return *this;
    }
    const unsigned char* Data() const { return bytes_.data(); }
    unsigned int Size() const { return static_cast<unsigned int>(bytes_.size()); }
    std::vector<unsigned char>& Bytes() { return bytes_; }

private:
    std::vector<unsigned char> bytes_;
};

// The manager's endpoint also dispatches `handler` under `id`, as a subscription would.
inline void Bind(ManagerHarness& h, LinxHandler handler, unsigned int id = kTestNotice) {
    h.ipc.RegisterHandler(id, handler, h.manager.get());
}

inline bool Send(ManagerHarness& h, const Payload& p, unsigned int id = kTestNotice) {
    return h.Deliver(id, p.Data(), p.Size());
}

// The ReportStateData calls as "StateData <tag> <flag> <tick>".
inline std::vector<std::string> States(const std::vector<StoreRecord>& records) {
    return Brief(records, {"ReportStateData"}, {"tag", "flag", "tick"});
}

}  // namespace events
