#include "reading/Options.h"

#include <getopt.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "reading/TimeAnchors.h"

namespace {

bool ParseTick(const char* text, std::uint32_t& value) {
    if (text[0] == '\0' || text[0] == '-' || text[0] == '+') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text, &end, 0);
    if (errno != 0 || *end != '\0' || parsed > 0xFFFFFFFFull) {
        return false;
    }
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

enum LongOnly {
    kFrom = 256,
    kTo,
    kSince,
    kUntil,
    kKind,
    kFollow,
    kFormat,
    kJson,
    kCompression,
    kKey,
    kPubkey,
    kDraws
};

struct Allowed {
    option entry;
    unsigned set;  // 0: every verb
};

const Allowed kAll[] = {
    {{"help", no_argument, nullptr, 'h'}, 0},
    {{"json", no_argument, nullptr, kJson}, kOptJson},
    {{"from", required_argument, nullptr, kFrom}, kOptRange},
    {{"to", required_argument, nullptr, kTo}, kOptRange},
    {{"since", required_argument, nullptr, kSince}, kOptRange},
    {{"until", required_argument, nullptr, kUntil}, kOptRange},
    {{"kind", required_argument, nullptr, kKind}, kOptKind},
    {{"lines", required_argument, nullptr, 'n'}, kOptLast},
    {{"follow", optional_argument, nullptr, kFollow}, kOptFollow},
    {{"format", required_argument, nullptr, kFormat}, kOptExport},
    {{"output", required_argument, nullptr, 'o'}, kOptExport | kOptOutput},
    {{"compression", required_argument, nullptr, kCompression}, kOptExport},
    {{"key", required_argument, nullptr, kKey}, kOptKey},
    {{"pubkey", required_argument, nullptr, kPubkey}, kOptPubkey},
    {{"draws", required_argument, nullptr, kDraws}, kOptDraws},
};

// A time (UTC) or a tick, for --since and --until: a tick is dated when the records are.
bool ParseMoment(const char* text, std::uint32_t& tick, bool& isTick, long long& utcMs) {
    isTick = ParseTick(text, tick);
    return isTick || timeanchor::ParseUtc(text, utcMs);
}

// --format, --compression and --draws: keeps the value; what is wrong with it, "" when nothing.
std::string TakeChoice(int code, const std::string& value, Options& options) {
    if (code == kDraws) {
        options.draws = value;
        return value.empty() ? "--draws needs a file" : "";
    }
    if (code == kFormat) {
        options.format = value;
        return value == "gpx" || value == "geojson" || value == "csv" || value == "kml" ||
                       value == "mcap"
                   ? ""
                   : "--format is gpx, geojson, csv, kml or mcap, not " + value;
    }
    options.compression = value;
    return value == "none" || value == "zstd" ? "" : "--compression is none or zstd, not " + value;
}

}  // namespace

int UsageError(const char* verb, const std::string& problem) {
    std::fprintf(stderr, "mdstore: %s: %s (mdstore %s --help for usage)\n", verb, problem.c_str(),
                 verb);
    return 1;
}

bool Options::Keeps(const mdj::RecordView& record, const long long* utcMs) const {
    const std::uint32_t time = mdj::RecordTime(record.op, record.stamp, record.body, record.size);
    if (time < from || time > to || (anyKind && !kinds[record.op])) {
        return false;
    }
    if ((haveSince || haveUntil) &&
        (utcMs == nullptr || (haveSince && *utcMs < since) || (haveUntil && *utcMs > until))) {
        return false;
    }
    return true;
}

namespace {

// The getopt tables for the option groups a verb allows.
void BuildTables(unsigned allowed, std::vector<option>& longOptions, std::string& shortOptions) {
    shortOptions = ":h";
    for (const Allowed& entry : kAll) {
        if (entry.set == 0 || (entry.set & allowed) != 0) {
            longOptions.push_back(entry.entry);
            if (entry.entry.val < 256 && entry.entry.val != 'h') {
                shortOptions += static_cast<char>(entry.entry.val);
                shortOptions += ':';
            }
        }
    }
    longOptions.push_back(option{nullptr, 0, nullptr, 0});
}

// --since and --until: a tick narrows the tick range, a time the UTC range.
std::string TakeMoment(int code, const std::string& given, const char* value, Options& options) {
    std::uint32_t tick = 0;
    bool isTick = false;
    long long utc = 0;
    if (!ParseMoment(value, tick, isTick, utc)) {
        return given + " needs a UTC time (2026-11-23T17:45:01.250Z) or a tick";
    }
    if (isTick) {
        (code == kSince ? options.from : options.to) = tick;
    } else if (code == kSince) {
        options.haveSince = true;
        options.since = utc;
    } else {
        options.haveUntil = true;
        options.until = utc;
    }
    return "";
}

std::string TakeCount(const char* value, Options& options) {
    char* end = nullptr;
    errno = 0;
    const long long count = std::strtoll(value, &end, 10);
    if (errno != 0 || *end != '\0' || count < 0 || value[0] == '\0') {
        return "-n needs a number of records";
    }
    options.last = count;
    return "";
}

std::string TakeFollow(const char* value, Options& options) {
    options.follow = true;
    if (value != nullptr) {
        char* end = nullptr;
        options.followSeconds = std::strtod(value, &end);
        if (*end != '\0' || !(options.followSeconds > 0)) {
            return "--follow=SECONDS needs a positive number";
        }
    }
    return "";
}

// One option getopt found (`given` as written, `value` its argument): what is wrong with it,
// "" when nothing.
std::string TakeOption(int code, const std::string& given, const char* value, Options& options) {
    switch (code) {
        case kJson:
            options.json = true;
            return "";
        case kFrom:
        case kTo:
            return ParseTick(value, code == kFrom ? options.from : options.to)
                       ? ""
                       : given + " needs a tick (0 to 4294967295)";
        case kSince:
        case kUntil:
            return TakeMoment(code, given, value, options);
        case kKind: {
            const std::uint8_t op = mdj::OpByName(value);
            options.kinds[op] = op != 0;
            options.anyKind = true;
            return op != 0 ? ""
                           : std::string("no record kind ") + value +
                                 " (names as cat prints them: ReportGps, ...)";
        }
        case 'n':
            return TakeCount(value, options);
        case kFollow:
            return TakeFollow(value, options);
        case kFormat:
        case kCompression:
        case kDraws:
            return TakeChoice(code, value, options);
        case 'o':
            options.output = value;
            return "";
        case kKey:
            options.key = value;
            return "";
        case kPubkey:
            options.pubkey = value;
            return "";
        case ':':
            return given + " needs a value";
        default:
            return "unknown option " + given;
    }
}

}  // namespace

int ParseOptions(int argc, char** argv, unsigned allowed, std::size_t pathCount, const char* usage,
                 Options& options, std::size_t optionalPaths) {
    const char* verb = argv[0];
    std::vector<option> longOptions;
    std::string shortOptions;
    BuildTables(allowed, longOptions, shortOptions);
    optind = 0;  // a fresh scan (GNU): options may follow the paths
    opterr = 0;
    int code;
    while ((code = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr)) !=
           -1) {
        if (code == 'h') {
            std::fputs(usage, stdout);
            return 0;
        }
        const std::string problem = TakeOption(code, argv[optind - 1], optarg, options);
        if (!problem.empty()) {
            return UsageError(verb, problem);
        }
    }
    for (int i = optind; i < argc; ++i) {
        options.paths.push_back(argv[i]);
    }
    if (options.paths.size() < pathCount || options.paths.size() > pathCount + optionalPaths) {
        return UsageError(verb, pathCount == 1 ? "needs one PATH"
                                               : "needs " + std::to_string(pathCount) + " paths");
    }
    return -1;
}
