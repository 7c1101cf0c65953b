#include "Scenario.h"

#include <cctype>
#include <chrono>
#include <cstdio>

#include "Messages.h"

namespace {

bool ParseMs(const std::string& text, int& ms) {
    return codec::ParseNumber(text, ms) && ms >= 0;
}

}  // namespace

const Scenario::Kind Scenario::kKinds[] = {
    {"role", 1, &Scenario::RoleStep, "role PROCESS...",
     "open an endpoint for each process (endpoint name or e_Process number)"},
    {"send", 2, &Scenario::SendStep, "send [as ROLE] DEST TYPE [FIELD...]",
     "send a message; FIELD: u8:N u16:N u32:N i8:N i16:N i32:N text:S textN:LEN:S hex:AABB"},
    {"expect", 0, &Scenario::ExpectStep,
     "expect [TYPE] [from SENDER] [to ROLE] [within MS] [CHECK...]",
     "wait for the first message not yet taken that matches, and take it"},
    {"never", 0, &Scenario::NeverStep,
     "never [TYPE] [from SENDER] [to ROLE] [within MS] [CHECK...]",
     "fail when a matching message arrives within MS (default 1000)"},
    {"sync", 1, &Scenario::SyncStep, "sync [as ROLE] PROCESS [within MS]",
     "wait until PROCESS has handled everything sent to it before and its loop waits again "
     "(host platform only; costs the process no loop pass)"},
    {"wait", 1, &Scenario::WaitStep, "wait MS", "keep serving every role for MS milliseconds"},
    {"print", 0, &Scenario::PrintStep, "print",
     "list every message received so far ('taken' = matched by an expect)"},
    {"clear", 0, &Scenario::ClearStep, "clear",
     "take every message received so far, so that later expects see only newer ones"},
    {"echo", 0, &Scenario::EchoStep, "echo TEXT...", "print TEXT"},
    {"serve", 3, &Scenario::ServeStep, "serve PROCESS ITEM CLASS [FIELD=VALUE...]",
     "serve item ITEM of class CLASS on the role's subscribe server"},
    {"refuse", 2, &Scenario::RefuseStep, "refuse PROCESS ITEM",
     "refuse subscriptions to that item (serve it again to accept them)"},
    {"push", 2, &Scenario::PushStep, "push PROCESS ITEM [FIELD=VALUE...]",
     "change a served item and notify its subscribers"},
    {"subscribers", 3, &Scenario::SubscribersStep, "subscribers PROCESS ITEM N [within MS]",
     "wait until the item has exactly N subscribers"},
    {"statemgr", 0, &Scenario::StateMgrStep, "statemgr [flag=N] [fullrun=0|1]",
     "play the state manager: answer 13232 with 13233 (flag byte N, default 1), 13234 with "
     "13235 (unless fullrun=0); serves its items 1-4 (SystickItem: record start, record stop, "
     "enter and exit covert mode; push StateMgr 1 tick=N sends a record start)"},
    {"streammgr", 0, &Scenario::StreamMgrStep, "streammgr [REID]",
     "play the stream manager: answer 14100 with 14101 carrying REID (default empty)"},
    {"quit", 1, &Scenario::QuitStep, "quit DEST",
     "send the shutdown notice (from the state manager role when there is one)"},
    {"died", 2, &Scenario::DiedStep, "died DEST PROCESS",
     "send the process-died notice for PROCESS"},
    {"restarted", 2, &Scenario::RestartedStep, "restarted DEST PROCESS",
     "send the state manager's restarted notice (13236) for PROCESS"},
    {"subscribe", 4, &Scenario::SubscribeStep,
     "subscribe [as ROLE] SERVER ITEM NOTIFYID CLASS [FIELD=VALUE...]",
     "subscribe to an item of another program; checks the value returned; later notices are "
     "printed decoded (the server must not be a role of this linxpeer)"},
    {"die", 1, &Scenario::DieStep, "die PROCESS", "close that role's endpoint"},
    {"restart", 1, &Scenario::RestartStep, "restart PROCESS",
     "open it again; the state manager role then sends 13236 for it to every announced process"},
    {"watchdog", 2, &Scenario::WatchdogStep, "watchdog PROCESS alive|expired|absent [within MS]",
     "check the heartbeat of the process's main thread"},
    {"shm", 1, &Scenario::ShmStep, "shm CHECK... [within MS]",
     "check the shared metadata block, e.g. shm u16@0x40=19 u8@8=78"},
};

const Scenario::Kind* Scenario::FindKind(const std::string& word) {
    for (const Kind& kind : kKinds) {
        if (word == kind.word) {
            return &kind;
        }
    }
    return nullptr;
}

std::string Scenario::Reference() {
    std::string text;
    for (const Kind& kind : kKinds) {
        text += "  ";
        text += kind.usage;
        // The meaning, wrapped under the usage.
        std::string line = "     ";
        std::string word;
        for (const char* c = kind.meaning;; ++c) {
            if (*c != ' ' && *c != '\0') {
                word += *c;
                continue;
            }
            if (line.size() + word.size() + 1 > 96) {
                text += "\n" + line;
                line = "     ";
            }
            line += " " + word;
            word.clear();
            if (*c == '\0') {
                break;
            }
        }
        text += "\n" + line + "\n";
    }
    return text;
}

bool Scenario::Split(const std::string& text, std::vector<std::string>& words, std::string& error) {
    words.clear();
    std::size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i >= text.size() || text[i] == '#') {
            break;
        }
        std::string word;
        bool quoted = false;
        for (; i < text.size() && (quoted || !std::isspace(static_cast<unsigned char>(text[i])));
             ++i) {
            if (text[i] == '"') {
                quoted = !quoted;
            } else {
                word += text[i];
            }
        }
        if (quoted) {
            error = "unterminated quote";
            return false;
        }
        words.push_back(word);
    }
    return true;
}

bool Scenario::AddLine(const std::string& text, const std::string& source, int line) {
    Step step;
    step.source = source;
    step.line = line;
    step.text = text;
    std::string error;
    if (!Split(text, step.words, error)) {
        std::printf("error %s:%d: %s\n", source.c_str(), line, error.c_str());
        return false;
    }
    if (step.words.empty()) {
        return true;
    }
    const Kind* kind = FindKind(step.words[0]);
    if (kind == nullptr) {
        std::printf("error %s:%d: unknown step '%s'\n", source.c_str(), line,
                    step.words[0].c_str());
        return false;
    }
    if (step.words.size() - 1 < kind->minArgs) {
        std::printf("error %s:%d: usage: %s\n", source.c_str(), line, kind->usage);
        return false;
    }
    steps_.push_back(step);
    return true;
}

bool Scenario::Add(std::istream& in, const std::string& source) {
    std::string text;
    int line = 0;
    bool ok = true;
    while (std::getline(in, text)) {
        ok = AddLine(text, source, ++line) && ok;
    }
    return ok;
}

Scenario::Result Scenario::Run() {
    for (const Step& step : steps_) {
        current_ = &step;
        std::printf("step %s:%d: %s\n", step.source.c_str(), step.line, step.text.c_str());
        const Kind* kind = FindKind(step.words[0]);
        const Args args(step.words.begin() + 1, step.words.end());
        error_.clear();
        const Result result = (this->*(kind->run))(args);
        if (result == kError) {
            std::printf("error %s:%d: %s\n", step.source.c_str(), step.line, error_.c_str());
        }
        if (result != kPassed) {
            return result;
        }
        if (Peer::StopRequested()) {
            std::printf("stopped by a signal\n");
            return kFailed;
        }
    }
    current_ = nullptr;
    return kPassed;
}

Scenario::Result Scenario::Error(const std::string& message) {
    error_ = message;
    return kError;
}

Scenario::Result Scenario::Fail(const std::string& message) {
    std::printf("FAIL %s:%d: %s\n  %s\n", current_->source.c_str(), current_->line,
                current_->text.c_str(), message.c_str());
    return kFailed;
}

bool Scenario::ParseOptions(const Args& args, bool filters, Options& options) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        const bool hasValue = i + 1 < args.size();
        if (word == "as" && hasValue && i == 0) {
            options.as = args[++i];
        } else if (filters && word == "from" && hasValue) {
            e_Process number;
            options.from = Peer::ResolveName(args[++i], number);
        } else if (filters && word == "to" && hasValue) {
            e_Process number;
            options.to = Peer::ResolveName(args[++i], number);
        } else if (word == "within" && hasValue) {
            if (!ParseMs(args[++i], options.within)) {
                error_ = "within needs milliseconds";
                return false;
            }
        } else {
            options.rest.push_back(word);
        }
    }
    return true;
}

bool Scenario::WaitFor(int withinMs, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(withinMs);
    // Passes of a few milliseconds keep every role served while waiting.
    for (;;) {
        if (done()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline || !peer_.Pump(5)) {
            return done();
        }
    }
}

Role* Scenario::RoleOf(const std::string& process) {
    Role* role = peer_.Find(process);
    if (role == nullptr || !role->Alive()) {
        error_ = "no live role " + process;
        return nullptr;
    }
    return role;
}

Scenario::Result Scenario::RoleStep(const Args& args) {
    for (const std::string& process : args) {
        if (peer_.Open(process, error_) == nullptr) {
            return kError;
        }
    }
    return kPassed;
}

Scenario::Result Scenario::SendStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    if (options.rest.size() < 2) {
        return Error("send needs DEST and TYPE");
    }
    Role* from = options.as.empty() ? peer_.Default(error_) : peer_.Open(options.as, error_);
    unsigned int type = 0;
    if (from == nullptr) {
        return kError;
    }
    if (!messages::ParseType(options.rest[1], type)) {
        return Error("unknown message type '" + options.rest[1] + "'");
    }
    Bytes payload;
    for (std::size_t i = 2; i < options.rest.size(); ++i) {
        if (!codec::AppendField(options.rest[i], payload, error_)) {
            return kError;
        }
    }
    e_Process number;
    const std::string destination = Peer::ResolveName(options.rest[0], number);
    return peer_.Send(*from, destination, type, payload, error_) ? kPassed : Fail(error_);
}

Scenario::Result Scenario::SyncStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    if (options.rest.size() != 1) {
        return Error("usage: sync [as ROLE] PROCESS [within MS]");
    }
    Role* from = options.as.empty() ? peer_.Default(error_) : peer_.Open(options.as, error_);
    e_Process number;
    const std::string destination = Peer::ResolveName(options.rest[0], number);
    if (from == nullptr || !peer_.Sync(*from, destination, error_)) {
        return from == nullptr ? kError : Fail(error_);
    }
    const int within = options.within >= 0 ? options.within : withinMs_;
    return WaitFor(within, [&] { return from->synced; })
               ? kPassed
               : Fail(destination + " did not answer the sync within " + std::to_string(within) +
                      " ms");
}

Scenario::Result Scenario::ExpectStep(const Args& args) {
    return Expectation(args, true);
}

Scenario::Result Scenario::NeverStep(const Args& args) {
    return Expectation(args, false);
}

Scenario::Result Scenario::Expectation(const Args& args, bool wanted) {
    Options options;
    if (!ParseOptions(args, true, options)) {
        return kError;
    }
    bool typed = false;
    unsigned int type = 0;
    std::vector<codec::Check> checks;
    for (const std::string& word : options.rest) {
        if (word.find('=') != std::string::npos) {
            checks.emplace_back();
            if (!codec::ParseCheck(word, checks.back(), error_)) {
                return kError;
            }
        } else if (!typed && messages::ParseType(word, type)) {
            typed = true;
        } else {
            return Error("'" + word + "' is neither a message type nor a check");
        }
    }
    auto matches = [&](const Received& received) {
        if (received.taken || (typed && received.type != type) ||
            (!options.from.empty() && received.sender != options.from) ||
            (!options.to.empty() && received.role != options.to)) {
            return false;
        }
        for (const codec::Check& check : checks) {
            if (!codec::Holds(check, received.payload, received.item)) {
                return false;
            }
        }
        return true;
    };
    Received* hit = nullptr;
    const int within = options.within >= 0 ? options.within : (wanted ? withinMs_ : 1000);
    WaitFor(within, [&] {
        for (Received& received : peer_.Inbox()) {
            if (matches(received)) {
                hit = &received;
                return true;
            }
        }
        return false;
    });
    if (!wanted) {
        return hit == nullptr ? kPassed : Fail("unexpected: " + hit->Line());
    }
    if (hit != nullptr) {
        hit->taken = true;
        std::printf("ok #%lu\n", hit->number);
        return kPassed;
    }
    std::string instead;
    for (const Received& received : peer_.Inbox()) {
        if (!received.taken) {
            instead += "\n  instead: " + received.Line();
        }
    }
    return Fail("nothing matched within " + std::to_string(within) + " ms" +
                (instead.empty() ? "; nothing else was received" : instead));
}

Scenario::Result Scenario::WaitStep(const Args& args) {
    int ms = 0;
    if (!ParseMs(args[0], ms)) {
        return Error("wait needs milliseconds");
    }
    peer_.Pump(ms);
    return kPassed;
}

Scenario::Result Scenario::PrintStep(const Args& /*args*/) {
    peer_.Pump(0);
    for (const Received& received : peer_.Inbox()) {
        std::printf("  #%lu%s %s\n", received.number, received.taken ? " taken" : "",
                    received.Line().c_str());
    }
    return kPassed;
}

Scenario::Result Scenario::ClearStep(const Args& /*args*/) {
    peer_.Pump(0);
    for (Received& received : peer_.Inbox()) {
        received.taken = true;
    }
    return kPassed;
}

Scenario::Result Scenario::EchoStep(const Args& args) {
    std::string text;
    for (const std::string& word : args) {
        text += (text.empty() ? "" : " ") + word;
    }
    std::printf("%s\n", text.c_str());
    return kPassed;
}
