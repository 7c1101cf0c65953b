// Helpers of the event tests: raw payloads, the manager's handlers bound on its endpoint, the
// store's records reduced to what an event test compares, and standard error captured to a
// file while the manager logs.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "LogClient.h"
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

// A prepared manager whose endpoint also dispatches `handler` under kTestNotice, as a
// subscription would.
inline void Bind(ManagerHarness& h, LinxHandler handler, unsigned int id = kTestNotice) {
    h.ipc.RegisterHandler(id, handler, h.manager.get());
}

inline bool Send(ManagerHarness& h, const Payload& p, unsigned int id = kTestNotice) {
    return h.Deliver(id, p.Data(), p.Size());
}

// One ReportStateData call as the store recorded it.
struct StateEntry {
    long long tag;
    bool flag;
    long long tick;
    bool operator==(const StateEntry& o) const {
        return tag == o.tag && flag == o.flag && tick == o.tick;
    }
};

inline std::ostream& operator<<(std::ostream& out, const StateEntry& e) {
    return out << "{tag " << e.tag << ", flag " << e.flag << ", tick " << e.tick << "}";
}

inline std::vector<StateEntry> StateEntries(const std::vector<StoreRecord>& records) {
    std::vector<StateEntry> out;
    for (const StoreRecord& r : WithOp(records, "ReportStateData")) {
        out.push_back(StateEntry{r.Int("tag"), r.Get("flag") == "true", r.Int("tick")});
    }
    return out;
}

inline std::vector<std::string> Ops(const std::vector<StoreRecord>& records) {
    std::vector<std::string> out;
    for (const StoreRecord& r : records) {
        out.push_back(r.Op());
    }
    return out;
}

// Standard error goes to a file while this lives; Text() ends the capture and reads it.
class LogCapture {
public:
    explicit LogCapture(const std::string& path, unsigned int level = 0xFF)
        : path_(path), saved_(::dup(STDERR_FILENO)), savedLevel_(LogClient::Instance().Level()) {
        const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
        LogClient::Instance().Level(level);
    }
    ~LogCapture() { Restore(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string Text() {
        Restore();
        return ReadFileText(path_);
    }

private:
    void Restore() {
        if (saved_ >= 0) {
            ::dup2(saved_, STDERR_FILENO);
            ::close(saved_);
            saved_ = -1;
            LogClient::Instance().Level(savedLevel_);
        }
    }
    std::string path_;
    int saved_;
    unsigned int savedLevel_;
};

// Sets an environment variable of this process (and the programs it starts) while it lives.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() { ::unsetenv(name_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
};

inline unsigned int Count(const std::string& text, const std::string& part) {
    unsigned int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}

}  // namespace events
