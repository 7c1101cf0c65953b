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

// Appends `size` bytes of `text` as a JSON string: quoted, UTF-8 kept as it is, escaped only
// what JSON requires, each byte that is no UTF-8 replaced by U+FFFD, so the line is valid
// UTF-8 and JSON whatever the text held.
void AppendJsonString(std::string& out, const char* text, std::size_t size);
