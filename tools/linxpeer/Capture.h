// A capture: every message the roles of a session send and receive, written as it happens,
// one line each, so that the session can be played again into a fresh process (Replay.h).
//
//   linxpeer-capture 1 ORDER          first line; ORDER is the payloads' byte order (big, little)
//   MS recv ROLE SENDER TYPE HEX      ROLE received a message
//   MS sent ROLE DEST TYPE HEX        ROLE sent one (subscribe replies included)
//   MS close ROLE | MS open ROLE      the role's process died, or started again
//   MS sync ROLE OTHER                OTHER answered ROLE's sync request: all ROLE sent it before
//                                     is handled and its loop is waiting again
//   MS tick N                         the vehicle's system tick is now N (written by mdstore)
//
// MS: milliseconds since the session began; TYPE decimal; HEX the payload, "-" when empty.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <utility>

#include "FieldCodec.h"

class Capture {
public:
    // The capture being written, or null.
    static Capture* Active() { return active_; }

    Capture() = default;
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Starts writing `path` and makes this the active capture; false with `error` set.
    bool Open(const std::string& path, std::string& error);

    void Message(const char* direction, const std::string& role, const std::string& other,
                 unsigned int type, const Bytes& payload);
    void Event(const char* what, const std::string& role, const std::string& other = "");
    // The notices a push sends: one per subscriber the role has seen ask for the item.
    void Pushed(const std::string& role, unsigned int itemId, const Bytes& payload);

    static const char* NativeOrder();
    static const char* kMagic;

private:
    unsigned long long Elapsed() const;
    // Subscribers as their requests arrived: (role, item) -> subscriber -> notification id.
    void Follow(const std::string& role, const std::string& sender, unsigned int type,
                const Bytes& payload);

    static Capture* active_;
    std::FILE* file_ = nullptr;
    unsigned long long startMs_ = 0;
    std::map<std::pair<std::string, unsigned int>, std::map<std::string, unsigned int>>
        subscribers_;
};

namespace capture {

// Hex of a whole payload, "-" when empty; and back.
std::string Hex(const Bytes& payload);
bool Unhex(const std::string& text, Bytes& payload);
unsigned long long NowMs();

}  // namespace capture
