#include "Replay.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "Capture.h"
#include "HostSync.h"
#include "Messages.h"

namespace {

struct Line {
    int number = 0;
    unsigned long long ms = 0;
    std::string kind;  // recv sent sync open close tick
    std::string role;
    std::string other;
    unsigned int type = 0;
    Bytes payload;
    unsigned int tick = 0;
};

bool Fail(int number, const std::string& message) {
    std::printf("error capture:%d: %s\n", number, message.c_str());
    return false;
}

bool ParseLine(const std::string& text, int number, Line& line) {
    std::istringstream words(text);
    std::string ms;
    std::string hex;
    line.number = number;
    if (!(words >> ms >> line.kind) || !codec::ParseNumber(ms, line.ms)) {
        return Fail(number, "not a capture line");
    }
    if (line.kind == "recv" || line.kind == "sent") {
        std::string type;
        if (!(words >> line.role >> line.other >> type >> hex) ||
            !codec::ParseNumber(type, line.type) || !capture::Unhex(hex, line.payload)) {
            return Fail(number, "usage: MS " + line.kind + " ROLE OTHER TYPE HEX");
        }
        return true;
    }
    if (line.kind == "sync") {
        return (words >> line.role >> line.other) ? true
                                                  : Fail(number, "usage: MS sync ROLE OTHER");
    }
    if (line.kind == "open" || line.kind == "close") {
        return (words >> line.role) ? true : Fail(number, "usage: MS " + line.kind + " ROLE");
    }
    std::string tick;
    if (line.kind == "tick" && (words >> tick) && codec::ParseNumber(tick, line.tick)) {
        return true;
    }
    return Fail(number, "unknown line '" + text + "'");
}

bool Load(const std::string& path, std::vector<Line>& lines) {
    std::ifstream in(path);
    std::string text;
    if (!in || !std::getline(in, text)) {
        return Fail(0, "cannot read " + path);
    }
    std::istringstream head(text);
    std::string magic;
    std::string version;
    std::string order;
    head >> magic >> version >> order;
    if (magic != Capture::kMagic || version != "1") {
        return Fail(1, path + " is not a linxpeer capture");
    }
    // Payloads are in the byte order of the machine that made them; the other order would
    // send every number turned around.
    if (order != Capture::NativeOrder()) {
        return Fail(1, "the capture's payloads are " + order + "-endian, this machine is " +
                           Capture::NativeOrder() + "-endian: make it here");
    }
    for (int number = 2; std::getline(in, text); ++number) {
        if (text.empty() || text[0] == '#') {
            continue;
        }
        lines.emplace_back();
        if (!ParseLine(text, number, lines.back())) {
            return false;
        }
    }
    return true;
}

bool WriteTick(unsigned int tick) {
    const char* path = std::getenv("HOST_SYSTICK_FILE");
    if (path == nullptr || path[0] == '\0') {
        return true;
    }
    // Written aside and renamed, so a reader never sees half a number.
    const std::string aside = std::string(path) + ".next";
    std::FILE* file = std::fopen(aside.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    // 0xFFFFFFFF is "no tick": an empty file reads so.
    if (tick != 0xFFFFFFFFu) {
        std::fprintf(file, "%u\n", tick);
    }
    return std::fclose(file) == 0 && std::rename(aside.c_str(), path) == 0;
}

unsigned int U32At(const Bytes& payload, std::size_t offset) {
    unsigned int value = 0;
    std::memcpy(&value, payload.data() + offset, sizeof value);
    return value;
}

// A subscribe reply of the capture: from now on the role serves the item as these bytes.
bool Serve(Peer& peer, const Line& line, bool onlyFirst) {
    if (line.payload.size() < 12) {
        return Fail(line.number, "subscribe reply too short");
    }
    std::string error;
    Role* role = peer.Open(line.role, error);
    if (role == nullptr) {
        return Fail(line.number, error);
    }
    ServedItem& served = role->served[U32At(line.payload, 0)];
    if (!onlyFirst || served.raw.empty()) {
        served.raw.assign(line.payload.begin() + 12, line.payload.end());
    }
    return true;
}

// Takes the first message that the role received from `other` with the type. Taken ones
// leave the inbox, so a long replay does not search through its whole past.
bool Take(Peer& peer, const Line& line) {
    std::list<Received>& inbox = peer.Inbox();
    for (auto received = inbox.begin(); received != inbox.end(); ++received) {
        if (received->role == line.role && received->sender == line.other &&
            received->type == line.type) {
            inbox.erase(received);
            return true;
        }
    }
    return false;
}

}  // namespace

namespace replay {

int Run(Peer& peer, const std::string& path, double speed, int withinMs) {
    std::vector<Line> lines;
    if (!Load(path, lines)) {
        return 2;
    }
    // The clock is set before any role opens, so the process starts at the capture's time.
    std::size_t first = 0;
    for (; first < lines.size() && lines[first].kind == "tick"; ++first) {
        WriteTick(lines[first].tick);
    }
    std::string error;
    for (const Line& line : lines) {
        const bool ok = line.kind == "tick" || peer.Open(line.role, error) != nullptr;
        if (!ok || (line.kind == "sent" && line.type == LinxIpc::kSubscribeReply &&
                    !Serve(peer, line, true))) {
            return ok ? 2 : (Fail(line.number, error), 2);
        }
    }
    unsigned long long syncWall = capture::NowMs();
    unsigned long long syncMs = first < lines.size() ? lines[first].ms : 0;
    unsigned long sent = 0;
    unsigned long burst = 0;
    for (std::size_t i = first; i < lines.size(); ++i) {
        const Line& line = lines[i];
        // A sync line: everything sent before is handled and OTHER's loop pass after it done.
        const bool sync = line.kind == "sync";
        if (line.kind == "recv" || sync) {
            Role& role = *peer.Find(line.role);
            if (sync && !peer.Sync(role, line.other, error)) {
                return Fail(line.number, error), 2;
            }
            const unsigned long long deadline = capture::NowMs() + withinMs;
            while (sync ? !role.synced : !Take(peer, line)) {
                if (capture::NowMs() >= deadline || !peer.Pump(2)) {
                    std::printf("FAIL capture:%d: %s did not receive %s from %s within %d ms\n",
                                line.number, line.role.c_str(),
                                messages::Describe(sync ? hostipc::kSyncReply : line.type).c_str(),
                                line.other.c_str(), withinMs);
                    return 1;
                }
            }
            syncWall = capture::NowMs();
            syncMs = line.ms;
            continue;
        }
        if (speed > 0 && line.ms > syncMs) {
            const unsigned long long due =
                syncWall + static_cast<unsigned long long>((line.ms - syncMs) / speed);
            while (capture::NowMs() < due) {
                if (!peer.Pump(static_cast<int>(due - capture::NowMs()))) {
                    return 1;
                }
            }
        }
        Role* role = line.kind == "tick" ? nullptr : peer.Find(line.role);
        bool ok = true;
        if (line.kind == "tick") {
            ok = WriteTick(line.tick) || Fail(line.number, "cannot write HOST_SYSTICK_FILE");
        } else if (line.kind == "close") {
            role->Close();
        } else if (line.kind == "open") {
            ok = role->Open(error) || Fail(line.number, error);
        } else if (line.type == LinxIpc::kSubscribeReply) {
            ok = Serve(peer, line, false);
        } else {
            ok = peer.Send(*role, line.other, line.type, line.payload, error) ||
                 Fail(line.number, error);
            ++sent;
        }
        if (!ok) {
            return 2;
        }
        // Messages sent one after another go out back to back (a message and the quit right
        // behind it must both be waiting when the process reads the first); what came in is
        // taken after them, and at least every few messages.
        const bool more = i + 1 < lines.size() && lines[i + 1].kind == "sent";
        if (!more || ++burst % 8 == 0) {
            peer.Pump(0);
        }
    }
    std::printf("replayed %lu messages of %s\n", sent, path.c_str());
    return 0;
}

}  // namespace replay
