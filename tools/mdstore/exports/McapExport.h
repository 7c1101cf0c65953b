// mdstore export --format mcap: the store as an MCAP file for timeline viewers, in one pass.
#pragma once

#include "reading/Options.h"

// Writes the records `options` keep to options.output; the exit status of the verb.
int ExportMcap(const Options& options);
