// What --version says of a build with evidence packages.
#include "Verbs.h"

const char* const kPackagingText = "packaging: SHA-256 and Ed25519 signatures with OpenSSL";
