#include "MediaPaths.h"

#include <cstdlib>

const char* MediaRoot() {
    const char* root = std::getenv("MEDIA_ROOT");
    return (root != nullptr && *root != '\0') ? root : "/mnt/hd";
}
