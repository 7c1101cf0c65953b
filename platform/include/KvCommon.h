// The system's common library: environment lookup and the terminate handler.
#pragma once

// The variable's text, or null when it is not set.
const char* KvGetenv(const char* name);

// Logs the uncaught exception, if any, and aborts; installed with std::set_terminate.
void KorvaneTerminateHandler();
