#include "MetadataSharedMem.h"

#include "HostDomain.h"
#include "HostInspect.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <string>

namespace {

std::string BlockPath() {
    return hostsystem::DomainDir() + "/metadata.shm";
}

unsigned char* MapBlock() {
    if (!hostsystem::PrepareOwnDir(hostsystem::DomainDir())) {
        return nullptr;
    }
    const int fd = hostsystem::OpenOwnFile(BlockPath(), O_RDWR | O_CREAT);
    if (fd < 0) {
        return nullptr;
    }
    // A block made by a reader process (or cut short) is grown, never shrunk: bytes other
    // processes wrote stay where they are.
    struct stat info;
    bool sized = ::fstat(fd, &info) == 0;
    if (sized && info.st_size < static_cast<off_t>(MetadataSharedMem::kBlockSize)) {
        sized = ::ftruncate(fd, MetadataSharedMem::kBlockSize) == 0;
    }
    void* mapped = MAP_FAILED;
    if (sized) {
        mapped = ::mmap(nullptr, MetadataSharedMem::kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED,
                        fd, 0);
    }
    ::close(fd);
    return mapped == MAP_FAILED ? nullptr : static_cast<unsigned char*>(mapped);
}

}  // namespace

const unsigned int MetadataSharedMem::kBlockSize;

MetadataSharedMem::MetadataSharedMem() {}

MetadataSharedMem::~MetadataSharedMem() {
    if (block_ != nullptr) {
        ::munmap(block_, kBlockSize);
    }
}

// Both readers and the owner see the same block; what `update` selects matters only to the
// unit's library, which keeps separate views for them.
unsigned char* MetadataSharedMem::MetadataItems(bool /*update*/) {
    if (block_ == nullptr) {
        block_ = MapBlock();
    }
    return block_;
}

namespace hostinspect {

bool ReadSharedBlock(unsigned char (&block)[MetadataSharedMem::kBlockSize]) {
    const int fd = hostsystem::OpenOwnFile(BlockPath(), O_RDONLY);
    if (fd < 0) {
        return false;
    }
    unsigned int done = 0;
    while (done < MetadataSharedMem::kBlockSize) {
        const ssize_t n = ::read(fd, block + done, MetadataSharedMem::kBlockSize - done);
        if (n <= 0) {
            break;
        }
        done += static_cast<unsigned int>(n);
    }
    ::close(fd);
    return done == MetadataSharedMem::kBlockSize;
}

}  // namespace hostinspect
