#include "ManagerHarness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "HostInspect.h"
#include "LogClient.h"
#include "MediaRoot.h"
#include "ProcessInitializer.h"
#include "ProcessState.h"

ManagerHarness::ManagerHarness() {
    gShutdownRequested = false;
    gSimulatorMode = false;
    gRadarOnlyMode = false;
    gStoreInitialized = false;
    gStateMgrName = "StateMgr";
    gMetadataDir = std::string(MediaRoot()) + "/metadata";
    gMetadataPath = gMetadataDir + "/metadata";
    EXPECT_EQ(0, ipc.Init());
    EXPECT_EQ(0, peer.Init());
    manager.reset(new MetadataMgr());
}

ManagerHarness::~ManagerHarness() {
    manager.reset();
}

bool ManagerHarness::Prepare() {
    return manager->PreInit(ipc);
}

bool ManagerHarness::Deliver(unsigned int type, const void* payload, unsigned int size) {
    IpcMessage message;
    if (message.Allocate(type, size, static_cast<char*>(const_cast<void*>(payload))) != 0) {
        return false;
    }
    if (peer.Notify(ipc.Name(), message, true) != 0) {
        return false;
    }
    return ipc.Receive(2000, type, LinxIpc::emptyString, nullptr) == 0;
}

bool ManagerHarness::DeliverItem(unsigned int type, const Item& item) {
    std::vector<unsigned char> bytes(item.Size());
    item.Encode(bytes.data());
    return Deliver(type, bytes.data(), item.Size());
}

bool ManagerHarness::PeerReceive(IpcMessage& out, unsigned int type, int timeoutMs) {
    return peer.Receive(timeoutMs, type, LinxIpc::emptyString, &out) == 0;
}

std::vector<StoreRecord> ManagerHarness::Records() {
    manager->Cleanup();
    std::string error;
    std::vector<StoreRecord> records = ReadStoreRecords(gMetadataPath, env.Root(), {}, &error);
    EXPECT_EQ("", error);
    // The store's own time anchors are no report of the process.
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [](const StoreRecord& r) { return r.Op() == "TimeAnchor"; }),
                  records.end());
    return records;
}

std::vector<std::string> Brief(const std::vector<StoreRecord>& records,
                               const std::set<std::string>& ops,
                               const std::vector<std::string>& keys) {
    std::vector<std::string> out;
    for (const StoreRecord& r : records) {
        if (!ops.empty() && ops.count(r.Op()) == 0) {
            continue;
        }
        std::string text = r.Op().compare(0, 6, "Report") == 0 ? r.Op().substr(6) : r.Op();
        for (const std::string& key : keys) {
            if (r.Has(key)) {
                text += " " + r.Get(key);
            }
        }
        out.push_back(text);
    }
    return out;
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : ", ") + line;
    }
    return text;
}

SharedBlock::SharedBlock() {
    EXPECT_TRUE(hostinspect::ReadSharedBlock(bytes));
}

void ExpectFields(const std::vector<Field>& fields) {
    const SharedBlock block;
    for (const Field& f : fields) {
        const long long value = f.width == 1   ? block.At<unsigned char>(f.offset)
                                : f.width == 2 ? block.At<unsigned short>(f.offset)
                                               : block.At<int>(f.offset);
        EXPECT_EQ(f.value, value) << "at 0x" << std::hex << f.offset;
    }
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : name_(name) {
    ::setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    ::unsetenv(name_.c_str());
}

LogCapture::LogCapture(const std::string& path, unsigned int level)
    : path_(path), saved_(::dup(STDERR_FILENO)), level_(LogClient::Instance().Level()) {
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
    LogClient::Instance().Level(level);
}

LogCapture::~LogCapture() {
    LogClient::Instance().Level(level_);
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
}

unsigned int LogCapture::Count(const std::string& part) const {
    return ::Count(Text(), part);
}

unsigned int LogCapture::Lines(const std::string& text) const {
    const std::string all = Text();
    unsigned int count = 0;
    for (size_t start = 0; start < all.size();) {
        const size_t end = std::min(all.find('\n', start), all.size());
        const std::string line = all.substr(start, end - start);
        start = end + 1;
        const size_t source = line.find("MetadataMgr:");
        const size_t blank = source == std::string::npos ? source : line.find(' ', source);
        count +=
            blank != std::string::npos && line.compare(blank + 1, std::string::npos, text) == 0;
    }
    return count;
}
