#include "PendingWrites.h"

#include <cstddef>

namespace hostsystem {
namespace {

struct Entry {
    PendingWriter writer;
    void* context;
};

const std::size_t kMaxWriters = 8;
// Per thread: an endpoint that waits on another thread (a test's or a tool's peers) must never
// write a store it does not own, nor race the thread that does.
thread_local Entry gWriters[kMaxWriters];

}  // namespace

bool AddPendingWriter(PendingWriter writer, void* context) {
    for (Entry& entry : gWriters) {
        if (entry.writer == nullptr) {
            entry = Entry{writer, context};
            return true;
        }
    }
    return false;
}

void RemovePendingWriter(PendingWriter writer, void* context) {
    for (Entry& entry : gWriters) {
        if (entry.writer == writer && entry.context == context) {
            entry = Entry{nullptr, nullptr};
        }
    }
}

void WritePending() {
    for (const Entry& entry : gWriters) {
        if (entry.writer != nullptr) {
            entry.writer(entry.context);
        }
    }
}

}  // namespace hostsystem
