// The host endpoint's receive path on any datagrams. The input is cut before every frame magic
// ("LNXF") into up to kMaxDatagrams datagrams, which a raw socket bound as the state manager
// sends to a fresh endpoint. The endpoint first subscribes to an item of the state manager
// (a selective receive: the rest is held back), then takes everything, the subscribe server's and
// the notice's handlers running (the notice decodes the item), shutdown and process-died included.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "HalItems.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "Subscribe.h"

namespace {

// The kernel queues ten datagrams per socket; more would wait for a reader.
const std::size_t kMaxDatagrams = 8;
const unsigned int kItem = 7;
const unsigned int kNotice = 0x1234;

// Serves item kItem as a GPS status, so accepted replies carry an item.
class Server : public SubscribeServer {
public:
    explicit Server(LinxIpc& ipc) : SubscribeServer(ipc) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        if (itemId == kItem && reply.Allocate(msgType, 0, nullptr) == 0) {
            GpsStatusItem().EncodeMsg(reply);
        }
    }
};

void DecodeNotice(LinxIpc* ipc, void* context) {
    static_cast<Item*>(context)->DecodeMsg(ipc->CurrentMessage());
}

// The address of endpoint `name` in the private domain.
sockaddr_un At(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, fuzz::Path("domain/" + name).c_str(),
                 sizeof address.sun_path - 1);
    return address;
}

// The state manager's socket, bound once; what the endpoint answered is read and dropped.
int Peer(const std::string& name) {
    static int fd = -1;
    if (fd < 0) {
        const sockaddr_un address = At(name);
        fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        fuzz::Check(
            fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "cannot bind the peer socket");
    }
    char drop[256];
    while (::recv(fd, drop, sizeof drop, MSG_DONTWAIT) >= 0) {
    }
    return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Root();
    const std::string stateMgr = LinxServerNameList::Instance().Name(e_Process_StateMgr);
    const int peer = Peer(stateMgr);
    LinxIpc ipc("FuzzEndpoint");
    fuzz::Check(ipc.Init() == 0, "cannot open the endpoint");
    Server server(ipc);
    GpsStatusItem item;

    std::vector<std::string> datagrams = fuzz::Split(data, size, "LNXF");
    for (std::size_t i = 0; i < datagrams.size() && i < kMaxDatagrams; ++i) {
        if (i > 0 || !datagrams[i].empty()) {
            const std::string datagram = i > 0 ? "LNXF" + datagrams[i] : datagrams[i];
            const sockaddr_un address = At(ipc.Name());
            ::sendto(peer, datagram.data(), datagram.size(), MSG_DONTWAIT,
                     reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
    }
    SubscribeClient client(ipc, stateMgr, 0);
    client.Subscribe(kItem, kNotice, item, DecodeNotice, &item);
    for (std::size_t i = 0; i < 2 * kMaxDatagrams; ++i) {
        if (ipc.Receive(0, 0, LinxIpc::emptyString, nullptr) == LinxIpc::kTimeout) {
            break;
        }
    }
    Peer(stateMgr);
    return 0;
}
