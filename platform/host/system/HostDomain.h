// Where the host platform keeps the shared state of one simulated vehicle, and how it makes sure
// that nobody but the user running it can reach into it.
#pragma once

#include <string>

namespace hostsystem {

// LINX_DOMAIN, or DefaultDomainDir() when it is unset or empty.
std::string DomainDir();

// The user's own domain: $XDG_RUNTIME_DIR/linx when XDG_RUNTIME_DIR is an absolute path to a
// directory of this user that nobody else may write, else /tmp/linx-<uid>.
std::string DefaultDomainDir();

// Makes `dir` (with any missing parents, mode 0700) a directory only this user can use, or
// checks that the existing one is: a directory owned by this user that neither group nor others
// may write. False, with a line on standard error saying why, when it is not.
bool PrepareOwnDir(const std::string& dir);

// Opens the regular file of this user at `path` (`flags` O_RDONLY or O_RDWR, with O_CREAT to
// create it), never through a symbolic link; a file opened for writing gets mode 0600. -1 when
// the path holds anything else (said on standard error) or, without O_CREAT, nothing.
int OpenOwnFile(const std::string& path, int flags);

// CLOCK_MONOTONIC in milliseconds.
unsigned long long MonotonicMs();

}  // namespace hostsystem
