#include "reading/RecordPrinter.h"

#include <cstdio>
#include <vector>

#include "RecordSchema.h"
#include "reading/RecordMeaning.h"
#include "reading/TextEscape.h"
#include "reading/TimeAnchors.h"

void AppendJsonString(std::string& out, const char* text, std::size_t size) {
    out += '"';
    textout::AppendJsonEscaped(out, text, size);
    out += '"';
}

namespace {

class JsonPrinter : public mdj::FieldVisitor {
public:
    explicit JsonPrinter(std::string& out) : out_(out) { first_.push_back(true); }

    void Key(const char* name) {
        if (!first_.back()) {
            out_ += ',';
        }
        first_.back() = false;
        if (name != nullptr) {
            AppendJsonString(out_, name, std::string(name).size());
            out_ += ':';
        }
    }
    void BeginObject(const char* name) override {
        Key(name);
        out_ += '{';
        first_.push_back(true);
    }
    void EndObject() override {
        out_ += '}';
        first_.pop_back();
    }
    void BeginArray(const char* name) override {
        Key(name);
        out_ += '[';
        first_.push_back(true);
    }
    void EndArray() override {
        out_ += ']';
        first_.pop_back();
    }
    void Unsigned(const char* name, std::uint32_t value) override {
        Key(name);
        out_ += std::to_string(value);
    }
    void Signed(const char* name, std::int32_t value) override {
        Key(name);
        out_ += std::to_string(value);
    }
    void Boolean(const char* name, bool value) override {
        Key(name);
        out_ += value ? "true" : "false";
    }
    void Text(const char* name, const char* text, std::size_t size) override {
        Key(name);
        AppendJsonString(out_, text, size);
    }
    void Mac(const char* name, const unsigned char* bytes) override {
        BeginArray(name);
        for (int i = 0; i < 6; ++i) {
            Unsigned(nullptr, bytes[i]);
        }
        EndArray();
    }

private:
    std::string& out_;
    std::vector<bool> first_;
};

class TextPrinter : public mdj::FieldVisitor {
public:
    explicit TextPrinter(std::string& out) : out_(out) {}

    void BeginObject(const char* name) override { Push(name); }
    void EndObject() override { Pop(); }
    void BeginArray(const char* name) override {
        Push(name);
        index_.push_back(0);
    }
    void EndArray() override {
        index_.pop_back();
        Pop();
    }
    void Unsigned(const char* name, std::uint32_t value) override {
        Key(name);
        out_ += std::to_string(value);
    }
    void Signed(const char* name, std::int32_t value) override {
        Key(name);
        out_ += std::to_string(value);
    }
    void Boolean(const char* name, bool value) override {
        Key(name);
        out_ += value ? "1" : "0";
    }
    void Text(const char* name, const char* text, std::size_t size) override {
        Key(name);
        AppendJsonString(out_, text, size);
    }
    void Mac(const char* name, const unsigned char* bytes) override {
        Key(name);
        char text[24];
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                      bytes[2], bytes[3], bytes[4], bytes[5]);
        out_ += text;
    }

private:
    // Array members are named by their index; a snapshot entry starts a new group.
    std::string Name(const char* name) {
        if (name != nullptr) {
            return name;
        }
        return index_.empty() ? std::string("?") : std::to_string(index_.back()++);
    }
    void Push(const char* name) {
        const std::string part = Name(name);
        path_.push_back(path_.empty() ? part : path_.back() + "." + part);
    }
    void Pop() { path_.pop_back(); }
    void Key(const char* name) {
        out_ += ' ';
        if (!path_.empty()) {
            out_ += path_.back() + ".";
        }
        out_ += Name(name);
        out_ += '=';
    }

    std::string& out_;
    std::vector<std::string> path_;
    std::vector<unsigned> index_;
};

}  // namespace

bool RecordJson(const mdj::RecordView& record, const long long* utcMs, std::string& out) {
    JsonPrinter printer(out);
    out += '{';
    printer.Text("op", mdj::OpName(record.op), std::string(mdj::OpName(record.op)).size());
    printer.Unsigned("at", record.stamp);
    if (utcMs != nullptr) {
        const std::string utc = timeanchor::FormatUtc(*utcMs);
        printer.Text("utc", utc.data(), utc.size());
    }
    bool ok = mdj::WalkRecord(record.op, record.body, record.size, &printer);
    std::vector<meaning::DecodedField> decoded;
    ok = ok && meaning::Decode(record, decoded);
    for (const meaning::DecodedField& field : decoded) {
        if (field.number) {
            printer.Key(field.key.c_str());
            out += field.text;
        } else {
            printer.Text(field.key.c_str(), field.text.data(), field.text.size());
        }
    }
    out += '}';
    return ok;
}

bool RecordText(const mdj::RecordView& record, const long long* utcMs, std::string& out) {
    out += std::to_string(record.stamp);
    out += ' ';
    if (utcMs != nullptr) {
        out += timeanchor::FormatUtc(*utcMs);
        out += ' ';
    }
    out += mdj::OpName(record.op);
    TextPrinter printer(out);
    std::vector<meaning::DecodedField> decoded;
    if (!mdj::WalkRecord(record.op, record.body, record.size, &printer) ||
        !meaning::Decode(record, decoded)) {
        return false;
    }
    for (const meaning::DecodedField& field : decoded) {
        out += ' ' + field.key + '=';
        if (field.number) {
            out += field.text;
        } else {
            AppendJsonString(out, field.text.data(), field.text.size());
        }
    }
    return true;
}
