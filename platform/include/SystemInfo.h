// Identity of the unit: MAC address, serial number, software versions.
#pragma once

#include <string>
#include <vector>

class SystemInformation {
public:
    // The unit's short MAC address (6 bytes). true = read.
    static bool GetShortMacAddress(unsigned char (&mac)[6]);
};

class MfgItem {
public:
    // The manufacturing serial number; false when there is none.
    static bool GetSystemSerialNumber(std::string& serial);
};

class VersionEntry {
public:
    VersionEntry(const std::string& name, const std::string& software, const std::string& hardware);
    const std::string& Name() const { return name_; }
    std::string asString_sw() const { return software_; }
    std::string asString_hw() const { return hardware_; }

private:
    std::string name_;
    std::string software_;
    std::string hardware_;
};

class VersionApi {
public:
    // The unit's version file.
    static const std::string versionFile;
    // Reads every entry of `file`; false when it cannot be read.
    static bool GetAllVersions(std::vector<VersionEntry>& entries, const std::string& file);
};
