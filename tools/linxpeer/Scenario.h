// Scenarios: one step per line, run in order against the roles of a Peer. The first
// expectation that does not hold ends the run and prints what arrived instead.
#pragma once

#include <functional>
#include <istream>
#include <string>
#include <vector>

#include "Peer.h"

class Scenario {
public:
    enum Result { kPassed = 0, kFailed = 1, kError = 2 };

    Scenario(Peer& peer, int withinMs) : peer_(peer), withinMs_(withinMs) {}

    // Words of a line: blanks separate, "..." groups blanks into a word (the quotes are
    // dropped), '#' outside quotes at the start of a word begins a comment.
    static bool Split(const std::string& text, std::vector<std::string>& words, std::string& error);
    // Adds the steps of a text. A line that is not a known step with enough arguments is
    // printed with its source and number, and false is returned.
    bool Add(std::istream& in, const std::string& source);
    bool AddLine(const std::string& text, const std::string& source, int line);
    bool Empty() const { return steps_.empty(); }
    Result Run();
    // The step reference of the help text.
    static std::string Reference();

private:
    struct Step {
        std::string source;
        int line = 0;
        std::string text;
        std::vector<std::string> words;
    };
    typedef std::vector<std::string> Args;
    struct Kind {
        const char* word;
        unsigned int minArgs;
        Result (Scenario::*run)(const Args& args);
        const char* usage;
        const char* meaning;
    };
    // Filters and options common to several steps.
    struct Options {
        std::string as;
        std::string from;
        std::string to;
        int within = -1;
        Args rest;
    };
    static const Kind kKinds[];
    static const Kind* FindKind(const std::string& word);

    bool ParseOptions(const Args& args, bool filters, Options& options);
    Result Error(const std::string& message);
    Result Fail(const std::string& message);
    // Serves every role until `done` holds; false after withinMs or on a signal.
    bool WaitFor(int withinMs, const std::function<bool()>& done);
    Role* RoleOf(const std::string& process);

    Result RoleStep(const Args& args);
    Result SendStep(const Args& args);
    Result SyncStep(const Args& args);
    Result ExpectStep(const Args& args);
    Result NeverStep(const Args& args);
    Result Expectation(const Args& args, bool wanted);
    Result WaitStep(const Args& args);
    Result PrintStep(const Args& args);
    Result ClearStep(const Args& args);
    Result EchoStep(const Args& args);
    Result ServeStep(const Args& args);
    Result RefuseStep(const Args& args);
    Result PushStep(const Args& args);
    Result SubscribersStep(const Args& args);
    Result StateMgrStep(const Args& args);
    Result StreamMgrStep(const Args& args);
    Result QuitStep(const Args& args);
    Result DiedStep(const Args& args);
    Result RestartedStep(const Args& args);
    Result SubscribeStep(const Args& args);
    Result DieStep(const Args& args);
    Result RestartStep(const Args& args);
    Result WatchdogStep(const Args& args);
    Result ShmStep(const Args& args);
    Result SendProcessNotice(const std::string& destination, unsigned int type,
                             const std::string& process);

    Peer& peer_;
    int withinMs_;
    std::vector<Step> steps_;
    const Step* current_ = nullptr;
    std::string error_;
};
