// The store's side of a test: the records of a metadata store as `mdstore cat --json` prints
// them, flattened into "key" -> "value" text ("item.latDegrees", "mac.0", ...).
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

struct StoreRecord {
    std::map<std::string, std::string> fields;
    std::string line;  // the JSON line as printed

    std::string Op() const { return Get("op"); }
    bool Has(const std::string& key) const { return fields.count(key) != 0; }
    // "" when absent; strings without their quotes, numbers and booleans as printed.
    std::string Get(const std::string& key) const;
    long long Int(const std::string& key) const;  // 0 when absent or not a number
};

// Runs mdstore cat --json on the store at `basePath` (extra arguments such as --from appended).
// On failure returns no records and sets `error` when given.
std::vector<StoreRecord> ReadStoreRecords(const std::string& basePath, const std::string& workDir,
                                          const std::vector<std::string>& extraArgs = {},
                                          std::string* error = nullptr);

// The records whose op is `op`, in order.
std::vector<StoreRecord> WithOp(const std::vector<StoreRecord>& records, const std::string& op);

// Parses one JSON object line into flattened fields; false on malformed input.
bool ParseJsonObjectLine(const std::string& line, std::map<std::string, std::string>& fields);

// lat/lon of every `<tag lat=".." lon="..">` in a GPX text.
std::vector<std::pair<double, double>> GpxPoints(const std::string& xml, const std::string& tag);
