// A writer of MCAP files (format version 0): schemas, channels and messages in chunks of about
// a MiB, a message index per channel after each chunk, metadata, and a summary (schemas,
// channels, statistics, chunk and metadata indexes, summary offsets) with every CRC filled in.
// It writes front to back and never seeks, so the output may be a pipe. Memory is one chunk,
// its message indexes and ~100 bytes of chunk index per chunk written. Every integer goes out
// little-endian byte by byte, whatever the host's byte order.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace mcap {

// CRC-32 (IEEE 802.3, as zlib): continues `crc` (0 to start) over `size` bytes at `data`.
std::uint32_t Crc32(std::uint32_t crc, const unsigned char* data, std::size_t size);

enum class Compression { kNone, kZstd };
// True when this build compresses chunks with zstd.
bool HaveZstd();

using StringMap = std::vector<std::pair<std::string, std::string>>;

class Writer {
public:
    Writer(std::FILE* out, Compression compression, std::size_t chunkBytes = 1u << 20);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // The magic and the Header record.
    bool Open(const std::string& profile, const std::string& library);
    // Ids from 1 up; the records go into the data section at once and into the summary.
    std::uint16_t AddSchema(const std::string& name, const std::string& encoding,
                            const std::string& data);
    std::uint16_t AddChannel(std::uint16_t schema, const std::string& topic,
                             const std::string& messageEncoding);
    // Times in nanoseconds; the message's sequence is its number on its channel.
    bool AddMessage(std::uint16_t channel, std::uint64_t logTime, std::uint64_t publishTime,
                    const std::string& data);
    bool AddMetadata(const std::string& name, const StringMap& values);
    // The last chunk, DataEnd, the summary, the footer and the closing magic.
    bool Close();

private:
    struct ChannelState {
        std::uint32_t sequence = 0;
        std::uint64_t count = 0;
        std::vector<std::pair<std::uint64_t, std::uint64_t>> index;  // this chunk's
    };
    struct Group {
        std::uint8_t opcode;
        std::string records;
    };

    bool Emit(const void* data, std::size_t size);
    bool EmitRecord(std::uint8_t opcode, const std::string& content);
    bool FlushChunk();
    bool WriteMessageIndexes(std::string& offsets, std::uint64_t& length);
    std::string Statistics() const;
    bool WriteSummary();

    std::FILE* out_;
    Compression compression_;
    std::size_t chunkBytes_;
    bool ok_ = true;
    std::uint64_t offset_ = 0;
    std::uint32_t dataCrc_ = 0;
    std::uint32_t summaryCrc_ = 0;
    bool inSummary_ = false;

    std::string chunk_;
    std::vector<unsigned char> compressed_;
    std::uint64_t chunkStart_ = 0;
    std::uint64_t chunkEnd_ = 0;
    std::vector<ChannelState> channels_;  // by id - 1

    Group schemas_{0x03, {}};
    Group channelRecords_{0x04, {}};
    Group chunkIndexes_{0x08, {}};
    Group metadataIndexes_{0x0D, {}};
    std::uint16_t schemaCount_ = 0;
    std::uint32_t chunkCount_ = 0;
    std::uint32_t metadataCount_ = 0;
    std::uint64_t messageCount_ = 0;
    std::uint64_t firstTime_ = 0;
    std::uint64_t lastTime_ = 0;
};

}  // namespace mcap
