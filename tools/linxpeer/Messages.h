// The message numbers of the vehicle system that the bench peer knows by name, and the payload
// layout it prints them with.
#pragma once

#include <string>

struct MessageInfo {
    unsigned int type;
    const char* name;   // short name used in scenarios and output
    const char* alias;  // the system's own constant name, also accepted (may be empty)
    // Payload fields in order, blank separated: u8 u16 u32 i16 i32, "text" (NUL-terminated,
    // the rest of the payload) or "textN" (a fixed field of N bytes). Empty: print hex only.
    const char* layout;
};

namespace messages {

// Reply and notice numbers the roles use themselves.
const unsigned int kStarted = 13232;
const unsigned int kSubscribe = 13233;
const unsigned int kSubscribed = 13234;
const unsigned int kFullRun = 13235;
const unsigned int kRestarted = 13236;
const unsigned int kCurrentlyRecording = 14100;
const unsigned int kCurrentlyRecordingResponse = 14101;

// The entry for `type`, or null.
const MessageInfo* Find(unsigned int type);
// A message type from a name, an alias or a number (decimal or 0x hex).
bool ParseType(const std::string& text, unsigned int& type);
// "13232 Started" or "4711" for an unknown number.
std::string Describe(unsigned int type);
// Every known message, for the help text.
std::string Table();

}  // namespace messages
