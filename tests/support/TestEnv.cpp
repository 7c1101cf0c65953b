#include "TestEnv.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

TestEnv::TestEnv() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/mmtest.XXXXXX";
    if (::mkdtemp(&pattern[0]) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    root_ = pattern;
    domain_ = root_ + "/domain";
    media_ = root_ + "/media";
    ::mkdir(domain_.c_str(), 0700);  // the platform refuses a domain others may write
    ::mkdir(media_.c_str(), 0770);
    ::setenv("LINX_DOMAIN", domain_.c_str(), 1);
    ::setenv("MEDIA_ROOT", media_.c_str(), 1);
}

TestEnv::~TestEnv() {
    if (std::getenv("KEEP_TEST_FILES") == nullptr) {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
}

std::string TestEnv::WriteFile(const std::string& relative, const std::string& text) const {
    const std::string path = Path(relative);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    return path;
}

std::string ReadFileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

unsigned int Count(const std::string& text, const std::string& part, std::size_t from) {
    unsigned int n = 0;
    for (size_t at = text.find(part, from); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}
