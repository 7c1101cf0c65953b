// The records of a drive: what the vehicle told the process, in store order. Snapshots, the
// process's own start-up and shutdown records (previous run, MAC, serial number, versions,
// configuration, "process started") and record types this tool does not know are left out:
// they describe the run or the file, not the drive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "JournalFormat.h"
#include "JournalReader.h"
#include "SegmentWindow.h"

struct DriveRecord {
    std::uint8_t op = 0;
    std::uint32_t stamp = 0;  // the store's "at"
    std::vector<unsigned char> body;
    std::size_t number = 0;  // 1-based position among every record of the store

    mdj::RecordView View() const;
    // "AT OP field=value ...", as mdstore cat prints it.
    std::string Text() const;
    // Operation and arguments alike; "at" is the store's own business.
    bool operator==(const DriveRecord& other) const { return op == other.op && body == other.body; }
};

// The records of a drive one at a time, as they are asked for, read through a bounded window.
class DriveReader {
public:
    // False when `path` is no readable store.
    bool Open(const std::string& path);
    // The next record of the drive; false at the end of the store.
    bool Next(DriveRecord& record);
    // The process runs among the records read so far (their start-up records).
    int Runs() const { return runs_; }

private:
    mdj::JournalFiles files_;
    std::size_t segment_ = 0;
    std::vector<unsigned char> data_;
    mdj::SegmentWindow window_{data_};
    std::unique_ptr<mdj::SegmentScanner> scanner_;
    std::size_t count_ = 0;
    int runs_ = 0;
};
