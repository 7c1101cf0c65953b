// Helpers of the store tests: a private store directory and an in-process view of its files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "JournalReader.h"
#include "TestEnv.h"

struct ReadRecord {
    std::uint8_t op = 0;
    std::uint32_t stamp = 0;
    std::vector<unsigned char> body;
    bool operator==(const ReadRecord& other) const {
        return op == other.op && stamp == other.stamp && body == other.body;
    }
};

struct ReadResult {
    bool readable = false;
    std::vector<ReadRecord> records;
    std::vector<mdj::Problem> problems;
    std::vector<std::size_t> problemOffsets;
};

// Reads a store (base path) or one file with the store's reader.
ReadResult ReadAll(const std::string& path);

// A TestEnv with the metadata directory made; `base` is the store's base path.
struct StoreDir {
    StoreDir();
    TestEnv env;
    std::string base;
    std::vector<std::string> Segments() const;  // paths, oldest first
};

std::vector<unsigned char> ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<unsigned char>& bytes);
