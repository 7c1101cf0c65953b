#include "exports/McapWriter.h"

#include <algorithm>

#ifdef MDSTORE_HAVE_ZSTD
#include <zstd.h>
#endif

namespace mcap {

namespace {

const unsigned char kMagic[8] = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum Opcode : std::uint8_t {
    kHeader = 0x01,
    kFooter = 0x02,
    kSchema = 0x03,
    kChannel = 0x04,
    kMessage = 0x05,
    kChunk = 0x06,
    kMessageIndex = 0x07,
    kStatistics = 0x0B,
    kMetadata = 0x0C,
    kMetadataIndex = 0x0D,
    kSummaryOffset = 0x0E,
    kDataEnd = 0x0F,
};

struct CrcTable {
    std::uint32_t t[256];
    CrcTable() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t crc = i;
            for (int bit = 0; bit < 8; ++bit) {
                crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
            }
            t[i] = crc;
        }
    }
};
const CrcTable kCrcTable;

// Little-endian whatever the host: one byte at a time.
void PutLe(std::string& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out += static_cast<char>((value >> (8 * i)) & 0xFFu);
    }
}
void Put16(std::string& out, std::uint64_t value) {
    PutLe(out, value, 2);
}
void Put32(std::string& out, std::uint64_t value) {
    PutLe(out, value, 4);
}
void Put64(std::string& out, std::uint64_t value) {
    PutLe(out, value, 8);
}
// String and length-prefixed bytes, maps and arrays: a 32-bit length, then the bytes.
void PutString(std::string& out, const std::string& text) {
    Put32(out, text.size());
    out += text;
}
std::string Record(std::uint8_t opcode, const std::string& content) {
    std::string record(1, static_cast<char>(opcode));
    Put64(record, content.size());
    return record + content;
}

}  // namespace

std::uint32_t Crc32(std::uint32_t crc, const unsigned char* data, std::size_t size) {
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) {
        crc = kCrcTable.t[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
    }
    return ~crc;
}

bool HaveZstd() {
#ifdef MDSTORE_HAVE_ZSTD
    return true;
#else
    return false;
#endif
}

Writer::Writer(std::FILE* out, Compression compression, std::size_t chunkBytes)
    : out_(out),
      compression_(HaveZstd() ? compression : Compression::kNone),
      chunkBytes_(chunkBytes) {
    chunk_.reserve(chunkBytes_ + chunkBytes_ / 8);
}

bool Writer::Emit(const void* data, std::size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    if (inSummary_) {
        summaryCrc_ = Crc32(summaryCrc_, bytes, size);
    } else {
        dataCrc_ = Crc32(dataCrc_, bytes, size);
    }
    offset_ += size;
    ok_ = ok_ && std::fwrite(bytes, 1, size, out_) == size;
    return ok_;
}

bool Writer::EmitRecord(std::uint8_t opcode, const std::string& content) {
    const std::string record = Record(opcode, content);
    return Emit(record.data(), record.size());
}

bool Writer::Open(const std::string& profile, const std::string& library) {
    std::string header;
    PutString(header, profile);
    PutString(header, library);
    return Emit(kMagic, sizeof kMagic) && EmitRecord(kHeader, header);
}

std::uint16_t Writer::AddSchema(const std::string& name, const std::string& encoding,
                                const std::string& data) {
    std::string content;
    Put16(content, ++schemaCount_);
    PutString(content, name);
    PutString(content, encoding);
    PutString(content, data);
    schemas_.records += Record(kSchema, content);
    EmitRecord(kSchema, content);
    return schemaCount_;
}

std::uint16_t Writer::AddChannel(std::uint16_t schema, const std::string& topic,
                                 const std::string& messageEncoding) {
    channels_.emplace_back();
    const std::uint16_t id = static_cast<std::uint16_t>(channels_.size());
    std::string content;
    Put16(content, id);
    Put16(content, schema);
    PutString(content, topic);
    PutString(content, messageEncoding);
    Put32(content, 0);  // no channel metadata
    channelRecords_.records += Record(kChannel, content);
    EmitRecord(kChannel, content);
    return id;
}

bool Writer::AddMessage(std::uint16_t channel, std::uint64_t logTime, std::uint64_t publishTime,
                        const std::string& data) {
    if (channel == 0 || channel > channels_.size()) {
        return false;
    }
    ChannelState& state = channels_[channel - 1];
    if (chunk_.empty()) {
        chunkStart_ = chunkEnd_ = logTime;
    }
    chunkStart_ = std::min(chunkStart_, logTime);
    chunkEnd_ = std::max(chunkEnd_, logTime);
    firstTime_ = messageCount_ == 0 ? logTime : std::min(firstTime_, logTime);
    lastTime_ = messageCount_ == 0 ? logTime : std::max(lastTime_, logTime);
    ++messageCount_;
    ++state.count;
    state.index.emplace_back(logTime, chunk_.size());
    chunk_ += static_cast<char>(kMessage);
    Put64(chunk_, 2 + 4 + 8 + 8 + data.size());
    Put16(chunk_, channel);
    Put32(chunk_, state.sequence++);
    Put64(chunk_, logTime);
    Put64(chunk_, publishTime);
    chunk_ += data;
    return chunk_.size() < chunkBytes_ || FlushChunk();
}

bool Writer::FlushChunk() {
    if (chunk_.empty()) {
        return ok_;
    }
    const unsigned char* records = reinterpret_cast<const unsigned char*>(chunk_.data());
    std::size_t recordsSize = chunk_.size();
    const std::uint32_t crc = Crc32(0, records, recordsSize);
    std::string compression;
#ifdef MDSTORE_HAVE_ZSTD
    if (compression_ == Compression::kZstd) {
        compressed_.resize(ZSTD_compressBound(recordsSize));
        const std::size_t size = ZSTD_compress(compressed_.data(), compressed_.size(), records,
                                               recordsSize, ZSTD_CLEVEL_DEFAULT);
        if (ZSTD_isError(size) != 0) {
            return ok_ = false;
        }
        records = compressed_.data();
        recordsSize = size;
        compression = "zstd";
    }
#endif
    std::string head;
    Put64(head, chunkStart_);
    Put64(head, chunkEnd_);
    Put64(head, chunk_.size());
    Put32(head, crc);
    PutString(head, compression);
    Put64(head, recordsSize);
    const std::uint64_t chunkOffset = offset_;
    std::string prefix(1, static_cast<char>(kChunk));
    Put64(prefix, head.size() + recordsSize);
    Emit(prefix.data(), prefix.size());
    Emit(head.data(), head.size());
    Emit(records, recordsSize);
    const std::uint64_t chunkLength = offset_ - chunkOffset;

    std::string offsets;
    std::uint64_t indexLength = 0;
    WriteMessageIndexes(offsets, indexLength);
    std::string index;
    Put64(index, chunkStart_);
    Put64(index, chunkEnd_);
    Put64(index, chunkOffset);
    Put64(index, chunkLength);
    Put32(index, offsets.size());
    index += offsets;
    Put64(index, indexLength);
    PutString(index, compression);
    Put64(index, recordsSize);
    Put64(index, chunk_.size());
    chunkIndexes_.records += Record(chunkIndexes_.opcode, index);
    ++chunkCount_;
    chunk_.clear();
    return ok_;
}

// One MessageIndex per channel with messages in the chunk just written, by channel id;
// `offsets` gets the map of their file offsets for the chunk's index.
bool Writer::WriteMessageIndexes(std::string& offsets, std::uint64_t& length) {
    const std::uint64_t start = offset_;
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        ChannelState& state = channels_[i];
        if (state.index.empty()) {
            continue;
        }
        Put16(offsets, i + 1);
        Put64(offsets, offset_);
        std::string content;
        Put16(content, i + 1);
        Put32(content, state.index.size() * 16);
        for (const auto& entry : state.index) {
            Put64(content, entry.first);
            Put64(content, entry.second);
        }
        EmitRecord(kMessageIndex, content);
        state.index.clear();
    }
    length = offset_ - start;
    return ok_;
}

bool Writer::AddMetadata(const std::string& name, const StringMap& values) {
    if (!FlushChunk()) {
        return false;
    }
    std::string content;
    PutString(content, name);
    std::string map;
    for (const auto& entry : values) {
        PutString(map, entry.first);
        PutString(map, entry.second);
    }
    PutString(content, map);
    const std::uint64_t start = offset_;
    EmitRecord(kMetadata, content);
    std::string index;
    Put64(index, start);
    Put64(index, offset_ - start);
    PutString(index, name);
    metadataIndexes_.records += Record(metadataIndexes_.opcode, index);
    ++metadataCount_;
    return ok_;
}

std::string Writer::Statistics() const {
    std::string content;
    Put64(content, messageCount_);
    Put16(content, schemaCount_);
    Put32(content, channels_.size());
    Put32(content, 0);  // attachments
    Put32(content, metadataCount_);
    Put32(content, chunkCount_);
    Put64(content, firstTime_);
    Put64(content, lastTime_);
    std::string counts;
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        Put16(counts, i + 1);
        Put64(counts, channels_[i].count);
    }
    PutString(content, counts);
    return content;
}

// The summary's groups, each named by a SummaryOffset, then the footer; the summary CRC runs
// from the first summary byte through the footer's summary offset start.
bool Writer::WriteSummary() {
    const std::uint64_t summaryStart = offset_;
    inSummary_ = true;
    const Group statistics{kStatistics, Record(kStatistics, Statistics())};
    std::string offsets;
    const Group* groups[] = {&schemas_, &channelRecords_, &statistics, &chunkIndexes_,
                             &metadataIndexes_};
    for (const Group* group : groups) {
        if (group->records.empty()) {
            continue;
        }
        std::string entry(1, static_cast<char>(group->opcode));
        Put64(entry, offset_);
        Put64(entry, group->records.size());
        offsets += Record(kSummaryOffset, entry);
        Emit(group->records.data(), group->records.size());
    }
    const std::uint64_t summaryOffsetStart = offset_;
    Emit(offsets.data(), offsets.size());
    std::string footer(1, static_cast<char>(kFooter));
    Put64(footer, 8 + 8 + 4);
    Put64(footer, summaryStart);
    Put64(footer, summaryOffsetStart);
    Emit(footer.data(), footer.size());
    std::string crc;
    Put32(crc, summaryCrc_);
    inSummary_ = false;
    return Emit(crc.data(), crc.size()) && Emit(kMagic, sizeof kMagic);
}

bool Writer::Close() {
    if (!FlushChunk()) {
        return false;
    }
    std::string dataEnd;
    Put32(dataEnd, dataCrc_);
    return EmitRecord(kDataEnd, dataEnd) && WriteSummary() && std::fflush(out_) == 0 && ok_;
}

}  // namespace mcap
