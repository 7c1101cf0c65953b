#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "LinxIpc.h"
#include "TestEnv.h"

namespace {

// A bare datagram socket in the domain: what another implementation of the frame sees.
class RawSocket {
public:
    RawSocket(const std::string& domain, const std::string& name) : domain_(domain) {
        fd_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
        struct sockaddr_un address = Address(name);
        bound_ = ::bind(fd_, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawSocket() { ::close(fd_); }
    bool Bound() const { return bound_; }
    bool SendTo(const std::string& name, const std::vector<unsigned char>& bytes) {
        struct sockaddr_un address = Address(name);
        return ::sendto(fd_, bytes.data(), bytes.size(), 0,
                        reinterpret_cast<struct sockaddr*>(&address),
                        sizeof address) == static_cast<ssize_t>(bytes.size());
    }
    std::vector<unsigned char> Receive() {
        std::vector<unsigned char> bytes(70000);
        const ssize_t got = ::recv(fd_, bytes.data(), bytes.size(), 0);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

private:
    struct sockaddr_un Address(const std::string& name) const {
        struct sockaddr_un address;
        std::memset(&address, 0, sizeof address);
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (domain_ + "/" + name).c_str(), sizeof address.sun_path - 1);
        return address;
    }
    std::string domain_;
    int fd_ = -1;
    bool bound_ = false;
};

void Big(std::vector<unsigned char>& out, unsigned int value) {
    out.push_back(static_cast<unsigned char>(value >> 24));
    out.push_back(static_cast<unsigned char>(value >> 16));
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}

std::vector<unsigned char> Frame(unsigned int magic, unsigned int type, const std::string& sender,
                                 unsigned int nameLength, const std::string& payload,
                                 unsigned int payloadLength) {
    std::vector<unsigned char> frame;
    Big(frame, magic);
    Big(frame, type);
    Big(frame, nameLength);
    Big(frame, payloadLength);
    frame.insert(frame.end(), sender.begin(), sender.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

const unsigned int kMagic = 0x4C4E5846u;

}  // namespace

TEST(IpcWire, HeaderIsBigEndianWhateverTheHost) {
    TestEnv env;
    RawSocket raw(env.Domain(), "Raw");
    ASSERT_TRUE(raw.Bound());
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());
    IpcMessage message;
    char payload[] = "xyz";
    ASSERT_EQ(0, message.Allocate(0x01020304u, 3, payload));
    ASSERT_EQ(0, main.Notify("Raw", message, true));
    EXPECT_EQ(Frame(kMagic, 0x01020304u, "Main", 4, "xyz", 3), raw.Receive());

    IpcMessage empty;
    ASSERT_EQ(0, empty.Allocate(5, 0, nullptr));
    ASSERT_EQ(0, main.Notify("Raw", empty, true));
    EXPECT_EQ(Frame(kMagic, 5, "Main", 4, "", 0), raw.Receive());
}

TEST(IpcWire, MalformedDatagramsAreDroppedAndTheNextGoodOneArrives) {
    TestEnv env;
    RawSocket raw(env.Domain(), "Raw");
    ASSERT_TRUE(raw.Bound());
    LinxIpc main("Main");
    ASSERT_EQ(0, main.Init());

    const std::vector<std::vector<unsigned char>> hostile = {
        {1, 2, 3},
        Frame(0x12345678u, 1, "Raw", 3, "hi", 2),                 // wrong magic
        Frame(kMagic, 1, "Raw", 3, "hi", 100),                    // claims more than it carries
        Frame(kMagic, 1, "Raw", 3, "hi", 1),                      // carries more than it claims
        Frame(kMagic, 1, "", 0, "hi", 2),                         // no sender
        Frame(kMagic, 1, "Raw", 0xFFFFFFFFu, "hi", 0xFFFFFFFFu),  // lengths that wrap a sum
        Frame(kMagic, 1, "Raw", 3, std::string(IpcMessage::kMaxPayload + 1, 'x'),
              IpcMessage::kMaxPayload + 1),  // above the largest payload
    };
    for (const auto& datagram : hostile) {
        ASSERT_TRUE(raw.SendTo("Main", datagram));
    }
    ASSERT_TRUE(raw.SendTo("Main", Frame(kMagic, 0x0A0B0C0Du, "Raw", 3, "ok", 2)));

    IpcMessage got;
    ASSERT_EQ(0, main.Receive(1000, 0, LinxIpc::emptyString, &got));
    EXPECT_EQ(0x0A0B0C0Du, got.MsgType());
    EXPECT_EQ("Raw", got.GetSender());
    ASSERT_EQ(2u, got.Size());
    EXPECT_EQ(0, std::memcmp(got.DataPtr(), "ok", 2));
    EXPECT_EQ(LinxIpc::kTimeout, main.Receive(0, 0, LinxIpc::emptyString, &got));
}
