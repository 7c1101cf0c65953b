// The command line of a plain bench program: --help, and up to a few numbers in order.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Reads argv[1..] into `values` (up to `count`; those not given keep their defaults). Returns
// -1 to go on, else the exit status: 0 after --help or -h (the usage on standard output,
// nothing run), 2 when an argument is no number or there are too many (the usage on standard
// error).
inline int ParseBenchArgs(int argc, char** argv, const char* usage, double* values, int count) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(usage, stdout);
            return 0;
        }
    }
    for (int i = 1; i < argc; ++i) {
        char* end = nullptr;
        const double value = std::strtod(argv[i], &end);
        if (i > count || argv[i][0] == '\0' || *end != '\0' || !(value >= 0)) {
            std::fprintf(stderr, "%s: bad argument '%s'\n%s", argv[0], argv[i], usage);
            return 2;
        }
        values[i - 1] = value;
    }
    return -1;
}
