#include "StoreRecords.h"

#include <cstdlib>
#include <sstream>

#include "Subprocess.h"

namespace {

class JsonFlattener {
public:
    JsonFlattener(const std::string& text, std::map<std::string, std::string>& out)
        : text_(text), out_(out) {}

    bool Object(const std::string& prefix) {
        if (!Eat('{')) {
            return false;
        }
        SkipSpace();
        if (Peek() == '}') {
            ++pos_;
            return true;
        }
        for (;;) {
            std::string key;
            if (!String(key) || !Eat(':')) {
                return false;
            }
            if (!Value(prefix.empty() ? key : prefix + "." + key)) {
                return false;
            }
            SkipSpace();
            if (Peek() == ',') {
                ++pos_;
                continue;
            }
            return Eat('}');
        }
    }

    bool AtEnd() {
        SkipSpace();
        return pos_ == text_.size();
    }

private:
    bool Value(const std::string& key) {
        SkipSpace();
        const char c = Peek();
        if (c == '{') {
            return Object(key);
        }
        if (c == '[') {
            ++pos_;
            SkipSpace();
            if (Peek() == ']') {
                ++pos_;
                return true;
            }
            for (unsigned index = 0;; ++index) {
                if (!Value(key + "." + std::to_string(index))) {
                    return false;
                }
                SkipSpace();
                if (Peek() == ',') {
                    ++pos_;
                    continue;
                }
                return Eat(']');
            }
        }
        if (c == '"') {
            std::string text;
            if (!String(text)) {
                return false;
            }
            out_[key] = text;
            return true;
        }
        const std::string::size_type start = pos_;
        while (pos_ < text_.size() && text_[pos_] != ',' && text_[pos_] != '}' &&
               text_[pos_] != ']' && text_[pos_] != ' ') {
            ++pos_;
        }
        if (pos_ == start) {
            return false;
        }
        out_[key] = text_.substr(start, pos_ - start);
        return true;
    }

    bool String(std::string& text) {
        SkipSpace();
        if (Peek() != '"') {
            return false;
        }
        ++pos_;
        while (pos_ < text_.size()) {
            const char c = text_[pos_++];
            if (c == '"') {
                return true;
            }
            if (c != '\\') {
                text += c;
                continue;
            }
            if (pos_ >= text_.size()) {
                return false;
            }
            const char escaped = text_[pos_++];
            switch (escaped) {
                case 'n':
                    text += '\n';
                    break;
                case 't':
                    text += '\t';
                    break;
                case 'r':
                    text += '\r';
                    break;
                case 'b':
                    text += '\b';
                    break;
                case 'f':
                    text += '\f';
                    break;
                case 'u': {
                    if (pos_ + 4 > text_.size()) {
                        return false;
                    }
                    const long code = std::strtol(text_.substr(pos_, 4).c_str(), nullptr, 16);
                    pos_ += 4;
                    text += static_cast<char>(code < 0x80 ? code : '?');
                    break;
                }
                default:
                    text += escaped;
                    break;
            }
        }
        return false;
    }

    void SkipSpace() {
        while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) {
            ++pos_;
        }
    }
    char Peek() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }
    bool Eat(char c) {
        SkipSpace();
        if (Peek() != c) {
            return false;
        }
        ++pos_;
        return true;
    }

    const std::string& text_;
    std::map<std::string, std::string>& out_;
    std::string::size_type pos_ = 0;
};

}  // namespace

std::string StoreRecord::Get(const std::string& key) const {
    const auto found = fields.find(key);
    return found == fields.end() ? std::string() : found->second;
}

long long StoreRecord::Int(const std::string& key) const {
    const std::string text = Get(key);
    if (text == "true") {
        return 1;
    }
    if (text == "false") {
        return 0;
    }
    return std::strtoll(text.c_str(), nullptr, 0);
}

bool ParseJsonObjectLine(const std::string& line, std::map<std::string, std::string>& fields) {
    JsonFlattener parser(line, fields);
    return parser.Object("") && parser.AtEnd();
}

std::vector<StoreRecord> ReadStoreRecords(const std::string& basePath, const std::string& workDir,
                                          const std::vector<std::string>& extraArgs,
                                          std::string* error) {
    std::vector<std::string> argv = {ProgramPath("mdstore"), "cat", "--json", basePath};
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    const ProgramResult result = RunProgram(argv, {}, workDir);
    std::vector<StoreRecord> records;
    if (result.exitCode != 0) {
        if (error != nullptr) {
            *error = "mdstore exited " + std::to_string(result.exitCode) + ": " + result.err;
        }
        return records;
    }
    std::istringstream lines(result.out);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty()) {
            continue;
        }
        StoreRecord record;
        record.line = line;
        if (!ParseJsonObjectLine(line, record.fields)) {
            if (error != nullptr) {
                *error = "unparsable line: " + line;
            }
            return {};
        }
        records.push_back(record);
    }
    return records;
}

std::vector<StoreRecord> WithOp(const std::vector<StoreRecord>& records, const std::string& op) {
    std::vector<StoreRecord> matching;
    for (const StoreRecord& record : records) {
        if (record.Op() == op) {
            matching.push_back(record);
        }
    }
    return matching;
}
