#include "evidence/EvidenceManifest.h"

#include <cinttypes>
#include <cstdio>

#include "ProjectVersion.h"
#include "RecordSchema.h"
#include "reading/RecordPrinter.h"
#include "reading/TimeAnchors.h"

namespace evidence {

namespace {

std::string Quoted(const std::string& text) {
    std::string out;
    AppendJsonString(out, text.data(), text.size());
    return out;
}

std::string QuotedOrNull(const std::string& text) {
    return text.empty() ? std::string("null") : Quoted(text);
}

std::string UtcOrNull(bool known, long long utcMs) {
    return known ? Quoted(timeanchor::FormatUtc(utcMs)) : std::string("null");
}

std::string SourceJson(const Source& source) {
    char identity[20];
    std::snprintf(identity, sizeof identity, "%016" PRIx64, source.identity);
    std::string segments;
    for (std::uint32_t number : source.segments) {
        segments += (segments.empty() ? "" : ",") + std::to_string(number);
    }
    return "\"source\":{\"path\":" + Quoted(source.path) + ",\"identity\":" + Quoted(identity) +
           ",\"segments\":[" + segments + "]}";
}

std::string AskedJson(const Options& asked) {
    std::string kinds;
    for (unsigned op = 0; op < mdj::kOpCount; ++op) {
        if (asked.anyKind && asked.kinds[op]) {
            kinds +=
                (kinds.empty() ? "" : ",") + Quoted(mdj::OpName(static_cast<std::uint8_t>(op)));
        }
    }
    return "\"asked\":{\"fromTick\":" + std::to_string(asked.from) +
           ",\"toTick\":" + std::to_string(asked.to) +
           ",\"sinceUtc\":" + UtcOrNull(asked.haveSince, asked.since) +
           ",\"untilUtc\":" + UtcOrNull(asked.haveUntil, asked.until) + ",\"kinds\":[" + kinds +
           "]}";
}

}  // namespace

std::string HeldJson(const Contents& contents) {
    const auto tick = [&contents](std::uint32_t value) {
        return contents.anyTick ? std::to_string(value) : std::string("null");
    };
    return "\"held\":{\"firstTick\":" + tick(contents.firstTick) +
           ",\"lastTick\":" + tick(contents.lastTick) +
           ",\"firstUtc\":" + UtcOrNull(contents.anyUtc, contents.firstUtc) +
           ",\"lastUtc\":" + UtcOrNull(contents.anyUtc, contents.lastUtc) + "}";
}

std::string RecordsJson(const Contents& contents) {
    std::string out = "\"records\":{\"total\":" + std::to_string(contents.records);
    for (const auto& kind : contents.perKind) {
        out += "," + Quoted(kind.first) + ":" + std::to_string(kind.second);
    }
    return out + "}";
}

std::string FileJson(const FileEntry& file) {
    return "{\"name\":" + Quoted(file.name) + ",\"size\":" + std::to_string(file.size) +
           ",\"sha256\":" + Quoted(file.sha256) + "}";
}

std::string ManifestJson(const Manifest& manifest) {
    std::string files;
    for (const FileEntry& file : manifest.files) {
        files += (files.empty() ? "\n    " : ",\n    ") + FileJson(file);
    }
    const Contents& contents = manifest.contents;
    return "{\n  \"package\":\"mdstore evidence package\",\n  \"tool\":" +
           Quoted(std::string("mdstore ") + PROJECT_VERSION_TEXT) +
           ",\n  \"madeUtc\":" + Quoted(timeanchor::FormatUtc(manifest.madeUtcMs)) + ",\n  " +
           SourceJson(manifest.source) +
           ",\n  \"unit\":{\"serial\":" + QuotedOrNull(contents.serial) +
           ",\"unitNumber\":" + QuotedOrNull(contents.unitNumber) + "},\n  " +
           AskedJson(*manifest.asked) + ",\n  " + HeldJson(contents) + ",\n  " +
           RecordsJson(contents) + ",\n  \"files\":[" + files + "\n  ]\n}\n";
}

}  // namespace evidence
