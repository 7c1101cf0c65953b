// The command line of one mdstore verb, parsed with getopt_long: the options each verb
// allows, and one line naming the problem on a usage error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "JournalFormat.h"
#include "RecordSchema.h"

// The option groups a verb takes.
enum OptionSet : unsigned {
    kOptJson = 1u << 0,    // --json
    kOptRange = 1u << 1,   // --from, --to, --since, --until
    kOptKind = 1u << 2,    // --kind OP (repeatable)
    kOptLast = 1u << 3,    // -n N
    kOptFollow = 1u << 4,  // --follow[=SECONDS]
    kOptExport = 1u << 5,  // --format F, -o FILE, --compression C
    kOptOutput = 1u << 6,  // -o FILE alone
    kOptKey = 1u << 7,     // --key FILE
    kOptPubkey = 1u << 8,  // --pubkey FILE
    kOptDraws = 1u << 9,   // --draws FILE
};

struct Options {
    bool json = false;
    std::uint32_t from = 0;
    std::uint32_t to = 0xFFFFFFFFu;
    bool haveSince = false;
    bool haveUntil = false;
    long long since = 0;  // UTC milliseconds
    long long until = 0;
    bool kinds[mdj::kOpCount] = {};
    bool anyKind = false;
    long long last = -1;  // -n: keep the last N records; -1 all
    bool follow = false;
    double followSeconds = 0;  // 0: until SIGINT or SIGTERM
    std::string format;
    std::string output = "-";
    std::string compression;  // MCAP chunks: "none", "zstd" or "" (zstd where the build has it)
    std::string key;          // --key: a private key (PEM)
    std::string pubkey;       // --pubkey: a public key (PEM)
    std::string draws;        // the simulator's draws log
    std::vector<std::string> paths;

    // True when the record passes --from/--to, --kind and (with `utcMs`, null when unknown)
    // --since/--until; a record without a UTC never passes a --since or --until.
    bool Keeps(const mdj::RecordView& record, const long long* utcMs) const;
};

// Parses argv (argv[0] is the verb) for a verb taking `allowed`, `pathCount` paths and up to
// `optionalPaths` more. Returns -1 to go on, else the exit status: 0 after --help, 1 after a
// usage error.
int ParseOptions(int argc, char** argv, unsigned allowed, std::size_t pathCount, const char* usage,
                 Options& options, std::size_t optionalPaths = 0);

// "mdstore: VERB: PROBLEM (mdstore VERB --help for usage)" on standard error; returns 1.
int UsageError(const char* verb, const std::string& problem);
