// One format of mdstore export. The store is read once per pass the format asks for, and each
// record the options keep is handed over dated and placed as it comes, so a format writes to
// its file as it goes and holds nothing that grows with the store. A format that must put
// something before what the store gives first (GPX's waypoints before its track) reads the
// store once more rather than holding it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "JournalFormat.h"
#include "reading/Options.h"
#include "reading/RecordMeaning.h"

// A record as every format sees it.
struct ExportRecord {
    const mdj::RecordView* record = nullptr;
    const long long* utcMs = nullptr;  // its UTC in milliseconds when an anchor dates it
    std::uint32_t tick = 0;            // its own tick, else the store's
    bool fix = false;                  // a GPS fix: `position` is where it was taken
    bool bookmark = false;             // a bookmark after a fix: `position` is that fix's
    meaning::Position position;
};

class ExportFormat {
public:
    virtual ~ExportFormat() = default;
    // How often the store is read; 1 unless the file's order differs from the store's.
    virtual int Passes() const { return 1; }
    // `out` is open for writing; `options.paths[0]` names the store.
    virtual void Begin(std::FILE* out, const Options& options) {
        out_ = out;
        name_ = options.paths[0];
    }
    virtual void BeginPass(int pass) { (void)pass; }
    virtual void Take(int pass, const ExportRecord& record) = 0;
    virtual void EndPass(int pass) { (void)pass; }
    virtual void End() {}

protected:
    void Write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), out_); }

    std::FILE* out_ = nullptr;
    std::string name_;
};

std::unique_ptr<ExportFormat> CsvExport();      // ExportCsv.cpp
std::unique_ptr<ExportFormat> GpxExport();      // ExportGpx.cpp
std::unique_ptr<ExportFormat> GeoJsonExport();  // ExportGeoJson.cpp
std::unique_ptr<ExportFormat> KmlExport();      // ExportKml.cpp

// "%.6f" of `value` (or another printf format of one double).
std::string ExportNumber(double value, const char* format = "%.6f");
// `text` as XML character data or attribute value: markup escaped, every byte that is no UTF-8
// and every control character XML 1.0 does not allow replaced by U+FFFD.
std::string XmlText(const std::string& text);
