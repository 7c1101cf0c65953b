#include "Capture.h"

#include <time.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "LinxIpc.h"

Capture* Capture::active_ = nullptr;
const char* Capture::kMagic = "linxpeer-capture";

namespace capture {

std::string Hex(const Bytes& payload) {
    return payload.empty() ? "-" : codec::Hex(payload, std::numeric_limits<std::size_t>::max());
}

bool Unhex(const std::string& text, Bytes& payload) {
    payload.clear();
    std::string ignored;
    return text == "-" || codec::AppendField("hex:" + text, payload, ignored);
}

unsigned long long NowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000u +
           static_cast<unsigned long long>(now.tv_nsec) / 1000000u;
}

}  // namespace capture

namespace {

unsigned int U32At(const Bytes& payload, std::size_t offset) {
    unsigned int value = 0;
    if (payload.size() >= offset + sizeof value) {
        std::memcpy(&value, payload.data() + offset, sizeof value);
    }
    return value;
}

}  // namespace

Capture::~Capture() {
    if (active_ == this) {
        active_ = nullptr;
    }
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

const char* Capture::NativeOrder() {
    const unsigned int one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1 ? "little" : "big";
}

bool Capture::Open(const std::string& path, std::string& error) {
    file_ = std::fopen(path.c_str(), "w");
    if (file_ == nullptr) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    // Line-buffered, so a session cut short by a signal still leaves every line before it.
    std::setvbuf(file_, nullptr, _IOLBF, 0);
    std::fprintf(file_, "%s 1 %s\n", kMagic, NativeOrder());
    startMs_ = capture::NowMs();
    active_ = this;
    return true;
}

unsigned long long Capture::Elapsed() const {
    return capture::NowMs() - startMs_;
}

void Capture::Message(const char* direction, const std::string& role, const std::string& other,
                      unsigned int type, const Bytes& payload) {
    std::fprintf(file_, "%llu %s %s %s %u %s\n", Elapsed(), direction, role.c_str(), other.c_str(),
                 type, capture::Hex(payload).c_str());
    if (direction[0] == 'r') {
        Follow(role, other, type, payload);
    }
}

void Capture::Event(const char* what, const std::string& role, const std::string& other) {
    std::fprintf(file_, "%llu %s %s%s%s\n", Elapsed(), what, role.c_str(), other.empty() ? "" : " ",
                 other.c_str());
    if (std::strcmp(what, "close") == 0) {
        // A server that died has forgotten its subscribers.
        for (auto& item : subscribers_) {
            if (item.first.first == role) {
                item.second.clear();
            }
        }
    }
}

void Capture::Pushed(const std::string& role, unsigned int itemId, const Bytes& payload) {
    for (const auto& subscriber : subscribers_[std::make_pair(role, itemId)]) {
        Message("sent", role, subscriber.first, subscriber.second, payload);
    }
}

void Capture::Follow(const std::string& role, const std::string& sender, unsigned int type,
                     const Bytes& payload) {
    if (type == LinxIpc::kSubscribeRequest) {
        subscribers_[std::make_pair(role, U32At(payload, 0))][sender] = U32At(payload, 4);
        return;
    }
    if (type != LinxIpc::kUnsubscribeRequest) {
        return;
    }
    for (auto& item : subscribers_) {
        if (item.first.first != role) {
            continue;
        }
        bool drop = payload.empty();
        for (std::size_t at = 0; at + 8 <= payload.size(); at += 8) {
            drop = drop || U32At(payload, at) == item.first.second;
        }
        if (drop) {
            item.second.erase(sender);
        }
    }
}
