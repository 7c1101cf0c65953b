// A MetadataMgr driven in-process through real endpoints of the host platform: the manager's
// own endpoint ("MetadataMgr") and a peer endpoint that plays the other processes. Also the
// small tools every in-process test of the manager uses: environment switches, captured log
// lines, the shared record's bytes and the store's records in brief.
#pragma once

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Item.h"
#include "LinxIpc.h"
#include "MetadataMgr.h"
#include "MetadataSharedMem.h"
#include "StoreRecords.h"
#include "TestEnv.h"

class ManagerHarness {
public:
    // Fresh domain and media root, process-wide state reset, both endpoints up, the manager
    // constructed (not yet prepared).
    ManagerHarness();
    ~ManagerHarness();

    TestEnv env;
    LinxIpc ipc{"MetadataMgr"};
    LinxIpc peer{"TestPeer"};
    std::unique_ptr<MetadataMgr> manager;

    // PreInit on the manager's endpoint.
    bool Prepare();
    // The peer sends a message to the manager's endpoint, and the manager's endpoint receives
    // and dispatches it. False when it did not arrive.
    bool Deliver(unsigned int type, const void* payload, unsigned int size);
    bool DeliverItem(unsigned int type, const Item& item);
    // Waits up to timeoutMs for a message at the peer; false when none came.
    bool PeerReceive(IpcMessage& out, unsigned int type = 0, int timeoutMs = 1000);
    // Closes the store (Cleanup) and returns every record it holds.
    std::vector<StoreRecord> Records();
};

// Each record whose op is in `ops` (all when empty) as its op without "Report", then the
// values of those `keys` it has, blank-separated: "StateData 70 true 1000".
std::vector<std::string> Brief(const std::vector<StoreRecord>& records,
                               const std::set<std::string>& ops,
                               const std::vector<std::string>& keys);

// The lines in one string, ", " between them.
std::string Joined(const std::vector<std::string>& lines);

// The shared record as other processes see it now.
struct SharedBlock {
    unsigned char bytes[MetadataSharedMem::kBlockSize];
    SharedBlock();
    template <typename T>
    T At(unsigned int offset) const {
        T value;
        std::memcpy(&value, bytes + offset, sizeof value);
        return value;
    }
};

// One field of the shared record: width 1 and 2 read unsigned, 4 signed.
struct Field {
    unsigned int offset;
    unsigned int width;
    long long value;
};
// Checks the fields against the shared record as it is now.
void ExpectFields(const std::vector<Field>& fields);

// Sets an environment variable of this process (and the programs it starts) while it lives.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
};

// Standard error goes to a file, with the log mask `level`, while this lives.
class LogCapture {
public:
    explicit LogCapture(const std::string& path, unsigned int level = 0xFF);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string Text() const { return ReadFileText(path_); }
    bool Contains(const std::string& part) const { return Count(part) > 0; }
    unsigned int Count(const std::string& part) const;
    // Lines of the manager whose text, after "MetadataMgr:<line> ", is exactly `text`.
    unsigned int Lines(const std::string& text) const;

private:
    std::string path_;
    int saved_;
    unsigned int level_;
};
