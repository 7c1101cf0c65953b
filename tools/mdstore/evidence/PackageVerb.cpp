// mdstore package: a range of a store handed over with proof that nothing in it was changed.
// The package holds exactly what the verbs write (copy, export, report), a manifest,
// SHA256SUMS and its Ed25519 signature. It is made under a temporary name beside DIR and
// renamed into place only when complete.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "SegmentFiles.h"
#include "Verbs.h"
#include "evidence/EvidenceFiles.h"
#include "evidence/EvidenceManifest.h"
#include "evidence/Signing.h"
#include "reading/TimeAnchors.h"

namespace {

const char* const kCopyName = "drive.mdj";

// The files made from the copy, each by one verb given `-o NAME drive.mdj` after these words.
struct MadeFile {
    const char* name;
    int (*verb)(int argc, char** argv);
    std::vector<std::string> words;
};
const MadeFile kMadeFromCopy[] = {
    {"drive.mcap", ExportVerb, {"export", "--format", "mcap"}},
    {"drive.gpx", ExportVerb, {"export", "--format", "gpx"}},
    {"drive.csv", ExportVerb, {"export", "--format", "csv"}},
    {"drive.html", ReportVerb, {"report"}},
};

// Runs a verb in this process; what it would print on standard output (a line naming the
// temporary directory) is dropped, its errors still go to standard error.
int RunVerb(int (*verb)(int, char**), std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved < 0 || sink < 0) {
        close(saved);
        close(sink);
        return 2;
    }
    dup2(sink, STDOUT_FILENO);
    close(sink);
    const int status = verb(static_cast<int>(argv.size() - 1), argv.data());
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    return status;
}

// The copy's command line: the range and kinds as asked.
std::vector<std::string> CopyWords(const Options& options, const std::string& destination) {
    std::vector<std::string> words = {"copy", "--from", std::to_string(options.from), "--to",
                                      std::to_string(options.to)};
    if (options.haveSince) {
        words.insert(words.end(), {"--since", timeanchor::FormatUtc(options.since)});
    }
    if (options.haveUntil) {
        words.insert(words.end(), {"--until", timeanchor::FormatUtc(options.until)});
    }
    for (unsigned op = 0; op < mdj::kOpCount; ++op) {
        if (options.anyKind && options.kinds[op]) {
            words.insert(words.end(), {"--kind", mdj::OpName(static_cast<std::uint8_t>(op))});
        }
    }
    words.insert(words.end(), {options.paths[0], destination});
    return words;
}

// The files made from the copy, each by its verb run inside `dir` so that they name the copy
// as the package does (drive.mdj), not by the temporary directory.
bool MakeFromCopy(const std::string& dir, std::string& error) {
    const int here = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (here < 0 || chdir(dir.c_str()) != 0) {
        error = "cannot work in " + dir;
        if (here >= 0) {
            close(here);
        }
        return false;
    }
    bool made = true;
    for (const MadeFile& file : kMadeFromCopy) {
        std::vector<std::string> words = file.words;
        words.insert(words.end(), {"-o", file.name, kCopyName});
        if (made && RunVerb(file.verb, words) != 0) {
            error = std::string("making ") + file.name + " failed";
            made = false;
        }
    }
    const bool back = fchdir(here) == 0;
    close(here);
    return made && back;
}

bool AddFile(const std::string& dir, const std::string& name,
             std::vector<evidence::FileEntry>& files, std::string& error) {
    evidence::FileEntry entry;
    entry.name = name;
    if (!evidence::SyncPath(dir + "/" + name) ||
        !evidence::HashFile(dir + "/" + name, entry.sha256, entry.size, error)) {
        error = name + " cannot be read back";
        return false;
    }
    files.push_back(entry);
    return true;
}

long long NowUtcMs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Everything of the package inside `dir`; false with `error` naming what failed.
bool Fill(const Options& options, const std::string& dir, evidence::Manifest& manifest,
          std::string& error) {
    if (RunVerb(CopyVerb, CopyWords(options, dir + "/" + kCopyName)) != 0) {
        error = "the copy of " + options.paths[0] + " failed";
        return false;
    }
    if (!MakeFromCopy(dir, error)) {
        return false;
    }
    manifest.asked = &options;
    manifest.madeUtcMs = NowUtcMs();
    if (!evidence::ReadSource(options.paths[0], manifest.source) ||
        !evidence::ReadContents(dir + "/" + kCopyName, manifest.contents)) {
        error = "the copy cannot be read back";
        return false;
    }
    bool good = AddFile(dir, kCopyName, manifest.files, error);
    for (const MadeFile& file : kMadeFromCopy) {
        good = good && AddFile(dir, file.name, manifest.files, error);
    }
    std::vector<evidence::FileEntry> listed = manifest.files;
    good = good && evidence::WriteNewFile(dir + "/manifest.json", ManifestJson(manifest)) &&
           AddFile(dir, "manifest.json", listed, error);
    std::string sums;
    for (const evidence::FileEntry& file : listed) {
        sums += file.sha256 + "  " + file.name + "\n";
    }
    std::string signature;
    good = good && evidence::WriteNewFile(dir + "/SHA256SUMS", sums) &&
           evidence::SignBytes(options.key, sums, signature, error) &&
           evidence::WriteNewFile(dir + "/SHA256SUMS.sig", signature) && evidence::SyncPath(dir);
    if (!good && error.empty()) {
        error = "writing into " + dir + " failed";
    }
    return good;
}

void PrintMade(const std::string& dir, const evidence::Manifest& manifest) {
    const evidence::Contents& held = manifest.contents;
    std::printf("package %s: %llu records", dir.c_str(), held.records);
    if (held.anyTick) {
        std::printf(", ticks %u..%u", held.firstTick, held.lastTick);
    }
    if (held.anyUtc) {
        std::printf(", %s..%s", timeanchor::FormatUtc(held.firstUtc).c_str(),
                    timeanchor::FormatUtc(held.lastUtc).c_str());
    }
    std::printf("; %zu files signed\n", manifest.files.size() + 1);
}

}  // namespace

int PackageVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptRange | kOptKind | kOptOutput | kOptKey, 1,
                                   kPackageUsage, options);
    if (early >= 0) {
        return early;
    }
    if (options.key.empty()) {
        return UsageError(argv[0], "needs --key KEY.pem (mdstore keygen makes one)");
    }
    if (options.output == "-" || options.output.empty()) {
        return UsageError(argv[0], "needs -o DIR, the package's new directory");
    }
    const std::string dir = options.output;
    struct stat info;
    if (lstat(dir.c_str(), &info) == 0) {
        std::fprintf(stderr, "mdstore: %s exists; not overwritten\n", dir.c_str());
        return 2;
    }
    std::string error;
    std::string probe;
    if (!evidence::SignBytes(options.key, "", probe, error)) {
        std::fprintf(stderr, "mdstore: %s\n", error.c_str());
        return 2;
    }
    std::string temporary = dir + ".partial.XXXXXX";
    if (mkdtemp(&temporary[0]) == nullptr) {
        std::fprintf(stderr, "mdstore: cannot make a directory beside %s: %s\n", dir.c_str(),
                     std::strerror(errno));
        return 2;
    }
    evidence::Manifest manifest;
    const bool filled = Fill(options, temporary, manifest, error);
    const bool renamed = filled && renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, dir.c_str(),
                                             RENAME_NOREPLACE) == 0;
    const int why = errno;
    if (!renamed) {
        evidence::RemoveFlatDirectory(temporary);
        std::fprintf(stderr, "mdstore: package %s not made: %s\n", dir.c_str(),
                     !filled         ? error.c_str()
                     : why == EEXIST ? "it appeared meanwhile; not overwritten"
                                     : std::strerror(why));
        return 2;
    }
    evidence::SyncPath(mdj::DirectoryOf(dir));
    PrintMade(dir, manifest);
    return 0;
}
