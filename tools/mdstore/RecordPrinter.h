// One line per record: JSON ("op" first, then "at", then the arguments in call order) or a
// readable "key=value" form.
#pragma once

#include <cstdint>
#include <string>

#include "JournalFormat.h"

// Appends the record's line (without a newline) to `out`; false when the body does not decode.
bool RecordJson(const mdj::RecordView& record, std::string& out);
bool RecordText(const mdj::RecordView& record, std::string& out);

// Appends `size` bytes of `text` as a JSON string: quoted, with bytes outside printable ASCII
// escaped, so the line stays valid JSON whatever the text held.
void AppendJsonString(std::string& out, const char* text, std::size_t size);
