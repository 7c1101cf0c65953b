#include "FuzzSupport.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "JournalReader.h"
#include "RecordSchema.h"
#include "SegmentIndex.h"
#include "StoreState.h"
#include "reading/TimeAnchors.h"

namespace fuzz {

namespace {

std::string gRoot;

void RemoveRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(gRoot, ignored);
}

}  // namespace

const std::string& Root() {
    if (!gRoot.empty()) {
        return gRoot;
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp");
    pattern += "/mmfuzz.XXXXXX";
    Check(::mkdtemp(&pattern[0]) != nullptr, "cannot make the private directory");
    gRoot = pattern;
    std::filesystem::create_directory(gRoot + "/domain");
    std::filesystem::create_directory(gRoot + "/media");
    ::setenv("LINX_DOMAIN", (gRoot + "/domain").c_str(), 1);
    ::setenv("MEDIA_ROOT", (gRoot + "/media").c_str(), 1);
    std::atexit(RemoveRoot);
    return gRoot;
}

std::string Path(const std::string& relative) {
    return Root() + "/" + relative;
}

void WriteFile(const std::string& path, const void* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

void Empty(const std::string& dir) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ignored)) {
        std::filesystem::remove_all(entry.path(), ignored);
    }
}

std::vector<std::string> Split(const std::uint8_t* data, std::size_t size,
                               const std::string& separator) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(separator, from)) != std::string::npos;
         from = at + separator.size()) {
        parts.push_back(text.substr(from, at - from));
    }
    parts.push_back(text.substr(from));
    return parts;
}

const char* const kFileSeparator = "|next-file|";

std::string WriteStore(const std::uint8_t* data, std::size_t size) {
    const std::string dir = Path("store");
    std::filesystem::create_directory(dir);
    Empty(dir);
    const std::string base = dir + "/metadata";
    const std::vector<std::string> parts = Split(data, size, kFileSeparator);
    for (std::size_t i = 0; i < parts.size() && i < 8; ++i) {
        const std::string segment = mdj::SegmentPath(base, static_cast<std::uint32_t>(i / 2 + 1));
        WriteFile(i % 2 == 0 ? segment : mdj::IndexPath(segment), parts[i].data(), parts[i].size());
    }
    return base;
}

namespace {

class Reader : public mdj::JournalSink {
public:
    bool Record(const mdj::SegmentFile& file, const mdj::RecordView& record) override {
        ++counts.records;
        if (record.op == mdj::kOpReportBookmark &&
            mdj::RecordTime(record.op, record.stamp, record.body, record.size) == kMarkerTick) {
            markerFile = file.path;
        }
        state_->Apply(record.op, record.body, record.size);
        anchors_.Note(record);
        long long utcMs = 0;
        if (anchors_.RecordUtc(record, utcMs)) {
            timeanchor::FormatUtc(utcMs);
        }
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t,
                 std::size_t) override {
        mdj::ProblemName(problem);
        ++counts.troubles;
        troubled.insert(file.path);
    }
    ReadCounts counts;
    std::string markerFile;
    std::set<std::string> troubled;

private:
    std::unique_ptr<mdj::StoreState> state_{new mdj::StoreState()};
    timeanchor::TimeAnchors anchors_;
};

}  // namespace

ReadCounts ReadAll(const std::string& path) {
    Reader reader;
    mdj::ReadJournal(path, reader);
    reader.counts.marker = !reader.markerFile.empty();
    reader.counts.markerFileTroubled = reader.troubled.count(reader.markerFile) != 0;
    return reader.counts;
}

void Check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "fuzz: %s\n", what);
        std::abort();
    }
}

}  // namespace fuzz
