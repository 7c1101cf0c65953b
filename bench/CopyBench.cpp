// A range copy against what the store's size would cost: a one-second range of a 50 MiB store,
// a copy of all of it, and `cp` + `sync` of the same segment files, in one run. Every label
// carries /proc/loadavg, since the machine is shared.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "BenchVehicle.h"
#include "DataStore.h"
#include "MetadataReader.h"
#include "SegmentFiles.h"
#include "StoreScan.h"

namespace {

const unsigned kTickStep = 10;  // ms between two GPS fixes in the generated store
const std::size_t kStoreBytes = 50u << 20;

std::string LoadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string text;
    std::getline(file, text);
    return "loadavg " + text;
}

// A 50 MiB store (default bound: 8 MiB segments) of GPS fixes, speeds and radar readings every
// 10 ms of tick, made once for all the benchmarks.
struct BigStore {
    BigStore() {
        base = PrepareStoreDir(env);
        DataStoreNormal store(base);
        if (!store.Open()) {
            return;
        }
        GpsStatusItem gps;
        gps.latDegrees = 51;
        gps.lonDegrees = 7;
        gps.fixStatus = 1;
        std::size_t bytes = 0;
        for (unsigned tick = 1000; bytes < kStoreBytes; tick += kTickStep) {
            if (tick % (10 * kTickStep) == 0) {
                store.TimerTick(tick);
            }
            gps.tick = tick;
            store.ReportGps(gps, tick, true);
            store.ReportSpeed(1, static_cast<unsigned short>(tick % 900), true, tick, e_Tag_None);
            store.ReportRadar(0, 50, 60, 70, e_RADAR_DIRECTION(0), true, tick, e_Tag_None);
            bytes += 150;
            lastTick = tick;
        }
        store.Close();
        mdj::StoreListing listing;
        mdj::ScanStore(base, listing);
        for (const mdj::SegmentFile& file : listing.segments) {
            segments += " " + file.path;
        }
        ready = !listing.segments.empty();
    }
    TestEnv env;
    std::string base;
    std::string segments;
    unsigned lastTick = 0;
    bool ready = false;
};

BigStore& Store() {
    static BigStore store;
    return store;
}

void Copy(benchmark::State& state, unsigned first, unsigned second) {
    BigStore& big = Store();
    if (!big.ready) {
        state.SkipWithError("store not made");
        return;
    }
    MetadataReader reader;
    const std::string copy = big.env.Media() + "/export/copy.mdj";
    for (auto _ : state) {
        if (!reader.ReadToNewFile(big.base, "copy.mdj", first, second, nullptr)) {
            state.SkipWithError("copy refused");
            return;
        }
        state.PauseTiming();
        std::ifstream file(copy, std::ios::binary | std::ios::ate);
        state.counters["copy_bytes"] = static_cast<double>(file.tellg());
        ::unlink(copy.c_str());
        state.ResumeTiming();
    }
    state.SetLabel(LoadAverage());
}

void BM_CopyOneSecond(benchmark::State& state) {
    const unsigned middle = 1000 + (Store().lastTick - 1000) / 2;
    Copy(state, middle, middle + 1000);
}
BENCHMARK(BM_CopyOneSecond)->Unit(benchmark::kMillisecond)->Iterations(50);

void BM_CopyAll(benchmark::State& state) {
    Copy(state, 0, 0xFFFFFFFFu);
}
BENCHMARK(BM_CopyAll)->Unit(benchmark::kMillisecond)->Iterations(5);

// The floor of any copy that is on disk when it is answered: a new file of the one-second
// copy's size, written and put on disk with fdatasync.
void BM_NewFileSync(benchmark::State& state) {
    BigStore& big = Store();
    const std::string path = big.env.Path("synced");
    const std::vector<unsigned char> bytes(15 * 1024, 0x5a);
    for (auto _ : state) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
        const bool ok =
            fd >= 0 && mdj::WriteAll(fd, bytes.data(), bytes.size()) && ::fdatasync(fd) == 0;
        if (fd >= 0) {
            ::close(fd);
        }
        state.PauseTiming();
        ::unlink(path.c_str());
        state.ResumeTiming();
        if (!ok) {
            state.SkipWithError("write failed");
            return;
        }
    }
    state.SetLabel(LoadAverage());
}
BENCHMARK(BM_NewFileSync)->Unit(benchmark::kMillisecond)->Iterations(50);

// The anchor: the same segment files copied by cp and put on disk by sync.
void BM_CpSyncSegments(benchmark::State& state) {
    BigStore& big = Store();
    if (!big.ready) {
        state.SkipWithError("store not made");
        return;
    }
    const std::string target = big.env.Path("cp");
    const std::string command = "cp" + big.segments + " " + target + " && sync -d " + target + "/*";
    const std::string clear = "rm -rf " + target + " && mkdir " + target;
    for (auto _ : state) {
        state.PauseTiming();
        const bool cleared = std::system(clear.c_str()) == 0;
        state.ResumeTiming();
        if (!cleared || std::system(command.c_str()) != 0) {
            state.SkipWithError("cp failed");
            return;
        }
    }
    state.SetLabel(LoadAverage());
}
BENCHMARK(BM_CpSyncSegments)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
