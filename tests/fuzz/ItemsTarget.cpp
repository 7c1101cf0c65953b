// Every item decoder on any payload: the first byte picks the item, the rest is the payload of
// a received message (with the platform's guard bytes behind it). What was decoded must encode
// to its own size and come back unchanged through another decode.
#include <functional>
#include <memory>
#include <vector>

#include "ConfigItems.h"
#include "FuzzSupport.h"
#include "HalItems.h"
#include "LinxIpc.h"
#include "MicItems.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"

namespace {

template <typename T>
std::unique_ptr<Item> Make() {
    return std::unique_ptr<Item>(new T());
}

const std::function<std::unique_ptr<Item>()> kItems[] = {
    Make<BoolItem>,
    Make<UShortItem>,
    Make<StringItem>,
    Make<SystickItem>,
    Make<FpgaExternalEventItem>,
    Make<GpsStatusItem>,
    Make<RadarItem>,
    Make<TempStatus>,
    Make<CrashItem>,
    Make<VehicleInfo>,
    Make<Officer>,
    Make<DepartmentInfo>,
    Make<SystemInfo>,
    Make<VideoRecordingSettings>,
    Make<MicStatusResponse>,
    Make<VideoMgrCameraItem>,
    Make<VideoMgrStreamQualityItem>,
    Make<ExternalMgrApi::StreamingLvsStateItem>,
};

std::vector<unsigned char> Encoded(const Item& item) {
    std::vector<unsigned char> bytes(item.Size());
    fuzz::Check(item.Encode(bytes.data()) == bytes.data() + bytes.size(),
                "an item encodes to another size than it says");
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto& make = kItems[data[0] % (sizeof kItems / sizeof kItems[0])];
    IpcMessage message;
    char* payload = reinterpret_cast<char*>(const_cast<std::uint8_t*>(data + 1));
    if (message.Allocate(1, static_cast<unsigned int>(size - 1), payload) != 0) {
        return 0;
    }
    std::unique_ptr<Item> item = make();
    item->DecodeMsg(message);
    const std::vector<unsigned char> first = Encoded(*item);
    std::unique_ptr<Item> again = make();
    IpcMessage copy;
    fuzz::Check(
        copy.Allocate(1, static_cast<unsigned int>(first.size()),
                      reinterpret_cast<char*>(const_cast<unsigned char*>(first.data()))) == 0 &&
            again->DecodeMsg(copy) == 0,
        "an encoded item does not decode");
    fuzz::Check(Encoded(*again) == first, "an item changes through encode and decode");
    return 0;
}
