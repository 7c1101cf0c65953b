// Recording, covert mode and bookmarks as the store and the bookmark's subscribers see them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "MetadataMgrServer.h"
#include "Subscribe.h"
#include "events_support.h"

using events::Payload;
using events::StateEntry;

namespace {
const unsigned int kStart = 40001;
const unsigned int kStop = 40002;
const unsigned int kEnter = 40003;
const unsigned int kExit = 40004;

Payload Tick(unsigned int tick) {
    return Payload().Add(tick);
}
void Ignore(LinxIpc*, void*) {}
Payload StartStop(unsigned int tick, unsigned char start) {
    return Payload().Add(tick).Add(start);
}
}  // namespace

TEST(EventsRecording, TagsFlagsAndTicksInArrivalOrder) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::RecordStartHandler, kStart);
    events::Bind(h, MetadataMgr::RecordStopHandler, kStop);
    events::Bind(h, MetadataMgr::EnterCovertModeHandler, kEnter);
    events::Bind(h, MetadataMgr::ExitCovertModeHandler, kExit);

    ASSERT_TRUE(events::Send(h, Tick(1000), kStart));
    ASSERT_TRUE(events::Send(h, Tick(1100), kEnter));
    ASSERT_TRUE(events::Send(h, Tick(1200), kExit));
    ASSERT_TRUE(events::Send(h, Tick(1300), kStop));
    ASSERT_TRUE(events::Send(h, StartStop(1400, 1), events::kRecordStartStop));
    ASSERT_TRUE(events::Send(h, StartStop(1500, 0), events::kRecordStartStop));
    h.manager->ReportRecordingEvent(true, 1600, false);

    const std::vector<StateEntry> expected = {
        {70, true, 1000}, {58, true, 1100}, {59, true, 1200},  {71, true, 1300},
        {70, true, 1400}, {71, true, 1500}, {70, false, 1600},
    };
    EXPECT_EQ(expected, events::StateEntries(h.Records()));
}

TEST(EventsRecording, OnlyTheStateManagersStartDropsAZeroTick) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::RecordStartHandler, kStart);
    events::Bind(h, MetadataMgr::RecordStopHandler, kStop);
    events::Bind(h, MetadataMgr::EnterCovertModeHandler, kEnter);
    events::Bind(h, MetadataMgr::ExitCovertModeHandler, kExit);

    std::vector<StoreRecord> records;
    {
        events::LogCapture log(h.env.Path("log.txt"));
        ASSERT_TRUE(events::Send(h, Tick(0), kStart));
        const std::string text = log.Text();
        EXPECT_NE(std::string::npos, text.find(" RecordStartHandler\n")) << text;
        EXPECT_EQ(1u, events::Count(text, "\n")) << text;
    }
    ASSERT_TRUE(events::Send(h, Tick(0), kStop));
    ASSERT_TRUE(events::Send(h, Tick(0), kEnter));
    ASSERT_TRUE(events::Send(h, Tick(0), kExit));
    ASSERT_TRUE(events::Send(h, StartStop(0, 1), events::kRecordStartStop));

    const std::vector<StateEntry> expected = {
        {71, true, 0}, {58, true, 0}, {59, true, 0}, {70, true, 0}};
    EXPECT_EQ(expected, events::StateEntries(h.Records()));
}

// A subscriber in a child process follows item 0 of the manager's server while the parent
// runs the manager; the child's exit code tells what it saw.
TEST(EventsRecording, BookmarkIsStoredAndPublishedToSubscribers) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    ASSERT_NE(nullptr, h.manager->Server());

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        LinxIpc sub("BookmarkWatcher");
        if (sub.Init() != 0) {
            ::_exit(10);
        }
        SubscribeClient client(sub, "MetadataMgr", 5000);
        BoolItem unknown(true);
        if (client.Subscribe(1, 40100, unknown, Ignore, nullptr) == 0) {
            ::_exit(11);  // item 1 does not exist
        }
        BoolItem initial(true);
        if (client.Subscribe(MetadataMgrServer::kBookmarkItem, 40101, initial, Ignore, nullptr) !=
                0 ||
            initial.Get()) {
            ::_exit(12);  // item 0 reads false when polled
        }
        IpcMessage notice;
        if (sub.Receive(10000, 40101, LinxIpc::emptyString, &notice) != 0) {
            ::_exit(13);
        }
        BoolItem pushed(false);
        if (pushed.DecodeMsg(notice) != 0 || !pushed.Get()) {
            ::_exit(14);
        }
        BoolItem again(true);
        if (client.Subscribe(MetadataMgrServer::kBookmarkItem, 40102, again, Ignore, nullptr) !=
                0 ||
            again.Get()) {
            ::_exit(15);  // still false right after a bookmark
        }
        ::_exit(0);
    }

    // Serve the two subscribe requests, then bookmark once the subscriber is in the list.
    for (int i = 0; i < 100 && h.manager->Server()->SubscriberCount(0) == 0; ++i) {
        h.ipc.Receive(100, 0, LinxIpc::emptyString, nullptr);
    }
    ASSERT_EQ(1u, h.manager->Server()->SubscriberCount(0));
    ASSERT_TRUE(events::Send(h, Tick(4242), events::kBookmark));
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 400 && done == 0; ++i) {
        done = ::waitpid(child, &status, WNOHANG);
        if (done == 0) {
            h.ipc.Receive(50, 0, LinxIpc::emptyString, nullptr);
        }
    }
    if (done == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        FAIL() << "the subscriber did not finish";
    }
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));

    const std::vector<StoreRecord> bookmarks = h.RecordsOf("ReportBookmark");
    ASSERT_EQ(1u, bookmarks.size());
    EXPECT_EQ(4242, bookmarks[0].Int("tick"));
}
