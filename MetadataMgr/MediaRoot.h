// Where the recorder keeps its media: "/mnt/hd" on the unit. Built against the host platform,
// MEDIA_ROOT may move it, so that benches and tests run side by side without root.
#pragma once

#include <cstdlib>

inline const char* MediaRoot() {
#ifdef HOST_PLATFORM
    const char* root = std::getenv("MEDIA_ROOT");
    if (root != nullptr && *root != '\0') {
        return root;
    }
#endif
    return "/mnt/hd";
}
