// The verbs of evidence packages in a build without OpenSSL (the target's): they say so.
#include <cstdio>

#include "Verbs.h"

namespace {

int NoPackaging(const char* verb) {
    std::fprintf(stderr, "mdstore: %s: this build has no packaging (built without OpenSSL)\n",
                 verb);
    return 2;
}

}  // namespace

const char* const kPackagingText = "packaging: not in this build (built without OpenSSL)";

int PackageVerb(int, char**) {
    return NoPackaging("package");
}
int KeygenVerb(int, char**) {
    return NoPackaging("keygen");
}
int CheckPackageVerb(int, char**) {
    return NoPackaging("check-package");
}
