// The JSON schemas (encoding "jsonschema") of the channels mdstore writes into MCAP files: one
// per record kind, made from the store's own record layouts and the values cat decodes beside
// them, and the two well-known shapes viewers draw (foxglove.LocationFix, foxglove.Log).
#pragma once

#include <cstdint>
#include <string>

namespace mcapexport {

// The schema of the records of kind `op` as `mdstore cat --json` prints them.
std::string RecordSchemaJson(std::uint8_t op);
std::string LocationFixSchemaJson();
std::string LogSchemaJson();

}  // namespace mcapexport
