// Texts that leave mdstore (a record's texts, a store's path) as each kind of output must carry
// them. Every output is well-formed UTF-8: each ill-formed sequence becomes one U+FFFD, as
// browsers and Python's decoder read it, so a text reads the same in every output. No output
// passes a control character on raw, so nothing in a store can drive the terminal that shows
// it, close an element of a page or break a line of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace textout {

// The character at the start of `text` (`size` > 0 bytes): its code point, or U+FFFD where no
// well-formed sequence starts (then it spans the lead byte and the continuation bytes that
// still fit it, the "maximal subpart"). Returns the number of bytes it spans.
std::size_t NextCharacter(const char* text, std::size_t size, std::uint32_t& code);

// `text` with each ill-formed sequence replaced by U+FFFD.
std::string ValidUtf8(const std::string& text);

// As inside a JSON string (without the quotes): quote and backslash escaped, every control
// character (C0, DEL, C1) and the line separators U+2028 and U+2029 as \n, \t, \r or \uXXXX.
void AppendJsonEscaped(std::string& out, const char* text, std::size_t size);
// The same for a text in a line printed for people, such as a path.
std::string Printable(const std::string& text);

// XML 1.0 character data or attribute value: markup characters as entities; tab, line feed
// and carriage return as character references, so no parser folds them; every other control
// character of C0 (which XML cannot carry) and U+FFFE, U+FFFF as U+FFFD.
std::string Xml(const std::string& text);

// HTML text or attribute value whose text in the browser's DOM is `text` itself: markup
// characters as entities, control characters of C0 and DEL as character references (a raw
// carriage return would be folded into the line feed after it).
std::string Html(const std::string& text);

}  // namespace textout
