#include "evidence/EvidenceFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>

#include "SegmentFiles.h"

namespace evidence {

namespace {

bool ListInto(const std::string& dir, const std::string& prefix, std::vector<std::string>& names) {
    DIR* stream = opendir(dir.c_str());
    if (stream == nullptr) {
        return false;
    }
    bool good = true;
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        struct stat info;
        const std::string path = dir + "/" + name;
        if (lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
            names.push_back(prefix + name + "/");
            good = ListInto(path, prefix + name + "/", names) && good;
        } else {
            names.push_back(prefix + name);
        }
    }
    closedir(stream);
    return good;
}

}  // namespace

bool WriteNewFile(const std::string& path, const std::string& data) {
    const int fd = mdj::CreateNewFile(path);
    if (fd < 0) {
        return false;
    }
    const bool written =
        mdj::WriteAll(fd, reinterpret_cast<const unsigned char*>(data.data()), data.size()) &&
        fdatasync(fd) == 0;
    return close(fd) == 0 && written;
}

bool SyncPath(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool synced = fsync(fd) == 0;
    return close(fd) == 0 && synced;
}

bool ListTree(const std::string& dir, std::vector<std::string>& names) {
    names.clear();
    const bool listed = ListInto(dir, "", names);
    std::sort(names.begin(), names.end());
    return listed;
}

void RemoveFlatDirectory(const std::string& dir) {
    std::vector<std::string> names;
    ListTree(dir, names);
    for (const std::string& name : names) {
        unlink((dir + "/" + name).c_str());
    }
    rmdir(dir.c_str());
}

}  // namespace evidence
