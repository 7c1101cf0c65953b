// mdstore package through the real binary: a recorded drive packaged, then every tampering
// refused by check-package and by the receiver's own commands as docs/evidence.md gives them.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ConfigItems.h"
#include "DataStore.h"
#include "StoreRecords.h"
#include "Subprocess.h"
#include "TestEnv.h"

namespace {

// The tools the receiver uses, and a build of mdstore that packages (not the target's).
bool CanPackage(std::string& missing) {
    for (const char* tool : {"openssl", "sha256sum", "bash"}) {
        if (std::system(("command -v " + std::string(tool) + " >/dev/null 2>&1").c_str()) != 0) {
            missing = std::string(tool) + " is not installed";
            return false;
        }
    }
    const ProgramResult version = RunMdstore({"--version"}, "/tmp");
    missing = "this build of mdstore has no packaging";
    return version.out.find("packaging: not") == std::string::npos;
}

int Shell(const std::string& dir, const std::string& command) {
    const std::string line = "cd '" + dir + "' && bash -c '" + command + "' >/dev/null 2>&1";
    return std::system(line.c_str());
}

// The receiver's steps of docs/evidence.md in `dir`: the first that refuses, "" when none.
std::string ReceiverRefuses(const std::string& dir, const std::string& publicKey) {
    const std::pair<const char*, std::string> steps[] = {
        {"openssl", "openssl pkeyutl -verify -pubin -inkey " + publicKey +
                        " -rawin -in SHA256SUMS -sigfile SHA256SUMS.sig"},
        {"sha256sum", "sha256sum -c SHA256SUMS"},
        {"listing",
         "diff <(ls -A | LC_ALL=C sort) <({ cut -c67- SHA256SUMS; echo SHA256SUMS; "
         "echo SHA256SUMS.sig; } | LC_ALL=C sort)"}};
    for (const auto& step : steps) {
        if (Shell(dir, step.second) != 0) {
            return step.first;
        }
    }
    return "";
}

void RecordDrive(const std::string& base) {
    DataStoreNormal store(base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(1000);
    store.ReportSystemSerialNum("SN-4711");
    SystemInfo system;
    system.unitNumber.Set("Unit 17");
    store.ReportSystemInfo(system, true);
    for (unsigned i = 0; i < 20; ++i) {
        GpsStatusItem gps;
        gps.latDegrees = 59;
        gps.latMinuteFraction = 100 * i;
        store.TimerTick(1000 + 500 * i);
        store.ReportGps(gps, 1000 + 500 * i, true);
        store.ReportStateData(i % 2 == 0 ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, 1000 + 500 * i);
    }
    store.ReportBookmark(4000);
    store.ReportShutdownData();
    store.Close();
}

void Edit(const std::string& path, const std::function<void(std::string&)>& change) {
    std::string text = ReadFileText(path);
    change(text);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

class Package : public ::testing::Test {
protected:
    void SetUp() override {
        std::string missing;
        if (!CanPackage(missing)) {
            GTEST_SKIP() << "SKIPPED: " << missing;
        }
        ASSERT_EQ(::mkdir((env_.Media() + "/metadata").c_str(), 0755), 0);
        RecordDrive(env_.MetadataPath());
        ASSERT_EQ(Mdstore({"keygen", "-o", env_.Path("a")}).exitCode, 0);
    }
    ProgramResult Mdstore(const std::vector<std::string>& args) const {
        return RunMdstore(args, env_.Root());
    }
    TestEnv env_;
};

}  // namespace

TEST_F(Package, EveryTamperingIsRefused) {
    const std::string made = env_.Path("made");
    ASSERT_EQ(
        Mdstore({"package", "--key", env_.Path("a.pem"), "-o", made, env_.MetadataPath()}).exitCode,
        0);
    ASSERT_EQ(Mdstore({"keygen", "-o", env_.Path("b")}).exitCode, 0);
    const auto flip = [](const char* name) {
        return [name](const std::string& dir) {
            Edit(dir + "/" + name, [](std::string& bytes) { bytes[bytes.size() / 2] ^= 0x01; });
        };
    };
    const auto editManifest = [](const std::string& dir) {
        Edit(dir + "/manifest.json", [](std::string& text) {
            text.replace(text.find("\"ReportGps\":20"), 14, "\"ReportGps\":21");
        });
        Shell(dir, "sha256sum drive.* manifest.json >SHA256SUMS");
    };
    struct Tampering {
        const char* what;
        std::function<void(const std::string& dir)> tamper;
        const char* publicKey;
        const char* named;     // in check-package's one line; "" when it passes
        const char* receiver;  // the documented step that refuses it; "" when none does
    };
    const Tampering cases[] = {
        {"untouched", [](const std::string&) {}, "a.pub.pem", "", ""},
        {"drive.mdj flipped", flip("drive.mdj"), "a.pub.pem", "drive.mdj:", "sha256sum"},
        {"drive.mcap flipped", flip("drive.mcap"), "a.pub.pem", "drive.mcap:", "sha256sum"},
        {"drive.gpx flipped", flip("drive.gpx"), "a.pub.pem", "drive.gpx:", "sha256sum"},
        {"drive.csv flipped", flip("drive.csv"), "a.pub.pem", "drive.csv:", "sha256sum"},
        {"drive.html flipped", flip("drive.html"), "a.pub.pem", "drive.html:", "sha256sum"},
        {"manifest flipped", flip("manifest.json"), "a.pub.pem", "manifest.json:", "sha256sum"},
        {"sums flipped", flip("SHA256SUMS"), "a.pub.pem", "SHA256SUMS", "openssl"},
        {"signature flipped", flip("SHA256SUMS.sig"), "a.pub.pem", "SHA256SUMS.sig:", "openssl"},
        {"a file removed",
         [](const std::string& dir) { std::remove((dir + "/drive.csv").c_str()); }, "a.pub.pem",
         "drive.csv: missing", "sha256sum"},
        {"a file added",
         [](const std::string& dir) { std::ofstream(dir + "/notes.txt") << "added\n"; },
         "a.pub.pem", "notes.txt: not listed", "listing"},
        {"a directory added",
         [](const std::string& dir) { ::mkdir((dir + "/more").c_str(), 0755); }, "a.pub.pem",
         "more/: not listed", "listing"},
        {"manifest edited and re-hashed", editManifest, "a.pub.pem", "SHA256SUMS", "openssl"},
        {"manifest edited, re-hashed and re-signed",
         [&](const std::string& dir) {
             editManifest(dir);
             Shell(dir, "rm SHA256SUMS.sig && openssl pkeyutl -sign -inkey " + env_.Path("a.pem") +
                            " -rawin -in SHA256SUMS -out SHA256SUMS.sig");
         },
         "a.pub.pem", "manifest.json: the records per kind", ""},
        {"another key", [](const std::string&) {}, "b.pub.pem", "SHA256SUMS.sig:", "openssl"},
    };
    for (const Tampering& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string dir = env_.Path(std::string("case-") + std::to_string(&c - cases));
        ASSERT_EQ(Shell(env_.Root(), "cp -a " + made + " " + dir), 0);
        c.tamper(dir);
        const std::string publicKey = env_.Path(c.publicKey);
        const ProgramResult check = Mdstore({"check-package", "--pubkey", publicKey, dir});
        EXPECT_EQ(check.exitCode, *c.named == '\0' ? 0 : 2) << check.err;
        EXPECT_NE(check.err.find(c.named), std::string::npos) << check.err;
        EXPECT_LE(std::count(check.err.begin(), check.err.end(), '\n'), 1) << check.err;
        EXPECT_EQ(ReceiverRefuses(dir, publicKey), c.receiver);
    }
}

TEST_F(Package, HoldsWhatCopyWritesForTheRangeAndNothingWhenItFails) {
    const std::string made = env_.Path("range");
    const ProgramResult package = Mdstore({"package", "--from", "3000", "--to", "7000", "--key",
                                           env_.Path("a.pem"), "-o", made, env_.MetadataPath()});
    ASSERT_EQ(package.exitCode, 0) << package.err;
    ASSERT_EQ(Mdstore({"copy", "--from", "3000", "--to", "7000", env_.MetadataPath(),
                       env_.Path("copy.mdj")})
                  .exitCode,
              0);
    const auto packaged = Mdstore({"cat", "--json", made + "/drive.mdj"});
    EXPECT_EQ(packaged.out, Mdstore({"cat", "--json", env_.Path("copy.mdj")}).out);
    // The snapshot, 9 fixes, 9 brakes, the bookmark.
    EXPECT_EQ(std::count(packaged.out.begin(), packaged.out.end(), '\n'), 20);
    const std::string manifest = ReadFileText(made + "/manifest.json");
    EXPECT_NE(manifest.find("\"serial\":\"SN-4711\",\"unitNumber\":\"Unit 17\""), std::string::npos)
        << manifest;
    EXPECT_NE(manifest.find("\"firstTick\":3000,\"lastTick\":7000"), std::string::npos);

    // An existing directory is never overwritten; a package that fails leaves nothing.
    EXPECT_EQ(
        Mdstore({"package", "--key", env_.Path("a.pem"), "-o", made, env_.MetadataPath()}).exitCode,
        2);
    EXPECT_EQ(ReadFileText(made + "/manifest.json"), manifest);
    EXPECT_EQ(Mdstore({"package", "--key", env_.Path("a.pem"), "-o", env_.Path("failed"),
                       env_.Path("no-store")})
                  .exitCode,
              2);
    EXPECT_NE(Shell(env_.Root(), "ls -d failed*"), 0);
}
