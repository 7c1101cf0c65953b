// The capture `mdstore traffic` writes: linxpeer's text form of the messages between the
// vehicle's processes and MetadataMgr, one line each, at the milliseconds of the drive.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Item.h"

namespace traffic {

typedef std::vector<unsigned char> Bytes;

const char kProcess[] = "MetadataMgr";
const unsigned int kSubscribeRequest = 0xFFFFFF10u;
const unsigned int kSubscribeReply = 0xFFFFFF11u;
const unsigned int kShutdownNotice = 0xFFFFFF01u;
const unsigned int kPing = 13488;
const unsigned int kPingResponse = 13489;

template <typename T>
void Put(Bytes& out, T value) {
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

inline Bytes Encoded(const Item& item) {
    Bytes out(item.Size());
    item.Encode(out.data());
    return out;
}

class CaptureWriter {
public:
    explicit CaptureWriter(std::FILE* out) : out_(out) {}

    void At(unsigned long long ms) { ms_ = ms; }
    void Recv(const char* role, unsigned int type) {
        std::fprintf(out_, "%llu recv %s %s %u -\n", ms_, role, kProcess, type);
    }
    void Sent(const char* role, unsigned int type, const Bytes& payload) {
        std::string hex;
        static const char kDigits[] = "0123456789abcdef";
        for (unsigned char byte : payload) {
            hex += kDigits[byte >> 4];
            hex += kDigits[byte & 0x0F];
        }
        std::fprintf(out_, "%llu sent %s %s %u %s\n", ms_, role, kProcess, type,
                     hex.empty() ? "-" : hex.c_str());
        ++sent_;
    }
    unsigned long SentCount() const { return sent_; }
    void Serve(const char* role, unsigned int itemId, unsigned int notifyId, const Item& item) {
        Recv(role, kSubscribeRequest);
        const unsigned int head[3] = {itemId, notifyId, 0};
        Bytes reply(sizeof head + item.Size());
        std::memcpy(reply.data(), head, sizeof head);
        item.Encode(reply.data() + sizeof head);
        Sent(role, kSubscribeReply, reply);
    }
    void Tick(std::uint32_t tick) {
        if (!ticked_ || tick != tick_) {
            std::fprintf(out_, "%llu tick %u\n", ms_, tick);
        }
        ticked_ = true;
        tick_ = tick;
    }
    // A ping answered: every message before it has been handled, and the loop pass after
    // it has read the clock.
    void Ping() {
        Sent("Cli", kPing, Bytes());
        Recv("Cli", kPingResponse);
    }
    // Everything sent before has been handled, and the loop pass after it has run.
    void Sync() { std::fprintf(out_, "%llu sync Cli %s\n", ms_, kProcess); }
    void Comment(const std::string& text) { std::fprintf(out_, "# %s\n", text.c_str()); }

private:
    std::FILE* out_;
    unsigned long sent_ = 0;
    unsigned long long ms_ = 0;
    bool ticked_ = false;
    std::uint32_t tick_ = 0;
};

}  // namespace traffic
