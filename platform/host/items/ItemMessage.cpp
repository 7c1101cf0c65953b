// Items carried as the payload of one message.
#include "Item.h"
#include "LinxIpc.h"

int Item::EncodeMsg(IpcMessage& msg) const {
    if (msg.Allocate(msg.MsgType(), Size(), nullptr) != 0) {
        return 1;
    }
    unsigned char* data = msg.DataPtr();
    if (data == nullptr) {
        return 2;
    }
    Encode(data);
    return 0;
}

// The endpoint keeps IpcMessage::kGuardBytes of zeros past every payload, so decoding a short
// payload reads zeros for the missing fields; the caller learns of it from the result.
int Item::DecodeMsg(IpcMessage& msg) {
    unsigned char* data = msg.DataPtr();
    if (data == nullptr) {
        return 1;
    }
    const unsigned char* end = Decode(data);
    const unsigned long consumed = static_cast<unsigned long>(end - data);
    return consumed > msg.Size() ? 2 : 0;
}
