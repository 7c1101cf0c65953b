// Log lines of the metadata manager carry the source name "MetadataMgr".
#pragma once

#include "SourceLog.h"

#define MM_LOG(mask) SOURCE_LOG("MetadataMgr", mask)
