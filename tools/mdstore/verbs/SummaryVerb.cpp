// mdstore summary: the store computed once into a summary, printed as text or as JSON.
#include <cstdio>
#include <string>

#include "Verbs.h"
#include "reading/Options.h"
#include "reading/RecordStream.h"
#include "verbs/Summary.h"

int SummaryVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptJson, 1, kSummaryUsage, options);
    if (early >= 0) {
        return early;
    }
    summary::StoreSummary result;
    if (!summary::Summarize(options.paths[0], result)) {
        return Unreadable(options.paths[0]);
    }
    std::string text;
    if (options.json) {
        summary::PrintJson(result, text);
        text += '\n';
    } else {
        summary::PrintText(result, text);
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 2;
}
