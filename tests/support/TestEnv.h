// A private IPC domain and media root for one test, so tests run in parallel and never meet.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

class TestEnv {
public:
    // Creates <tmp>/mmtest.XXXXXX with domain/ and media/ inside and points LINX_DOMAIN and
    // MEDIA_ROOT of this process (and of every program it starts) at them.
    TestEnv();
    // Removes the whole tree unless KEEP_TEST_FILES is set.
    ~TestEnv();
    TestEnv(const TestEnv&) = delete;
    TestEnv& operator=(const TestEnv&) = delete;

    const std::string& Root() const { return root_; }
    const std::string& Domain() const { return domain_; }
    const std::string& Media() const { return media_; }
    // <root>/<relative>
    std::string Path(const std::string& relative) const { return root_ + "/" + relative; }
    // The store's base path the process uses: <media>/metadata/metadata.
    std::string MetadataPath() const { return media_ + "/metadata/metadata"; }

    // Writes `text` to <root>/<relative> and returns the full path.
    std::string WriteFile(const std::string& relative, const std::string& text) const;

private:
    std::string root_;
    std::string domain_;
    std::string media_;
};

// Whole contents of a file ("" when it cannot be read).
std::string ReadFileText(const std::string& path);
// How often `part` occurs in `text` from `from` on, overlaps included.
unsigned int Count(const std::string& text, const std::string& part, std::size_t from = 0);

using Bytes = std::vector<unsigned char>;
// A word's bytes in this machine's order, as a payload carries it.
inline Bytes WordBytes(unsigned int word) {
    Bytes bytes(sizeof word);
    std::memcpy(bytes.data(), &word, sizeof word);
    return bytes;
}
