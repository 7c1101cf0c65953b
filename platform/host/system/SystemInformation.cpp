#include "SystemInfo.h"

#include <dirent.h>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Exactly "aa:bb:cc:dd:ee:ff" (either case), optionally followed by a line end.
bool ParseMac(const std::string& text, unsigned char (&mac)[6]) {
    std::string::size_type end = text.size();
    while (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r')) {
        --end;
    }
    if (end != 17) {
        return false;
    }
    unsigned char parsed[6];
    for (int i = 0; i < 6; ++i) {
        const int high = HexDigit(text[i * 3]);
        const int low = HexDigit(text[i * 3 + 1]);
        if (high < 0 || low < 0 || (i < 5 && text[i * 3 + 2] != ':')) {
            return false;
        }
        parsed[i] = static_cast<unsigned char>(high * 16 + low);
    }
    std::memcpy(mac, parsed, sizeof parsed);
    return true;
}

bool AllZero(const unsigned char (&mac)[6]) {
    return std::all_of(mac, mac + 6, [](unsigned char b) { return b == 0; });
}

// The first interface by name that is not the loopback and has a real address.
bool MacFromInterfaces(unsigned char (&mac)[6]) {
    DIR* dir = ::opendir("/sys/class/net");
    if (dir == nullptr) {
        return false;
    }
    std::vector<std::string> names;
    while (const struct dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && name != "lo") {
            names.push_back(name);
        }
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        std::ifstream in("/sys/class/net/" + name + "/address");
        std::string line;
        unsigned char candidate[6];
        if (std::getline(in, line) && ParseMac(line, candidate) && !AllZero(candidate)) {
            std::memcpy(mac, candidate, sizeof candidate);
            return true;
        }
    }
    return false;
}

}  // namespace

bool SystemInformation::GetShortMacAddress(unsigned char (&mac)[6]) {
    std::memset(mac, 0, sizeof mac);
    const char* forced = std::getenv("HOST_MAC_ADDRESS");
    if (forced != nullptr) {
        return ParseMac(forced, mac);
    }
    return MacFromInterfaces(mac);
}

bool MfgItem::GetSystemSerialNumber(std::string& serial) {
    const char* forced = std::getenv("HOST_SERIAL_NUMBER");
    if (forced == nullptr) {
        return false;
    }
    serial = forced;
    return true;
}
