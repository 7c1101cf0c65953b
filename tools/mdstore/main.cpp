// mdstore: the bench tool for the metadata files. This file finds the verb; the verbs live in
// their family folders (reading/ is what they all build on; docs/tools.md is the map).
#include <cstdio>
#include <cstring>

#include "ProjectVersion.h"
#include "Verbs.h"
#include "exports/McapWriter.h"

namespace {

struct Verb {
    const char* name;
    int (*run)(int argc, char** argv);
};

// A new verb is one line here, its function and its usage text.
const Verb kVerbs[] = {
    {"info", InfoVerb},       {"cat", CatVerb},         {"copy", CopyVerb},
    {"verify", VerifyVerb},   {"summary", SummaryVerb}, {"export", ExportVerb},
    {"report", ReportVerb},   {"diff", DiffVerb},       {"traffic", TrafficVerb},
    {"package", PackageVerb}, {"keygen", KeygenVerb},   {"check-package", CheckPackageVerb},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("mdstore: needs a verb (mdstore --help for usage)\n", stderr);
        return 1;
    }
    const char* verb = argv[1];
    if (std::strcmp(verb, "--help") == 0 || std::strcmp(verb, "-h") == 0 ||
        std::strcmp(verb, "help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (std::strcmp(verb, "--version") == 0) {
        std::printf("mdstore %s\n", PROJECT_VERSION_TEXT);
        std::printf("mcap compression: %s\n", mcap::HaveZstd() ? "zstd, none" : "none");
        std::printf("%s\n", kPackagingText);
        return 0;
    }
    for (const Verb& entry : kVerbs) {
        if (std::strcmp(verb, entry.name) == 0) {
            return entry.run(argc - 1, argv + 1);
        }
    }
    std::fprintf(stderr, "mdstore: unknown verb %s (mdstore --help for usage)\n", verb);
    return 1;
}
