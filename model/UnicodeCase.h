// model/UnicodeCase.h: lower case and white space beyond ASCII, from the C library's Unicode tables.
#pragma once

namespace quillon::model {

// Both answer for ASCII too, but callers handle ASCII themselves where speed matters. Without the
// tables (a C library built without them) a character is its own lower case and is not space.
char32_t unicodeLowerCase(char32_t c) noexcept;
bool isUnicodeSpace(char32_t c) noexcept;

} // namespace quillon::model
