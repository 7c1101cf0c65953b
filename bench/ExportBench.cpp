// What mdstore costs on a long drive, against `cp` of the same store in the same run.
//
// Writes a drive of HOURS hours through the store API (GPS state, fix and speed once a second,
// radar state, reading and speed two seconds in three, the brake input every other second, the
// four temperatures every five seconds, a bookmark every ten minutes: about 227k records for ten
// hours), then runs
// `mdstore export` in every format `mdstore export --help` names, `cat`, `cat --json`,
// `traffic`, `summary` and `verify`, each ROUNDS times beside `cp` of the store's segments, then
// the same on a copy of the whole drive (`mdstore copy`: one file as long as the drive). For each
// it prints the median wall time as a ratio to cp's and the child's peak RSS (wait4's ru_maxrss)
// beside cp's, then a verdict against the memory bound of every streaming verb: 32 MiB.
//
//   export_bench [HOURS [ROUNDS]]      (defaults 10 and 3)
//
// MDSTORE=PATH in the environment measures that mdstore instead of this build's (a build from
// before a change, say).
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchArgs.h"
#include "BenchVehicle.h"
#include "DataStore.h"
#include "StoreScan.h"
#include "Subprocess.h"

namespace {

const double kBoundMiB = 32;

struct Run {
    double seconds = 0;
    double rssMiB = 0;
    bool ok = false;
};

// Runs `argv` with standard output to `out`; its wall time and peak RSS.
Run Measure(const std::vector<std::string>& argv, const std::string& out) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int quiet = ::open("/dev/null", O_WRONLY);
        ::dup2(fd, 1);
        ::dup2(quiet, 2);
        std::vector<char*> args;
        for (const std::string& arg : argv) {
            args.push_back(const_cast<char*>(arg.c_str()));
        }
        args.push_back(nullptr);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage = {};
    Run run;
    run.ok = child > 0 && ::wait4(child, &status, 0, &usage) == child && WIFEXITED(status) &&
             WEXITSTATUS(status) == 0;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.rssMiB = usage.ru_maxrss / 1024.0;
    return run;
}

// The drive, made through the store API as the process writes it.
bool MakeDrive(const std::string& base, unsigned seconds) {
    DataStoreNormal store(base);
    if (!store.Open()) {
        return false;
    }
    store.ReportShutdownDataAtStartup();
    GpsStatusItem gps;
    gps.fixStatus = 1;
    gps.latDegrees = 59;
    gps.lonDegrees = 18;
    gps.latHemisphere = 1;
    gps.lonHemisphere = 1;
    for (unsigned s = 0; s < seconds; ++s) {
        const unsigned tick = 1000 + 1000 * s;
        if (s % 60 == 0) {
            store.TimerTick(tick);  // a sync each time: once a minute keeps making the drive short
        }
        gps.tick = tick;
        gps.latMinutes = static_cast<unsigned short>(s / 600 % 60);
        gps.latMinuteFraction = s % 600 * 16;
        gps.speed = static_cast<unsigned short>(s % 900);
        store.ReportGpsState(true, true);
        store.ReportGps(gps, tick, true);
        store.ReportSpeed(1, static_cast<unsigned short>(gps.speed / 10), true, tick, e_Tag_None);
        if (s % 3 != 0) {
            store.ReportRadarState(1, true, true);
            store.ReportRadar(1, 50, 60, 70, e_RADAR_DIRECTION(0), true, tick, e_Tag_None);
            store.ReportSpeed(2, 55, true, tick, e_Tag_None);
        }
        if (s % 2 == 0) {
            store.ReportStateData(s % 4 == 0 ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, tick);
        }
        for (unsigned sensor = 0; s % 5 == 0 && sensor < 4; ++sensor) {
            store.ReportTemp(static_cast<e_TempSensors>(sensor), static_cast<short>(s % 70), true,
                             tick);
        }
        if (s % 600 == 300) {
            store.ReportBookmark(tick);
        }
    }
    store.Close();
    return true;
}

// The formats `mdstore export --help` names on its usage line ("--format a|b|c").
std::vector<std::string> ExportFormats(const std::string& mdstore) {
    const ProgramResult help = RunProgram({mdstore, "export", "--help"}, {}, "/");
    const std::string text = help.out + help.err;
    const std::size_t at = text.find("--format ");
    std::vector<std::string> formats;
    std::string name;
    for (std::size_t i = at == std::string::npos ? text.size() : at + 9; i <= text.size(); ++i) {
        const char c = i < text.size() ? text[i] : ' ';
        if (c == '|' || c == ' ') {
            formats.push_back(name);
            name.clear();
        } else {
            name += c;
        }
        if (c == ' ') {
            break;
        }
    }
    return formats;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Every export, cat, cat --json, traffic, summary and verify of `source`, named with `suffix`.
std::vector<std::pair<std::string, std::vector<std::string>>> Verbs(const std::string& mdstore,
                                                                    const std::string& source,
                                                                    const std::string& suffix,
                                                                    TestEnv& env) {
    std::vector<std::pair<std::string, std::vector<std::string>>> verbs;
    for (const std::string& format : ExportFormats(mdstore)) {
        verbs.push_back({"export " + format + suffix,
                         {mdstore, "export", "--format", format, "-o", env.Path("out"), source}});
    }
    verbs.push_back({"cat" + suffix, {mdstore, "cat", source}});
    verbs.push_back({"cat --json" + suffix, {mdstore, "cat", "--json", source}});
    verbs.push_back({"traffic" + suffix, {mdstore, "traffic", source, env.Path("capture")}});
    verbs.push_back({"summary" + suffix, {mdstore, "summary", source}});
    verbs.push_back({"verify" + suffix, {mdstore, "verify", source}});
    return verbs;
}

}  // namespace

const char kUsage[] =
    "Usage: export_bench [HOURS [ROUNDS]]   (defaults 10 and 3)\n"
    "Writes a drive of HOURS hours through the store API, then times mdstore export in every\n"
    "format, cat, cat --json and traffic, ROUNDS times each, beside cp of the store: the\n"
    "median time as a ratio to cp's, the peak RSS, and a verdict against 32 MiB.\n";

int main(int argc, char** argv) {
    double args[] = {10, 3};
    const int early = ParseBenchArgs(argc, argv, kUsage, args, 2);
    if (early >= 0) {
        return early;
    }
    const double hours = args[0];
    const int rounds = std::max(1, static_cast<int>(args[1]));
    TestEnv env;
    const std::string base = PrepareStoreDir(env);
    if (!MakeDrive(base, static_cast<unsigned>(hours * 3600))) {
        std::fprintf(stderr, "export_bench: the store could not be made\n");
        return 2;
    }
    const char* other = std::getenv("MDSTORE");  // another build's, to compare
    const std::string mdstore = other != nullptr && *other != '\0' ? other : ProgramPath("mdstore");
    const ProgramResult info = RunProgram({mdstore, "summary", base}, {}, env.Root());
    const std::size_t records = info.out.find("records:");
    std::printf("a drive of %.1f hours, %s", hours,
                info.out.substr(records, info.out.find('\n', records) + 1 - records).c_str());
    std::vector<std::string> cp = {"cp"};
    mdj::StoreListing listing;
    mdj::ScanStore(base, listing);
    for (const mdj::SegmentFile& file : listing.segments) {
        cp.push_back(file.path);
    }
    const std::string copies = env.Path("copies");
    ::mkdir(copies.c_str(), 0700);
    cp.push_back(copies);

    // The whole drive copied into one file, as `mdstore copy` and an evidence package make it.
    const std::string copy = env.Path("drive.mdj");
    if (RunProgram({mdstore, "copy", base, copy}, {}, env.Root()).exitCode != 0) {
        std::fprintf(stderr, "export_bench: the copy could not be made\n");
        return 2;
    }
    auto verbs = Verbs(mdstore, base, "", env);
    for (const auto& verb : Verbs(mdstore, copy, " (copy)", env)) {
        verbs.push_back(verb);
    }
    std::printf("%-23s %10s %12s %12s   (median of %d rounds)\n", "", "time / cp", "peak RSS",
                "cp's RSS", rounds);
    bool within = true;
    for (const auto& verb : verbs) {
        std::vector<double> ratios;
        double rss = 0;
        double cpRss = 0;
        bool ok = true;
        for (int round = 0; round < rounds; ++round) {
            const Run anchor = Measure(cp, "/dev/null");
            const Run run = Measure(verb.second, env.Path("stdout"));
            ok = ok && anchor.ok && run.ok;
            ratios.push_back(run.seconds / std::max(anchor.seconds, 1e-6));
            rss = std::max(rss, run.rssMiB);
            cpRss = std::max(cpRss, anchor.rssMiB);
        }
        within = within && ok && rss <= kBoundMiB;
        std::printf("%-23s %9.1fx %8.1f MiB %8.1f MiB%s\n", verb.first.c_str(), Median(ratios), rss,
                    cpRss, ok ? "" : "   FAILED");
    }
    std::printf("verdict: %s (every verb within %.0f MiB peak RSS)\n", within ? "PASS" : "FAIL",
                kBoundMiB);
    return within ? 0 : 1;
}
