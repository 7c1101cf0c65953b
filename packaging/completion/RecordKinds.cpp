// Prints the names mdstore's --kind takes (the store's record kinds), one a line, for the
// shell completion made at build time.
#include <cstdint>
#include <cstdio>

#include "RecordSchema.h"

int main() {
    for (unsigned op = 1; op < mdj::kOpCount; ++op) {
        const char* name = mdj::OpName(static_cast<std::uint8_t>(op));
        if (mdj::OpByName(name) == op) {
            std::printf("%s\n", name);
        }
    }
    return 0;
}
