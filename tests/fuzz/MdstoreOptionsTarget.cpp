// mdstore's command line: each line of the input is one argument of a verb taking every option
// and one or two paths. Every argument is also read as a UTC time, and a time that reads must
// come back the same through its printed form.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "reading/Options.h"
#include "reading/TimeAnchors.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words = fuzz::Split(data, size, "\n");
    words.insert(words.begin(), "fuzz");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
        long long utcMs = 0;
        long long again = 0;
        if (timeanchor::ParseUtc(word, utcMs)) {
            fuzz::Check(timeanchor::ParseUtc(timeanchor::FormatUtc(utcMs), again) && again == utcMs,
                        "a UTC time does not read back as printed");
        }
    }
    argv.push_back(nullptr);
    Options options;
    const unsigned every = kOptJson | kOptRange | kOptKind | kOptLast | kOptFollow | kOptExport;
    ParseOptions(static_cast<int>(words.size()), argv.data(), every, 1, "usage\n", options, 1);
    return 0;
}
