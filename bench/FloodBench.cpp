// The real process under a flood, against the kernel's own datagram path in the same run.
//
// A separate sender process sends MESSAGES bookmark notices (13509, a 4-byte tick) to the real
// MetadataMgr binary, which stores each one; the run ends when a ping sent after the last
// bookmark is answered (the process handles messages in arrival order). The anchors send frames
// of the same size from a separate process to a plain AF_UNIX datagram socket that only
// recv()s them, and one that recv()s and write()s each to a file. Each round runs the two
// anchors and then the process; the ratios are taken within a round, for the rate and for the
// receiver's CPU time per message (steadier on a loaded machine). Prints every round, the
// median ratios, the process's peak RSS over all rounds and /proc/loadavg before and after.
//
//   flood_bench [MESSAGES [ROUNDS]]      (defaults 300000 and 3)
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "BenchArgs.h"
#include "Item.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "StreamingLvsStateItem.h"
#include "Subprocess.h"
#include "Subscribe.h"
#include "TestEnv.h"

namespace {

const unsigned int kBookmark = 13509;
const unsigned int kPing = 13488;
const unsigned int kPingAnswer = 13489;
// What the sender's bookmark frame carries: header, the name "Flood", the tick.
const std::size_t kFrameBytes = 16 + 5 + 4;

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

std::string LoadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string line;
    std::getline(in, line);
    return line;
}

long PeakRssKiB(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, 6, "VmHWM:") == 0) {
            return std::atol(line.c_str() + 6);
        }
    }
    return -1;
}

// CPU seconds (user + system) this process has used.
double OwnCpuSeconds() {
    struct rusage usage;
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds another process has used, from /proc (clock-tick resolution).
double CpuSeconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(in, line);
    // Fields after the command's closing parenthesis: state is field 3, utime 14, stime 15.
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int number = 3; number <= 15 && fields >> field; ++number) {
        ticks += number >= 14 ? std::atof(field.c_str()) : 0;
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

struct Rate {
    double perSecond;
    double cpuMicros;  // receiver's CPU per message
};

int BoundSocket(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (fd < 0 || ::bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0) {
        std::perror(path.c_str());
        std::exit(2);
    }
    return fd;
}

// Messages per second through a bare datagram socket, from a separate sending process.
Rate RawRate(const TestEnv& env, unsigned int messages, bool writeEach) {
    const std::string receiverPath = env.Path("raw-receiver");
    const int receiver = BoundSocket(receiverPath);
    const int file =
        writeEach ? ::open(env.Path("raw-records").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)
                  : -1;
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = OwnCpuSeconds();
    const pid_t sender = ::fork();
    if (sender == 0) {
        const int fd = BoundSocket(env.Path("raw-sender"));
        struct sockaddr_un to = {};
        to.sun_family = AF_UNIX;
        receiverPath.copy(to.sun_path, sizeof to.sun_path - 1);
        unsigned char frame[kFrameBytes] = {};
        for (unsigned int i = 0; i < messages; ++i) {
            std::memcpy(frame + kFrameBytes - 4, &i, sizeof i);
            if (::sendto(fd, frame, sizeof frame, 0, reinterpret_cast<struct sockaddr*>(&to),
                         sizeof to) < 0) {
                ::_exit(1);
            }
        }
        ::_exit(0);
    }
    std::vector<unsigned char> buffer(70000);
    for (unsigned int i = 0; i < messages; ++i) {
        const ssize_t got = ::recv(receiver, buffer.data(), buffer.size(), 0);
        if (got > 0 && file >= 0 && ::write(file, buffer.data(), static_cast<size_t>(got)) < 0) {
            std::perror("write");
        }
    }
    const Rate rate{messages / Seconds(start), (OwnCpuSeconds() - cpuStart) * 1e6 / messages};
    ::waitpid(sender, nullptr, 0);
    ::close(receiver);
    if (file >= 0) {
        ::close(file);
    }
    ::unlink(receiverPath.c_str());
    ::unlink(env.Path("raw-sender").c_str());
    return rate;
}

// Serves every item asked of it with a default ItemT: the state manager's and the external
// manager's items, which the process subscribes to at start.
template <typename ItemT>
class StubServer : public SubscribeServer {
public:
    using SubscribeServer::SubscribeServer;
    void GetItem(unsigned int, IpcMessage& reply, unsigned int msgType) override {
        const ItemT item;
        if (reply.Allocate(msgType, item.Size(), nullptr) == 0) {
            item.EncodeMsg(reply);
        }
    }
};

struct Peers {
    LinxIpc stateMgr{LinxServerNameList::Instance().Name(e_Process_StateMgr)};
    LinxIpc externalMgr{LinxServerNameList::Instance().Name(e_Process_ExternalMgr)};
    LinxIpc bench{"Bench"};
    bool Open() { return stateMgr.Init() == 0 && externalMgr.Init() == 0 && bench.Init() == 0; }
    // Serves the two servers until the process answers a ping; false after timeoutMs.
    bool Ping(int timeoutMs) {
        StubServer<SystickItem> stateServer(stateMgr);
        StubServer<ExternalMgrApi::StreamingLvsStateItem> externalServer(externalMgr);
        const std::string& manager = LinxServerNameList::Instance().Name(e_Process_MetadataMgr);
        IpcMessage ping;
        ping.Allocate(kPing, 0, nullptr);
        const auto start = std::chrono::steady_clock::now();
        bool sent = false;
        while (Seconds(start) * 1000 < timeoutMs) {
            sent = sent || bench.Notify(manager, ping, true) == 0;
            IpcMessage answer;
            if (sent && bench.Receive(5, kPingAnswer, LinxIpc::emptyString, &answer) == 0) {
                return true;
            }
            stateMgr.Receive(5, 0, LinxIpc::emptyString, nullptr);
            externalMgr.Receive(5, 0, LinxIpc::emptyString, nullptr);
        }
        return false;
    }
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

pid_t StartManager() {
    for (const char* off : {"NO_CONFIGMGR", "NO_FPGA", "NO_GPSHAL", "NO_RADARHAL", "NO_MICMGR",
                            "NO_VIDEOMGR", "NO_ACCELHAL", "NO_TEMPHAL", "RUN_WITHOUT_STATEMGR"}) {
        ::setenv(off, "1", 1);
    }
    const std::string program = ProgramPath("MetadataMgr");
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execl(program.c_str(), program.c_str(), "-l", "0", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    return pid;
}

// Sends the bookmarks from a process of its own; its exit status counts the sends that failed.
pid_t StartSender(unsigned int messages) {
    const pid_t pid = ::fork();
    if (pid != 0) {
        return pid;
    }
    LinxIpc flood("Flood");
    unsigned int failed = flood.Init() == 0 ? 0 : messages;
    IpcMessage bookmark;
    bookmark.Allocate(kBookmark, 4, nullptr);
    const std::string& manager = LinxServerNameList::Instance().Name(e_Process_MetadataMgr);
    for (unsigned int tick = 1; tick <= messages && failed == 0; ++tick) {
        std::memcpy(bookmark.DataPtr(), &tick, sizeof tick);
        failed += flood.Notify(manager, bookmark, true) == 0 ? 0 : 1;
    }
    // No destructors: the parent's endpoints, copied by fork, are not this process's to remove.
    ::_exit(failed == 0 ? 0 : 1);
}

}  // namespace

const char kUsage[] =
    "Usage: flood_bench [MESSAGES [ROUNDS]]   (defaults 300000 and 3)\n"
    "Floods the real MetadataMgr with MESSAGES bookmark notices, ROUNDS times, beside a raw\n"
    "datagram receiver and one that also writes each frame; prints each round, the median\n"
    "ratios of rate and CPU per message, the process's peak RSS and the load before and after.\n";

int main(int argc, char* argv[]) {
    double args[] = {300000, 3};
    const int early = ParseBenchArgs(argc, argv, kUsage, args, 2);
    if (early >= 0) {
        return early;
    }
    const unsigned int messages = static_cast<unsigned int>(args[0]);
    const int rounds = static_cast<int>(args[1]);
    TestEnv env;
    std::printf("%d rounds of %u messages of %zu bytes\nload before: %s\n", rounds, messages,
                kFrameBytes, LoadAverage().c_str());
    Peers peers;
    if (!peers.Open()) {
        std::fprintf(stderr, "cannot open the bench's endpoints\n");
        return 2;
    }
    const pid_t manager = StartManager();
    if (!peers.Ping(60000)) {
        std::fprintf(stderr, "MetadataMgr did not come up\n");
        ::kill(manager, SIGKILL);
        return 2;
    }
    // The machine is shared: each round measures all three back to back, and the ratios are
    // taken within a round.
    std::vector<double> toRecv, toWrite, cpuToRecv, cpuToWrite;
    bool complete = true;
    for (int round = 1; round <= rounds; ++round) {
        const Rate recv = RawRate(env, messages, false);
        const Rate write = RawRate(env, messages, true);
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = CpuSeconds(manager);
        int senderStatus = 0;
        ::waitpid(StartSender(messages), &senderStatus, 0);
        complete = peers.Ping(600000) && senderStatus == 0 && complete;
        const Rate mm{messages / Seconds(start), (CpuSeconds(manager) - cpuStart) * 1e6 / messages};
        toRecv.push_back(mm.perSecond / recv.perSecond);
        toWrite.push_back(mm.perSecond / write.perSecond);
        // CPU: the anchor's cost over the process's, so that higher is better here too.
        cpuToRecv.push_back(recv.cpuMicros / mm.cpuMicros);
        cpuToWrite.push_back(write.cpuMicros / mm.cpuMicros);
        std::printf(
            "round %d: messages/s (receiver CPU us/message): raw recv %.0f (%.2f), "
            "raw recv + write %.0f (%.2f), MetadataMgr %.0f (%.2f)\n",
            round, recv.perSecond, recv.cpuMicros, write.perSecond, write.cpuMicros, mm.perSecond,
            mm.cpuMicros);
    }
    const long peakKiB = PeakRssKiB(manager);
    IpcMessage quit;
    quit.Allocate(LinxIpc::kShutdownNotice, 0, nullptr);
    peers.stateMgr.Notify(LinxServerNameList::Instance().Name(e_Process_MetadataMgr), quit, true);
    int managerStatus = 0;
    ::waitpid(manager, &managerStatus, 0);
    std::printf("median ratio to raw recv: %.2f rate, %.2f CPU\n", Median(toRecv),
                Median(cpuToRecv));
    std::printf("median ratio to raw recv + write: %.2f rate, %.2f CPU\n", Median(toWrite),
                Median(cpuToWrite));
    std::printf("MetadataMgr peak RSS %ld KiB, exit %d%s\nload after: %s\n", peakKiB,
                WIFEXITED(managerStatus) ? WEXITSTATUS(managerStatus) : -1,
                complete ? "" : " (INCOMPLETE: sends failed or no answer)", LoadAverage().c_str());
    return complete ? 0 : 1;
}
