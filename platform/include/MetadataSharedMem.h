// Shared-memory record of current metadata (GPS and radar), read by other processes.
#pragma once

class MetadataSharedMem {
public:
    // Bytes in the shared block.
    static const unsigned int kBlockSize = 256;

    MetadataSharedMem();
    ~MetadataSharedMem();
    MetadataSharedMem(const MetadataSharedMem&) = delete;
    MetadataSharedMem& operator=(const MetadataSharedMem&) = delete;

    // The shared block, attached on first use; null when it cannot be attached. `update` is
    // true for a writer refreshing current values, false for the owner (re)initialising it.
    unsigned char* MetadataItems(bool update);

private:
    unsigned char* block_ = nullptr;
};
