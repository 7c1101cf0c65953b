#include "ExternalMgrApi.h"

#include <cstdlib>
#include <cstring>

ExternalMgrApi::~ExternalMgrApi() = default;

bool ExternalMgrApi::InLvsForceHqStreaming() {
    const char* forced = std::getenv("LVS_FORCE_HQ");
    return forced != nullptr && std::strcmp(forced, "0") != 0;
}
