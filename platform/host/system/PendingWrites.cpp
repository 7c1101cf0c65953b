#include "PendingWrites.h"

#include <cstddef>

namespace hostsystem {
namespace {

struct Entry {
    PendingWriter writer;
    void* context;
};

const std::size_t kMaxWriters = 8;
Entry gWriters[kMaxWriters];

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
