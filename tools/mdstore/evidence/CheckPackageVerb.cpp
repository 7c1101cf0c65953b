// mdstore check-package: everything a receiver checks with openssl and sha256sum, in one step,
// and then the copy read through and compared with the manifest.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "SegmentFiles.h"
#include "Verbs.h"
#include "evidence/EvidenceFiles.h"
#include "evidence/EvidenceManifest.h"
#include "evidence/Signing.h"
#include "reading/TimeAnchors.h"

namespace {

const char* const kSums = "SHA256SUMS";
const char* const kSignature = "SHA256SUMS.sig";

// Reading a whole small file into text; the package's own files are read in blocks instead.
bool ReadText(const std::string& path, std::string& text) {
    std::vector<unsigned char> data;
    if (!mdj::ReadWholeFile(path, data)) {
        return false;
    }
    text.assign(data.begin(), data.end());
    return true;
}

// The lines of SHA256SUMS as sha256sum writes them: 64 hex digits, two blanks, a plain name.
bool ParseSums(const std::string& text, std::vector<evidence::FileEntry>& files,
               std::string& problem) {
    std::size_t start = 0;
    for (unsigned line = 1; start < text.size(); ++line) {
        const std::size_t end = text.find('\n', start);
        const std::string row = text.substr(start, end - start);
        evidence::FileEntry entry;
        entry.sha256 = row.substr(0, 64);
        entry.name = row.size() > 66 ? row.substr(66) : std::string();
        const bool good =
            end != std::string::npos && row.size() > 66 && row.compare(64, 2, "  ") == 0 &&
            entry.sha256.find_first_not_of("0123456789abcdef") == std::string::npos &&
            entry.name.find('/') == std::string::npos && entry.name != "." && entry.name != "..";
        if (!good) {
            problem =
                std::string(kSums) + ": line " + std::to_string(line) + " is not \"SHA-256  NAME\"";
            return false;
        }
        files.push_back(entry);
        start = end + 1;
    }
    return true;
}

bool Listed(const std::vector<evidence::FileEntry>& files, const std::string& name) {
    return std::any_of(files.begin(), files.end(),
                       [&name](const evidence::FileEntry& file) { return file.name == name; });
}

// The signature, then that the files are exactly the listed ones, each with its hash.
bool CheckFiles(const std::string& dir, const std::string& pubkey,
                std::vector<evidence::FileEntry>& files, std::string& problem) {
    std::string sums;
    std::string signature;
    for (const char* name : {kSums, kSignature}) {
        if (!ReadText(dir + "/" + name, name == kSums ? sums : signature)) {
            problem = std::string(name) + ": missing";
            return false;
        }
    }
    if (!evidence::VerifyBytes(pubkey, sums, signature, problem)) {
        problem = std::string(kSignature) + ": not a signature of " + kSums + " by " + pubkey +
                  " (" + kSums + " or " + kSignature + " changed, or another key)";
        return false;
    }
    if (!ParseSums(sums, files, problem)) {
        return false;
    }
    std::vector<std::string> present;
    evidence::ListTree(dir, present);
    for (const std::string& name : present) {
        if (name != kSums && name != kSignature && !Listed(files, name)) {
            problem = name + ": not listed in " + kSums;
            return false;
        }
    }
    for (evidence::FileEntry& file : files) {
        std::string hash;
        if (std::find(present.begin(), present.end(), file.name) == present.end()) {
            problem = file.name + ": missing";
            return false;
        }
        if (!evidence::HashFile(dir + "/" + file.name, hash, file.size, problem) ||
            hash != file.sha256) {
            problem = file.name + ": its SHA-256 does not match " + kSums;
            return false;
        }
    }
    return true;
}

// The manifest against the copy read through and against the files themselves.
bool CheckManifest(const std::string& dir, const std::vector<evidence::FileEntry>& files,
                   evidence::Contents& contents, std::string& problem) {
    std::string manifest;
    for (const char* needed : {"manifest.json", "drive.mdj"}) {
        if (!Listed(files, needed)) {
            problem = std::string(needed) + ": not in the package";
            return false;
        }
    }
    if (!ReadText(dir + "/manifest.json", manifest)) {
        problem = "manifest.json: cannot be read";
        return false;
    }
    if (!evidence::ReadContents(dir + "/drive.mdj", contents) || contents.problems != 0) {
        problem = "drive.mdj: damaged";
        return false;
    }
    if (manifest.find(evidence::HeldJson(contents)) == std::string::npos) {
        problem = "manifest.json: the range held does not match drive.mdj";
        return false;
    }
    if (manifest.find(evidence::RecordsJson(contents)) == std::string::npos) {
        problem = "manifest.json: the records per kind do not match drive.mdj";
        return false;
    }
    std::size_t entries = 0;
    for (std::size_t at = manifest.find("{\"name\":"); at != std::string::npos;
         at = manifest.find("{\"name\":", at + 1)) {
        ++entries;
    }
    for (const evidence::FileEntry& file : files) {
        if (file.name != "manifest.json" &&
            manifest.find(evidence::FileJson(file)) == std::string::npos) {
            problem = "manifest.json: its entry of " + file.name + " does not match the file";
            return false;
        }
    }
    if (entries + 1 != files.size()) {
        problem = "manifest.json: its files are not those of " + std::string(kSums);
        return false;
    }
    return true;
}

void PrintHeld(const std::string& dir, const std::vector<evidence::FileEntry>& files,
               const evidence::Contents& held) {
    std::printf("OK: package %s, %zu files and their signature\n", dir.c_str(), files.size());
    if (held.anyTick) {
        std::printf("range: ticks %u..%u\n", held.firstTick, held.lastTick);
    }
    std::printf("utc: %s\n", held.anyUtc ? (timeanchor::FormatUtc(held.firstUtc) + ".." +
                                            timeanchor::FormatUtc(held.lastUtc))
                                               .c_str()
                                         : "unknown (no time anchor)");
    std::printf("records: %llu\n", held.records);
    for (const auto& kind : held.perKind) {
        std::printf("  %s: %llu\n", kind.first.c_str(), kind.second);
    }
}

}  // namespace

int CheckPackageVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptPubkey, 1, kCheckPackageUsage, options);
    if (early >= 0) {
        return early;
    }
    if (options.pubkey.empty()) {
        return UsageError(argv[0], "needs --pubkey NAME.pub.pem, the sender's public key");
    }
    const std::string& dir = options.paths[0];
    if (!mdj::IsDirectory(dir)) {
        std::fprintf(stderr, "mdstore: check-package: %s: not a directory\n", dir.c_str());
        return 2;
    }
    std::vector<evidence::FileEntry> files;
    evidence::Contents contents;
    std::string problem;
    if (!evidence::ReadablePublicKey(options.pubkey, problem) ||
        !CheckFiles(dir, options.pubkey, files, problem) ||
        !CheckManifest(dir, files, contents, problem)) {
        std::fprintf(stderr, "mdstore: check-package: %s\n", problem.c_str());
        return 2;
    }
    PrintHeld(dir, files, contents);
    return 0;
}
