#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <map>
#include <string>
#include <vector>

namespace quorel::lang {

// The reviewed source of the text database: a tab-separated file whose first line names the
// columns ("id", then one language code per column) and whose other lines hold one text id and
// its texts. Lines starting with '#' and empty lines are ignored. In a text, a backslash
// followed by t, n, r or a backslash stands for a tab, a line feed, a carriage return or a
// backslash.
struct TextSourceTable {
    std::vector<std::string> languages;
    std::map<std::int16_t, std::vector<std::string>> texts; // id -> one text per language
};

// The ids the component uses; the database must hold a text for each in every language.
const std::vector<std::int16_t>& RequiredTextIds();

// The text that names the forms' font; the only one allowed to be empty.
inline constexpr std::int16_t kFontTextId = 1;

// Reads and checks a source; throws quorel::Error naming the source and line on any fault: a
// bad header or language code, a row with a wrong number of cells, an id outside 0 to 32767 or
// given twice, an empty text other than the font's, a required id missing.
TextSourceTable ReadTextSource(std::istream& in, const std::string& sourceName);

// Writes the table as a fresh SQLite text database: table tblText with column id and one text
// column per language, in the source's order. An existing file is replaced.
void WriteTextDatabase(const TextSourceTable& table, const std::filesystem::path& file);

} // namespace quorel::lang
