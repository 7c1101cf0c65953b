#include "SystemInfo.h"

#include <sys/stat.h>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string VersionFileAtStart() {
    const char* file = std::getenv("VERSION_FILE");
    return file != nullptr ? std::string(file) : std::string("/etc/versions");
}

}  // namespace

const std::string VersionApi::versionFile = VersionFileAtStart();

VersionEntry::VersionEntry(const std::string& name, const std::string& software,
                           const std::string& hardware)
    : name_(name), software_(software), hardware_(hardware) {}

// Lines read "NAME SOFTWARE [HARDWARE]"; blank lines and lines starting with '#' are notes.
// A line without a software version is not an entry.
bool VersionApi::GetAllVersions(std::vector<VersionEntry>& entries, const std::string& file) {
    // A directory opens like a file but never reads; it is not a version file.
    struct stat info;
    if (::stat(file.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) {
        return false;
    }
    std::ifstream in(file);
    if (!in) {
        return false;
    }
    entries.clear();
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string name;
        std::string software;
        std::string hardware;
        if (!(fields >> name) || name[0] == '#' || !(fields >> software)) {
            continue;
        }
        fields >> hardware;
        entries.emplace_back(name, software, hardware);
    }
    return !in.bad();
}
