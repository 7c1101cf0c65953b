// Logging: a process-wide level mask decides which lines are written.
#pragma once

#include <cstdint>
#include <string>

class LogClient {
public:
    static const unsigned int kDefaultLevel = 0x7;  // errors, soft errors, unusual modes

    static LogClient& Instance();
    unsigned int Level() const { return level_; }
    void Level(unsigned int level) { level_ = level; }
    const std::string& ProcessName() const { return processName_; }
    void ProcessName(const std::string& name) { processName_ = name; }
    // Also send lines to syslog (besides standard error).
    bool UseSyslog() const { return useSyslog_; }
    void UseSyslog(bool use) { useSyslog_ = use; }

private:
    LogClient();
    unsigned int level_;
    std::string processName_;
    bool useSyslog_;
};

// Hexadecimal, without prefix, in a log line.
struct LogHex {
    explicit LogHex(unsigned long long v) : value(v) {}
    unsigned long long value;
};

// One log line, built in a fixed buffer and written when the record is destroyed:
// "<process>[<pid>]: <text>". bools are written as 1 or 0.
class SysLogMsg {
public:
    static const unsigned int kMaxLine = 1024;

    SysLogMsg(unsigned int mask, const std::string& processName);
    ~SysLogMsg();
    SysLogMsg(SysLogMsg&& other) noexcept;
    SysLogMsg(const SysLogMsg&) = delete;
    SysLogMsg& operator=(const SysLogMsg&) = delete;
    SysLogMsg& operator=(SysLogMsg&&) = delete;

    SysLogMsg& operator<<(const char* text);
    SysLogMsg& operator<<(const std::string& text);
    SysLogMsg& operator<<(char c);
    SysLogMsg& operator<<(bool value);
    SysLogMsg& operator<<(int value);
    SysLogMsg& operator<<(unsigned int value);
    SysLogMsg& operator<<(long value);
    SysLogMsg& operator<<(unsigned long value);
    SysLogMsg& operator<<(long long value);
    SysLogMsg& operator<<(unsigned long long value);
    SysLogMsg& operator<<(LogHex value);

private:
    void Append(const char* text, unsigned int length);
    unsigned int mask_;
    bool live_;
    unsigned int length_;
    char line_[kMaxLine];
};

class LogMsg {
public:
    // Opens a record for one line of `mask`; callers test the level first.
    static SysLogMsg Log(unsigned int mask, const std::string& processName);
};
