#include "StoreTestSupport.h"

#include <sys/stat.h>
#include <fstream>
#include <iterator>

#include "SegmentFiles.h"

namespace {
class Collector : public mdj::JournalSink {
public:
    explicit Collector(ReadResult& result) : result_(result) {}
    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        ReadRecord r;
        r.op = record.op;
        r.stamp = record.stamp;
        r.body.assign(record.body, record.body + record.size);
        result_.records.push_back(r);
        return true;
    }
    void Trouble(const mdj::SegmentFile&, mdj::Problem problem, std::size_t offset,
                 std::size_t) override {
        result_.problems.push_back(problem);
        result_.problemOffsets.push_back(offset);
    }

private:
    ReadResult& result_;
};
}  // namespace

ReadResult ReadAll(const std::string& path) {
    ReadResult result;
    Collector collector(result);
    result.readable = mdj::ReadJournal(path, collector);
    return result;
}

StoreDir::StoreDir() : base(env.MetadataPath()) {
    ::mkdir((env.Media() + "/metadata").c_str(), 0770);
}

std::vector<std::string> StoreDir::Segments() const {
    std::vector<mdj::SegmentFile> files;
    mdj::ListSegments(base, files);
    std::vector<std::string> paths;
    for (const mdj::SegmentFile& file : files) {
        paths.push_back(file.path);
    }
    return paths;
}

std::vector<unsigned char> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}
