#include <cstring>
#include <new>

#include "HostSeams.h"
#include "IpcInternal.h"
#include "LinxIpc.h"

namespace {
// The process is single-threaded; tests that serve peers from a second thread must not see
// one thread's bypass lift another's refusal.
thread_local unsigned int gRefuseAllocations = 0;
thread_local unsigned int gBypassDepth = 0;
// Small payloads share one buffer size, so a message that answers with a few bytes after
// carrying a few others never reallocates.
const unsigned int kMinCapacity = 64;
}  // namespace

namespace hostseam {
void FailNextAllocations(unsigned int count) {
    gRefuseAllocations = count;
}
}  // namespace hostseam

namespace hostipc {
SeamBypass::SeamBypass() {
    ++gBypassDepth;
}
SeamBypass::~SeamBypass() {
    --gBypassDepth;
}
}  // namespace hostipc

const unsigned IpcMessage::kGuardBytes;
const unsigned IpcMessage::kMaxPayload;

IpcMessage::IpcMessage() = default;

IpcMessage::~IpcMessage() {
    delete[] buffer_;
}

IpcMessage::IpcMessage(const IpcMessage& other) : type_(other.type_), sender_(other.sender_) {
    // A copy that cannot get memory is left empty rather than half-filled.
    if (other.size_ > 0 && Reserve(other.size_)) {
        std::memcpy(buffer_, other.buffer_, other.size_);
        size_ = other.size_;
    }
}

IpcMessage& IpcMessage::operator=(const IpcMessage& other) {
    if (this == &other) {
        return *this;
    }
    hostipc::SeamBypass bypass;
    if (Allocate(other.type_, other.size_, reinterpret_cast<char*>(other.buffer_)) != 0) {
        Allocate(other.type_, 0, nullptr);
    }
    sender_ = other.sender_;
    return *this;
}

// Buffers start zeroed and Allocate zeroes what a shorter payload leaves behind, so every byte
// past size_ up to capacity_ + kGuardBytes is zero. Reserve drops the old payload.
bool IpcMessage::Reserve(unsigned int size) {
    if (size <= capacity_ && buffer_ != nullptr) {
        return true;
    }
    const unsigned int capacity = size < kMinCapacity ? kMinCapacity : size;
    unsigned char* fresh = new (std::nothrow) unsigned char[capacity + kGuardBytes]();
    if (fresh == nullptr) {
        return false;
    }
    delete[] buffer_;
    buffer_ = fresh;
    capacity_ = capacity;
    size_ = 0;
    return true;
}

int IpcMessage::Allocate(unsigned int type, unsigned int size, char* data) {
    if (size > kMaxPayload) {
        return 1;
    }
    if (gRefuseAllocations > 0 && gBypassDepth == 0) {
        --gRefuseAllocations;
        return 2;
    }
    if (size > 0) {
        // `data` may point into this message's own buffer (an answer built from the request),
        // so the old buffer stays alive until the bytes are copied.
        unsigned char* old = nullptr;
        if (size > capacity_ || buffer_ == nullptr) {
            const unsigned int capacity = size < kMinCapacity ? kMinCapacity : size;
            unsigned char* fresh = new (std::nothrow) unsigned char[capacity + kGuardBytes]();
            if (fresh == nullptr) {
                return 3;
            }
            old = buffer_;
            buffer_ = fresh;
            capacity_ = capacity;
            size_ = 0;
        }
        if (data != nullptr) {
            std::memmove(buffer_, data, size);
        } else {
            std::memset(buffer_, 0, size);
        }
        delete[] old;
    }
    if (size_ > size) {
        std::memset(buffer_ + size, 0, size_ - size);
    }
    type_ = type;
    size_ = size;
    return 0;
}

unsigned char* IpcMessage::DataPtr() {
    return size_ > 0 ? buffer_ : nullptr;
}

const unsigned char* IpcMessage::DataPtr() const {
    return size_ > 0 ? buffer_ : nullptr;
}
