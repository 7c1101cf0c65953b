// One line per record: JSON ("op" first, then "at", "utc" when known, the arguments in call
// order, then what they mean) or a readable "key=value" form.
#pragma once

#include <cstdint>
#include <string>

#include "JournalFormat.h"

// Appends the record's line (without a newline) to `out`; `utcMs` is the record's time when
// known (else null). False when the body does not decode.
bool RecordJson(const mdj::RecordView& record, const long long* utcMs, std::string& out);
bool RecordText(const mdj::RecordView& record, const long long* utcMs, std::string& out);

// Appends `size` bytes of `text` as a JSON string: quoted, escaped as TextEscape.h says, so
// the line is valid JSON and safe on a terminal whatever the text held.
void AppendJsonString(std::string& out, const char* text, std::size_t size);
