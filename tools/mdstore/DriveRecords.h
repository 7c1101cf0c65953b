// The records of a drive: what the vehicle told the process, in store order. Snapshots, the
// process's own start-up and shutdown records (previous run, MAC, serial number, versions,
// configuration, "process started") and record types this tool does not know are left out:
// they describe the run or the file, not the drive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "JournalFormat.h"

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

// False (with `error` set) when `path` is no readable store. `runs` counts the process runs
// the store holds (its start-up records).
bool ReadDrive(const std::string& path, std::vector<DriveRecord>& records, int& runs,
               std::string& error);
