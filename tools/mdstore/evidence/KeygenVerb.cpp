// mdstore keygen: the Ed25519 key pair that signs evidence packages.
#include <cstdio>
#include <string>

#include "Verbs.h"
#include "evidence/Signing.h"
#include "reading/Options.h"

int KeygenVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptOutput, 0, kKeygenUsage, options);
    if (early >= 0) {
        return early;
    }
    if (options.output == "-" || options.output.empty()) {
        return UsageError(argv[0], "needs -o NAME (writes NAME.pem and NAME.pub.pem)");
    }
    std::string error;
    if (!evidence::MakeKeyPair(options.output, error)) {
        std::fprintf(stderr, "mdstore: keygen: %s\n", error.c_str());
        return 2;
    }
    std::printf(
        "private key %s.pem (keep it to yourself), public key %s.pub.pem (give it to "
        "the receivers)\n",
        options.output.c_str(), options.output.c_str());
    return 0;
}
