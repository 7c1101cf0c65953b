// Helpers of the store tests: a private store directory and an in-process view of its files.
#pragma once

#include <sys/stat.h>
#include <cstdint>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "JournalReader.h"
#include "TestEnv.h"

struct ReadRecord {
    std::uint8_t op;
    std::uint32_t stamp;
    std::vector<unsigned char> body;
    std::size_t end;  // where the record's frame ends in its file
    bool operator==(const ReadRecord& o) const {
        return std::tie(op, stamp, body, end) == std::tie(o.op, o.stamp, o.body, o.end);
    }
};

// What the store's own reader makes of a store (base path) or of one file.
struct ReadResult : mdj::JournalSink {
    explicit ReadResult(const std::string& path) { mdj::ReadJournal(path, *this); }
    std::vector<ReadRecord> records;
    std::vector<mdj::Problem> problems;

    bool Record(const mdj::SegmentFile&, const mdj::RecordView& r) override {
        records.push_back({r.op, r.stamp, {r.body, r.body + r.size}, r.offset + r.frameSize()});
        return true;
    }
    void Trouble(const mdj::SegmentFile&, mdj::Problem problem, std::size_t, std::size_t) override {
        problems.push_back(problem);
    }
};

// A TestEnv with the metadata directory made; `base` is the store's base path.
struct StoreDir {
    StoreDir() { ::mkdir((env.Media() + "/metadata").c_str(), 0770); }
    TestEnv env;
    std::string base = env.MetadataPath();

    std::vector<std::string> Segments() const {  // oldest first
        std::vector<mdj::SegmentFile> files;
        mdj::ListSegments(base, files);
        std::vector<std::string> paths;
        for (const mdj::SegmentFile& file : files) {
            paths.push_back(file.path);
        }
        return paths;
    }
};

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
