// mdstore report: the drive as one self-contained HTML page.
#include <getopt.h>
#include <cstdio>
#include <string>
#include <vector>

#include "Verbs.h"
#include "reading/RecordStream.h"
#include "reading/TextEscape.h"
#include "report/ReportHtml.h"

const char* const kReportUsage =
    "Usage: mdstore report [-o FILE] PATH\n"
    "Writes the store (or one file) as one HTML page to look at in a browser: the key\n"
    "figures, the GPS track drawn as a map with speed, start, end and bookmarks, timeline\n"
    "lanes for recording, covert mode, each vehicle input, crash, each microphone and camera\n"
    "and the bookmarks, a speed plot, and the full summary. The lanes and the speed plot share\n"
    "one time axis: seconds from the first record (and wall-clock time where the store holds\n"
    "it). The page needs nothing but itself: no network, no scripts, no fonts, no map tiles.\n"
    "  -o, --output FILE   write the page to FILE (replaced when it exists); '-' or no -o:\n"
    "                      standard output\n"
    "Exit status: 0 written, 2 when the store cannot be read or the page cannot be written,\n"
    "1 on usage errors.\n";

namespace {

int UsageError(const char* problem) {
    std::fprintf(stderr, "mdstore report: %s (see mdstore report --help)\n", problem);
    return 1;
}

}  // namespace

int ReportVerb(int argc, char** args) {
    std::vector<char*> argv(args, args + argc);
    argv.push_back(nullptr);
    static const option kOptions[] = {{"output", required_argument, nullptr, 'o'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {nullptr, 0, nullptr, 0}};
    std::string output = "-";
    optind = 0;  // a fresh scan
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(static_cast<int>(argv.size() - 1), argv.data(), "+o:h", kOptions,
                                 nullptr)) != -1) {
        if (option == 'h') {
            std::fputs(kReportUsage, stdout);
            return 0;
        }
        if (option != 'o') {
            const std::string word = argv[static_cast<std::size_t>(optind) - 1];
            return UsageError(optopt == 'o' || word == "--output"
                                  ? "-o needs a file name"
                                  : ("unknown option " + word).c_str());
        }
        output = optarg;
    }
    if (static_cast<std::size_t>(optind) + 1 != argv.size() - 1) {
        return UsageError("needs exactly one store PATH");
    }
    const std::string path = argv[static_cast<std::size_t>(optind)];

    summary::StoreSummary summary;
    report::AxisClock clock;
    report::Drive drive;
    if (!summary::Summarize(path, summary) || !report::ReadDrive(path, drive, clock)) {
        return Unreadable(path);
    }
    std::string page;
    report::AppendPage(summary, drive, clock, page);

    std::FILE* file = output == "-" ? stdout : std::fopen(output.c_str(), "w");
    if (file == nullptr) {
        std::perror(("mdstore report: " + textout::Printable(output)).c_str());
        return 2;
    }
    const bool written = std::fwrite(page.data(), 1, page.size(), file) == page.size();
    const bool closed = file == stdout ? std::fflush(file) == 0 : std::fclose(file) == 0;
    if (!written || !closed) {
        std::fprintf(stderr, "mdstore report: writing %s failed\n",
                     textout::Printable(output).c_str());
        return 2;
    }
    return 0;
}
