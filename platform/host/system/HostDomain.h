// Where the host platform keeps the shared state of one simulated vehicle.
#pragma once

#include <string>

namespace hostsystem {

// LINX_DOMAIN, or /tmp/linx when it is unset or empty.
std::string DomainDir();

// Creates `path` and any missing parents; true when it exists as a directory afterwards.
bool MakeDirs(const std::string& path);

// CLOCK_MONOTONIC in milliseconds.
unsigned long long MonotonicMs();

}  // namespace hostsystem
