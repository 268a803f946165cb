// The one conversion between the system's UTF-8 strings and the platform's UTF-16 (WCHAR)
// strings. Invalid input never fails: malformed UTF-8 sequences and unpaired surrogates become
// U+FFFD. Pure functions, safe on any thread.
#pragma once

#include <string>
#include <string_view>

#include "windef.h"

namespace mw {

std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);
// A null pointer gives an empty string.
std::string Utf16ToUtf8(const WCHAR* utf16);

// Characters before the terminator (0 for a null pointer), like wcslen.
size_t U16Len(const WCHAR* s);
// Ordinal comparison ignoring the case of ASCII letters (the platform's names, GUID text).
bool U16EqualNoCase(std::u16string_view a, std::u16string_view b);

}  // namespace mw
