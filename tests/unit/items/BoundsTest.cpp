// Hostile input stays inside the item's layout: every buffer here ends at an unreadable page.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ItemTestSupport.h"
#include "LinxIpc.h"
#include "SampleItems.h"

using namespace itemtest;

TEST(ItemBounds, TextsAreCutAtTheirLimit) {
    const unsigned int kLimit = StringItem::kMaxLength;

    // No NUL at all: the byte after kMaxLength characters ends the text, whatever it is.
    FencedBuffer unterminated(kLimit + 1);
    std::memset(unterminated.data(), 'A', kLimit + 1);
    StringItem text;
    EXPECT_EQ(unterminated.data() + kLimit + 1, text.Decode(unterminated.data()));
    EXPECT_EQ(kLimit, text.Length());
    EXPECT_EQ(std::string(kLimit, 'A'), text.Get());

    FencedBuffer shortText(6);
    std::memcpy(shortText.data(), "hello", 6);
    EXPECT_EQ(shortText.data() + 6, text.Decode(shortText.data()));
    EXPECT_STREQ("hello", text.Get());
    EXPECT_EQ(6u, text.Size());

    // A longer text is cut and decoding goes on after kMaxLength + 1 bytes.
    Bytes longText(300, 'B');
    longText.push_back(0);
    EXPECT_EQ(longText.data() + kLimit + 1, text.Decode(longText.data()));
    EXPECT_EQ(kLimit, text.Length());

    const std::string tooLong(400, 'C');
    text.Set(tooLong.c_str());
    EXPECT_EQ(kLimit, text.Length());
    EXPECT_EQ(kLimit + 1, text.Size());
    text.Set(text.Get());
    EXPECT_EQ(std::string(kLimit, 'C'), text.Get());
    text.Set(nullptr);
    EXPECT_STREQ("", text.Get());

    // An unterminated address inside the streaming item: the port still follows the cut text.
    const unsigned int size = 1 + 1 + 2 + (kLimit + 1) + 2;
    FencedBuffer stream(size);
    Layout layout(size);
    std::memset(layout.data() + 4, '9', kLimit + 1);
    layout.At<unsigned char>(0, 1).At<unsigned short>(2, 3).At<unsigned short>(size - 2, 8554);
    std::memcpy(stream.data(), layout.data(), size);
    ExternalMgrApi::StreamingLvsStateItem item;
    EXPECT_EQ(stream.data() + size, item.Decode(stream.data()));
    EXPECT_EQ(kLimit, std::strlen(item.Address()));
    EXPECT_EQ(3, item.Camera());
    EXPECT_EQ(8554, item.Port());
}

// A list longer than the item holds is malformed: it decodes as an empty response with no
// tick, reading nothing past the count word, so no entry or tick of it reaches the store.
TEST(ItemBounds, MicCountBeyondTheEntriesDecodesEmpty) {
    const unsigned int kMax = MicStatusResponse::kMaxEntries;
    for (unsigned int count : {kMax + 1, 0xFFFFFFFFu}) {
        const unsigned int fullSize = 4 + 8 * (kMax + 1) + 4;
        Layout layout(fullSize);
        layout.At<unsigned int>(0, count);
        for (unsigned int i = 0; i <= kMax; ++i) {
            layout.At<unsigned int>(4 + 8 * i, i).At<unsigned char>(8 + 8 * i, 1);
        }
        layout.At<unsigned int>(fullSize - 4, 0x12345678u);
        FencedBuffer fenced(4);
        std::memcpy(fenced.data(), layout.data(), 4);
        MicStatusResponse mics;
        ASSERT_TRUE(mics.Add(e_Mic_1, true, true));
        mics.tick = 99;
        EXPECT_EQ(fenced.data() + 4, mics.Decode(fenced.data()));
        EXPECT_EQ(0u, mics.Count());
        EXPECT_EQ(0u, mics.tick);

        // Whole, in a message: the same.
        IpcMessage msg;
        ASSERT_EQ(0, msg.Allocate(13511, fullSize, reinterpret_cast<char*>(layout.data())));
        ASSERT_EQ(0, mics.DecodeMsg(msg));
        EXPECT_EQ(0u, mics.Count());
        EXPECT_EQ(0u, mics.tick);
    }

    // A full list is read whole; a count the payload cannot hold fails the decode.
    const unsigned int fullSize = 4 + 8 * kMax + 4;
    Layout layout(fullSize);
    layout.At<unsigned int>(0, kMax);
    for (unsigned int i = 0; i < kMax; ++i) {
        layout.At<unsigned int>(4 + 8 * i, i).At<unsigned char>(8 + 8 * i, 1);
    }
    layout.At<unsigned int>(fullSize - 4, 0x12345678u);
    FencedBuffer fenced(fullSize);
    std::memcpy(fenced.data(), layout.data(), fullSize);
    MicStatusResponse mics;
    EXPECT_EQ(fenced.data() + fullSize, mics.Decode(fenced.data()));
    ASSERT_EQ(kMax, mics.Count());
    EXPECT_EQ(static_cast<e_MicrophonePosition>(kMax - 1), mics.EntryAt(kMax - 1).position);
    EXPECT_TRUE(mics.EntryAt(kMax - 1).present);
    EXPECT_EQ(0x12345678u, mics.tick);
    IpcMessage msg;
    ASSERT_EQ(0, msg.Allocate(13511, 4, reinterpret_cast<char*>(layout.data())));
    EXPECT_NE(0, mics.DecodeMsg(msg));
}
