// Steps that play processes: served items, the state and stream managers, process notices,
// subscriptions, death and restart.
#include "Scenario.h"

#include <cstdio>

#include "Capture.h"
#include "Messages.h"

namespace {

void IgnoreNotice(LinxIpc* /*ipc*/, void* /*context*/) {}

}  // namespace

Scenario::Result Scenario::ServeStep(const Args& args) {
    Role* role = peer_.Open(args[0], error_);
    unsigned int itemId = 0;
    if (role == nullptr) {
        return kError;
    }
    if (!codec::ParseNumber(args[1], itemId)) {
        return Error("ITEM must be a number");
    }
    const ItemClass* itemClass = items::Find(args[2]);
    if (itemClass == nullptr) {
        return Error("unknown item class '" + args[2] + "'");
    }
    ServedItem served;
    served.itemClass = itemClass;
    served.item = itemClass->make();
    if (!items::Assign(*itemClass, *served.item, Args(args.begin() + 3, args.end()), error_)) {
        return kError;
    }
    std::printf("serving %s item %u %s %s\n", role->Name().c_str(), itemId, itemClass->name.c_str(),
                items::Text(items::Values(*itemClass, *served.item)).c_str());
    role->served[itemId] = std::move(served);
    return kPassed;
}

Scenario::Result Scenario::RefuseStep(const Args& args) {
    Role* role = peer_.Open(args[0], error_);
    unsigned int itemId = 0;
    if (role == nullptr) {
        return kError;
    }
    if (!codec::ParseNumber(args[1], itemId)) {
        return Error("ITEM must be a number");
    }
    role->served[itemId].refused = true;
    return kPassed;
}

Scenario::Result Scenario::PushStep(const Args& args) {
    Role* role = RoleOf(args[0]);
    unsigned int itemId = 0;
    if (role == nullptr) {
        return kError;
    }
    auto found =
        codec::ParseNumber(args[1], itemId) ? role->served.find(itemId) : role->served.end();
    if (found == role->served.end() || found->second.item == nullptr) {
        return Error(role->Name() + " does not serve item " + args[1]);
    }
    ServedItem& served = found->second;
    if (!items::Assign(*served.itemClass, *served.item, Args(args.begin() + 2, args.end()),
                       error_)) {
        return kError;
    }
    const int sent = role->Server().NotifySubscribers(itemId, *served.item);
    if (Capture::Active() != nullptr) {
        Bytes payload(served.item->Size());
        served.item->Encode(payload.data());
        Capture::Active()->Pushed(role->Name(), itemId, payload);
    }
    std::printf("pushed %s item %u to %d subscribers: %s %s\n", role->Name().c_str(), itemId, sent,
                served.itemClass->name.c_str(),
                items::Text(items::Values(*served.itemClass, *served.item)).c_str());
    return kPassed;
}

Scenario::Result Scenario::SubscribersStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    Role* role = options.rest.size() == 3 ? RoleOf(options.rest[0]) : nullptr;
    unsigned int itemId = 0;
    unsigned int wanted = 0;
    if (role == nullptr) {
        return options.rest.size() == 3 ? kError : Error("usage: subscribers PROCESS ITEM N");
    }
    if (!codec::ParseNumber(options.rest[1], itemId) ||
        !codec::ParseNumber(options.rest[2], wanted)) {
        return Error("ITEM and N must be numbers");
    }
    const int within = options.within >= 0 ? options.within : withinMs_;
    if (WaitFor(within, [&] { return role->Server().SubscriberCount(itemId) == wanted; })) {
        return kPassed;
    }
    return Fail(role->Name() + " item " + std::to_string(itemId) + " has " +
                std::to_string(role->Server().SubscriberCount(itemId)) + " subscribers");
}

Scenario::Result Scenario::StateMgrStep(const Args& args) {
    Role* role = peer_.Open("StateMgr", error_);
    if (role == nullptr) {
        return kError;
    }
    for (const std::string& word : args) {
        bool fullRun = true;
        if (word.compare(0, 5, "flag=") == 0 &&
            codec::ParseNumber(word.substr(5), role->subscribeFlag)) {
            continue;
        }
        if (word.compare(0, 8, "fullrun=") == 0 && codec::ParseNumber(word.substr(8), fullRun)) {
            role->sendFullRun = fullRun;
            continue;
        }
        return Error("'" + word + "' is not flag=N or fullrun=0|1");
    }
    role->stateMgr = true;
    // The record and covert-mode events every process of the system subscribes to.
    const ItemClass* tick = items::Find("SystickItem");
    for (unsigned int itemId = 1; itemId <= 4; ++itemId) {
        ServedItem& served = role->served[itemId];
        if (served.item == nullptr && !served.refused) {
            served.itemClass = tick;
            served.item = tick->make();
        }
    }
    std::printf("playing StateMgr: subscribe flag %u, full run %s\n", role->subscribeFlag,
                role->sendFullRun ? "on" : "off");
    return kPassed;
}

Scenario::Result Scenario::StreamMgrStep(const Args& args) {
    Role* role = peer_.Open("StreamMgr", error_);
    if (role == nullptr) {
        return kError;
    }
    role->streamMgr = true;
    role->reid = args.empty() ? "" : args[0];
    std::printf("playing StreamMgr: recording '%s'\n", role->reid.c_str());
    return kPassed;
}

Scenario::Result Scenario::SendProcessNotice(const std::string& destination, unsigned int type,
                                             const std::string& process) {
    Role* from = peer_.StateMgr();
    if (from == nullptr && (from = peer_.Default(error_)) == nullptr) {
        return kError;
    }
    Bytes payload;
    if (!process.empty()) {
        e_Process number;
        Peer::ResolveName(process, number);
        if (number == e_Process_Unknown && process != "0") {
            return Error("unknown process '" + process + "'");
        }
        codec::AppendField("u32:" + std::to_string(static_cast<unsigned int>(number)), payload,
                           error_);
    }
    e_Process ignored;
    const std::string name = Peer::ResolveName(destination, ignored);
    return peer_.Send(*from, name, type, payload, error_) ? kPassed : Fail(error_);
}

Scenario::Result Scenario::QuitStep(const Args& args) {
    return SendProcessNotice(args[0], LinxIpc::kShutdownNotice, "");
}

Scenario::Result Scenario::DiedStep(const Args& args) {
    return SendProcessNotice(args[0], LinxIpc::kProcessDiedNotice, args[1]);
}

Scenario::Result Scenario::RestartedStep(const Args& args) {
    return SendProcessNotice(args[0], messages::kRestarted, args[1]);
}

Scenario::Result Scenario::SubscribeStep(const Args& args) {
    Options options;
    if (!ParseOptions(args, false, options)) {
        return kError;
    }
    const Args& rest = options.rest;
    if (rest.size() < 4) {
        return Error("usage: subscribe [as ROLE] SERVER ITEM NOTIFYID CLASS");
    }
    Role* role = options.as.empty() ? peer_.Default(error_) : peer_.Open(options.as, error_);
    unsigned int itemId = 0;
    unsigned int notifyId = 0;
    const ItemClass* itemClass = items::Find(rest[3]);
    if (role == nullptr) {
        return kError;
    }
    if (!codec::ParseNumber(rest[1], itemId) || !codec::ParseNumber(rest[2], notifyId)) {
        return Error("ITEM and NOTIFYID must be numbers");
    }
    if (itemClass == nullptr) {
        return Error("unknown item class '" + rest[3] + "'");
    }
    // A role of this linxpeer is served by the loop this step holds up: it could only time out.
    const Role* own = peer_.Find(rest[0]);
    if (own != nullptr && own->Alive()) {
        return Error(own->Name() +
                     " is a role of this linxpeer: it cannot answer a subscribe step");
    }
    std::vector<codec::Check> checks(rest.size() - 4);
    for (std::size_t i = 4; i < rest.size(); ++i) {
        if (!codec::ParseCheck(rest[i], checks[i - 4], error_)) {
            return kError;
        }
    }
    e_Process number;
    Subscription subscription;
    subscription.client.reset(
        new SubscribeClient(role->Ipc(), Peer::ResolveName(rest[0], number),
                            options.within >= 0 ? options.within : withinMs_));
    subscription.notifyId = notifyId;
    subscription.itemClass = itemClass;
    std::unique_ptr<Item> item = itemClass->make();
    if (Capture::Active() != nullptr) {
        // The client's request, so that a replay subscribes too; its reply is the client's.
        const unsigned int ids[2] = {itemId, notifyId};
        Capture::Active()->Message("sent", role->Name(), subscription.client->ServerName(),
                                   LinxIpc::kSubscribeRequest,
                                   Bytes(reinterpret_cast<const unsigned char*>(ids),
                                         reinterpret_cast<const unsigned char*>(ids) + sizeof ids));
    }
    const int result =
        subscription.client->Subscribe(itemId, notifyId, *item, IgnoreNotice, nullptr);
    if (result != 0) {
        return Fail("subscription refused by " + subscription.client->ServerName() + " (result " +
                    std::to_string(result) + ")");
    }
    const NamedValues values = items::Values(*itemClass, *item);
    std::printf("subscribed %s to %s item %u notify %u: %s %s\n", role->Name().c_str(),
                subscription.client->ServerName().c_str(), itemId, notifyId,
                itemClass->name.c_str(), items::Text(values).c_str());
    role->subscriptions.push_back(std::move(subscription));
    for (const codec::Check& check : checks) {
        if (!codec::Holds(check, Bytes(), values)) {
            return Fail("the value returned does not hold " + check.text);
        }
    }
    return kPassed;
}

Scenario::Result Scenario::DieStep(const Args& args) {
    Role* role = RoleOf(args[0]);
    if (role == nullptr) {
        return kError;
    }
    role->Close();
    if (Capture::Active() != nullptr) {
        Capture::Active()->Event("close", role->Name());
    }
    std::printf("closed %s\n", role->Name().c_str());
    return kPassed;
}

Scenario::Result Scenario::RestartStep(const Args& args) {
    Role* role = peer_.Find(args[0]);
    if (role == nullptr) {
        return Error("no role " + args[0] + " to restart");
    }
    if (!role->Open(error_)) {
        return kError;
    }
    if (Capture::Active() != nullptr) {
        Capture::Active()->Event("open", role->Name());
    }
    std::printf("reopened %s\n", role->Name().c_str());
    Role* stateMgr = peer_.StateMgr();
    if (stateMgr == nullptr || stateMgr == role) {
        return kPassed;
    }
    for (const std::string& process : stateMgr->announced) {
        const Result result =
            SendProcessNotice(process, messages::kRestarted, std::to_string(role->Process()));
        if (result != kPassed) {
            return result;
        }
    }
    return kPassed;
}
