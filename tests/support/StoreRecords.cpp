#include "StoreRecords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "Subprocess.h"

namespace {

// Just enough JSON for mdstore's lines: nested keys joined by '.', array elements by index.
struct Flattener {
    const std::string& s;
    std::map<std::string, std::string>& out;
    std::size_t pos = 0;

    char Peek() {
        while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t')) {
            ++pos;
        }
        return pos < s.size() ? s[pos] : '\0';
    }
    bool Eat(char c) { return Peek() == c && (++pos, true); }

    bool String(std::string& text) {
        if (!Eat('"')) {
            return false;
        }
        static const std::string kEscapes = "ntrbf", kMeanings = "\n\t\r\b\f";
        while (pos < s.size()) {
            char c = s[pos++];
            if (c == '"') {
                return true;
            }
            if (c == '\\') {
                c = s[pos++];  // '\0' after a final backslash, and the string stays open
                if (c == 'u') {
                    if (pos + 4 > s.size()) {
                        return false;
                    }
                    const long code = std::strtol(s.substr(pos, 4).c_str(), nullptr, 16);
                    pos += 4;
                    c = static_cast<char>(code < 0x80 ? code : '?');
                } else if (kEscapes.find(c) != std::string::npos) {
                    c = kMeanings[kEscapes.find(c)];
                }
            }
            text += c;
        }
        return false;
    }

    // `key` is the flattened name of the value; "" only for the line's own object.
    bool Value(const std::string& key) {
        const char open = Peek();
        if (open == '{' || open == '[') {
            ++pos;
            const char close = open == '{' ? '}' : ']';
            if (Eat(close)) {
                return true;
            }
            for (unsigned index = 0;; ++index) {
                std::string name;
                if (open == '[') {
                    name = key + "." + std::to_string(index);
                } else if (!String(name) || !Eat(':')) {
                    return false;
                } else if (!key.empty()) {
                    name = key + "." + name;
                }
                if (!Value(name)) {
                    return false;
                }
                if (!Eat(',')) {
                    return Eat(close);
                }
            }
        }
        if (open == '"') {
            std::string text;
            return String(text) && (out[key] = text, true);
        }
        const std::size_t start = pos;
        pos = std::min(s.find_first_of(",}] ", pos), s.size());
        return pos != start && (out[key] = s.substr(start, pos - start), true);
    }
};

}  // namespace

std::string StoreRecord::Get(const std::string& key) const {
    const auto found = fields.find(key);
    return found == fields.end() ? std::string() : found->second;
}

long long StoreRecord::Int(const std::string& key) const {
    const std::string text = Get(key);
    return text == "true" ? 1 : std::strtoll(text.c_str(), nullptr, 0);
}

bool ParseJsonObjectLine(const std::string& line, std::map<std::string, std::string>& fields) {
    Flattener parser{line, fields};
    if (parser.Peek() != '{' || !parser.Value("")) {
        return false;
    }
    parser.Peek();
    return parser.pos == line.size();
}

std::vector<StoreRecord> ReadStoreRecords(const std::string& basePath, const std::string& workDir,
                                          const std::vector<std::string>& extraArgs,
                                          std::string* error) {
    std::vector<std::string> argv = {ProgramPath("mdstore"), "cat", "--json", basePath};
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    const ProgramResult result = RunProgram(argv, {}, workDir);
    std::string problem;
    if (result.exitCode != 0) {
        problem = "mdstore exited " + std::to_string(result.exitCode) + ": " + result.err;
    }
    std::vector<StoreRecord> records;
    std::istringstream lines(result.out);
    for (std::string line; problem.empty() && std::getline(lines, line);) {
        StoreRecord record{{}, line};
        if (line.empty()) {
            continue;
        }
        if (!ParseJsonObjectLine(line, record.fields)) {
            problem = "unparsable line: " + line;
        }
        records.push_back(record);
    }
    if (!problem.empty()) {
        records.clear();
        if (error != nullptr) {
            *error = problem;
        }
    }
    return records;
}

std::vector<StoreRecord> WithOp(const std::vector<StoreRecord>& records, const std::string& op) {
    std::vector<StoreRecord> matching;
    std::copy_if(records.begin(), records.end(), std::back_inserter(matching),
                 [&](const StoreRecord& record) { return record.Op() == op; });
    return matching;
}

std::vector<std::pair<double, double>> GpxPoints(const std::string& xml, const std::string& tag) {
    std::vector<std::pair<double, double>> points;
    const std::string open = "<" + tag + " lat=\"";
    for (std::size_t at = xml.find(open); at != std::string::npos; at = xml.find(open, at + 1)) {
        char* end = nullptr;
        const double latitude = std::strtod(xml.c_str() + at + open.size(), &end);
        EXPECT_EQ(0u, std::string(end).find("\" lon=\""));
        points.emplace_back(latitude, std::strtod(end + 7, nullptr));
    }
    return points;
}
