#pragma once

#include <string>
#include <string_view>

namespace quorel::util {

// Conversion between our UTF-8 strings and Windows-1252, the single-byte code page of files
// that must stay interchangeable with those written on Windows. Characters that Windows-1252
// cannot hold become '?'; bytes that Windows-1252 leaves undefined decode to '?'.
std::string Utf8ToWindows1252(std::string_view utf8);
std::string Windows1252ToUtf8(std::string_view bytes);

} // namespace quorel::util
