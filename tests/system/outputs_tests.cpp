// Every output of mdstore read back by a real parser of its format, from a store whose every
// text (and its path) is hostile: markup, quotes, backslashes, "]]>", control and terminal
// escape bytes, ill-formed UTF-8 and spreadsheet formula starts. outputs_check.py parses each
// output and checks that every text reads back as it was written.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "DataStore.h"
#include "StoreFill.h"
#include "Subprocess.h"
#include "TestEnv.h"

namespace {

// One output: mdstore's arguments (STORE stands for the store, OUT for the output file; without
// OUT the standard output is the output) and how outputs_check.py reads it. A new output is a
// row here (and, for a new kind of file, a check in outputs_check.py). The MCAP export has its own
// test with the MCAP reader, hostile texts among its cases.
struct Output {
    const char* name;
    std::vector<std::string> args;
    const char* check;
};
void PrintTo(const Output& output, std::ostream* out) {
    *out << output.name;
}

const Output kOutputs[] = {
    {"CatText", {"cat", "STORE"}, "cat-text"},
    {"CatJson", {"cat", "--json", "STORE"}, "cat-json"},
    {"InfoText", {"info", "STORE"}, "path-text"},
    {"SummaryText", {"summary", "STORE"}, "path-text"},
    {"SummaryJson", {"summary", "--json", "STORE"}, "summary-json"},
    {"Csv", {"export", "--format", "csv", "STORE"}, "csv"},
    {"Gpx", {"export", "--format", "gpx", "-o", "OUT", "STORE"}, "gpx"},
    {"GeoJson", {"export", "--format", "geojson", "STORE"}, "geojson"},
    {"Kml", {"export", "--format", "kml", "-o", "OUT", "STORE"}, "kml"},
    {"Report", {"report", "-o", "OUT", "STORE"}, "html"},
    {"Traffic", {"traffic", "STORE", "OUT"}, "capture"},
};

// What a hostile text holds after its start; each text adds its own start and number.
const char kHostile[] =
    " <script>document.title='x'</script></b><b>&amp; \"q\" 'a' back\\slash ]]> "
    "\x01\x1b[31mred\x1b[0m\ttab\r\nline \xff bad \xe2\x82 cut \xc2\x9b csi \xc3\xa9\xe2\x82";
// Formula starts a spreadsheet acts on, and the tab and carriage return it strips before one.
const char* const kStarts[] = {"=HYPERLINK(\"x\")", "+1", "-1", "@SUM(A1)", "\t=1", "\r=1"};
// A directory of the store's path: markup, escapes, ill-formed UTF-8 ('/' makes two of them).
const char kHostileDir[] = "=1 <script>x</script>&\"q\" \x1b[31m\x01\t\r\n\xff\xe2\x82 ]]>\\";

std::string Hex(const std::string& bytes) {
    std::string hex;
    char pair[3];
    for (unsigned char c : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", c);
        hex += pair;
    }
    return hex;
}

// Writes a short drive with every text of the store hostile; returns the texts, one line each
// "OP KEY HEX" (the store's path as "path - HEX"), for outputs_check.py.
std::string WriteHostileStore(const std::string& base) {
    std::string texts = "path - " + Hex(base) + "\n";
    unsigned count = 0;
    const auto text = [&](const char* op, const char* key) {
        const std::string value =
            kStarts[count % 6] + std::string(kHostile) + " #" + std::to_string(count);
        ++count;
        texts += std::string(op) + " " + key + " " + Hex(value) + "\n";
        return value;
    };
    DataStoreNormal store(base);
    EXPECT_TRUE(store.Open());
    store.ReportShutdownDataAtStartup();
    store.TimerTick(1000);
    ReportEveryText(store, text);
    // A track south and west of the prime meridian (negative numbers in CSV), a bookmark on it.
    for (unsigned i = 0; i < 3; ++i) {
        const auto minutes = static_cast<unsigned short>(30 + i);
        store.ReportGps(Fix(12, minutes, 0, 0, 1, 10, 0, 0), 2000 + 1000 * i, true);
        store.ReportBookmark(2500 + 1000 * i);
    }
    store.TimerTick(5000);
    store.ReportShutdownData();
    store.Close();
    return texts;
}

// A store with hostile texts under a hostile path, and outputs_check.py to read what comes of it.
class HostileStore : public ::testing::Test {
protected:
    void SetUp() override {
        std::string ignored;
        if (Shell("command -v python3 2>&1", ignored) != 0) {
            GTEST_SKIP() << "SKIPPED: python3 is not installed";
        }
        std::string dir = env_.Media() + "/" + kHostileDir;
        for (std::size_t slash = env_.Media().size(); slash != std::string::npos;
             slash = dir.find('/', slash + 1)) {
            ::mkdir(dir.substr(0, slash).c_str(), 0700);
        }
        ASSERT_EQ(0, ::mkdir(dir.c_str(), 0700));
        store_ = dir + "/metadata";
        texts_ = WriteHostileStore(store_);
    }

    // outputs_check.py reads `file` as `check` and looks for `texts` in it.
    void Check(const std::string& check, const std::string& file, const std::string& texts) {
        std::string report;
        const int checked =
            Shell(std::string("python3 ") + OUTPUTS_CHECK + " " + check + " " + file + " " +
                      env_.WriteFile("texts", texts) + " " + env_.Path("check") + " 2>&1",
                  report);
        if (checked == 77) {
            GTEST_SKIP() << report;
        }
        EXPECT_EQ(0, checked) << report;
    }

    TestEnv env_;
    std::string store_;
    std::string texts_;
};

class MdstoreOutput : public HostileStore, public ::testing::WithParamInterface<Output> {};

}  // namespace

TEST_P(MdstoreOutput, ParsesAndEveryHostileTextReadsBackAsWritten) {
    const std::string out = env_.Path(std::string("output.") + GetParam().check);
    std::vector<std::string> argv = {ProgramPath("mdstore")};
    bool toFile = false;
    for (const std::string& arg : GetParam().args) {
        argv.push_back(arg == "STORE" ? store_ : arg == "OUT" ? out : arg);
        toFile = toFile || arg == "OUT";
    }
    const ProgramResult result = RunProgram(argv, {}, env_.Root());
    ASSERT_EQ(0, result.exitCode) << result.err;
    if (!toFile) {
        env_.WriteFile(std::string("output.") + GetParam().check, result.out);
    }
    Check(GetParam().check, out, texts_);
}

INSTANTIATE_TEST_SUITE_P(Every, MdstoreOutput, ::testing::ValuesIn(kOutputs),
                         [](const ::testing::TestParamInfo<Output>& row) {
                             return std::string(row.param.name);
                         });

// The drive as traffic, played by linxpeer into a fresh process: the process stores every
// identity text again, byte for byte.
TEST_F(HostileStore, TrafficReplaysItsTextsIntoAFreshProcess) {
    const std::string capture = env_.Path("capture");
    const ProgramResult traffic = RunMdstore({"traffic", store_, capture}, env_.Root());
    ASSERT_EQ(0, traffic.exitCode) << traffic.err;
    const std::vector<std::string> environment = {"MEDIA_ROOT=" + env_.Path("back"),
                                                  "HOST_SYSTICK_FILE=" + env_.Path("tick")};
    ::mkdir(env_.Path("back").c_str(), 0700);
    Subprocess peer({ProgramPath("linxpeer"), "-t", "30000", "--speed", "max", "--replay", capture},
                    environment, env_.Root());
    ASSERT_TRUE(peer.Start());
    for (int i = 0; i < 300 && ::access((env_.Domain() + "/StateMgr").c_str(), F_OK) != 0; ++i) {
        ::usleep(100000);
    }
    Subprocess manager({ProgramPath("MetadataMgr")}, environment, env_.Root());
    ASSERT_TRUE(manager.Start());
    const ProgramResult played = peer.Wait(60000);
    EXPECT_EQ(0, played.exitCode) << played.out;
    EXPECT_EQ(0, manager.Wait(30000).exitCode) << manager.Err();

    const ProgramResult replayed =
        RunMdstore({"cat", "--json", env_.Path("back/metadata/metadata")}, env_.Root());
    ASSERT_EQ(0, replayed.exitCode) << replayed.err;
    std::istringstream lines(texts_);
    std::string identity;  // what traffic carries: the configuration manager's items
    for (std::string line; std::getline(lines, line);) {
        identity += line.find("Info ") != std::string::npos ? line + "\n" : "";
    }
    Check("cat-json", env_.WriteFile("replayed", replayed.out), identity);
}
