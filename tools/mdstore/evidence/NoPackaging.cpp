// The verbs of evidence packages in a build without OpenSSL (the target's): they say so, and
// still print their usage on --help like every verb.
#include <cstdio>
#include <cstring>

#include "Verbs.h"

namespace {

int NoPackaging(int argc, char** argv, const char* usage) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(usage, stdout);
            return 0;
        }
    }
    std::fprintf(stderr, "mdstore: %s: this build has no packaging (built without OpenSSL)\n",
                 argv[0]);
    return 2;
}

}  // namespace

const char* const kPackagingText = "packaging: not in this build (built without OpenSSL)";

int PackageVerb(int argc, char** argv) {
    return NoPackaging(argc, argv, kPackageUsage);
}
int KeygenVerb(int argc, char** argv) {
    return NoPackaging(argc, argv, kKeygenUsage);
}
int CheckPackageVerb(int argc, char** argv) {
    return NoPackaging(argc, argv, kCheckPackageUsage);
}
