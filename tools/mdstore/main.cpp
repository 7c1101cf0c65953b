// mdstore: the bench tool for the metadata files (info, cat, copy, verify, summary).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Verbs.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    const std::string verb = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (verb == "--help" || verb == "-h" || verb == "help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (verb == "info") {
        return InfoVerb(args);
    }
    if (verb == "cat") {
        return CatVerb(args);
    }
    if (verb == "copy") {
        return CopyVerb(args);
    }
    if (verb == "verify") {
        return VerifyVerb(args);
    }
    if (verb == "summary") {
        return SummaryVerb(args);
    }
    if (verb == "diff") {
        return DiffVerb(args);
    }
    if (verb == "traffic") {
        return TrafficVerb(args);
    }
    std::fprintf(stderr, "mdstore: unknown verb %s\n", verb.c_str());
    std::fputs(kUsage, stderr);
    return 1;
}
