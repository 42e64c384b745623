#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorel::lang {

// The statements the component runs against an Access file, parsed for the engine that reads
// such files: SELECT items FROM table, where an item is *, a column, or max/min/count of a
// column (count also of *). Names may be bracketed ([My column]); keywords are case-insensitive.
struct SelectItem {
    enum class Kind { AllColumns, Column, Max, Min, Count };
    Kind kind = Kind::Column;
    std::string column; // empty for * and count(*)
};

struct SelectStatement {
    std::vector<SelectItem> items;
    std::string table;
};

// Returns nothing when the statement is not of that form.
std::optional<SelectStatement> ParseSelect(const std::string& sql);

} // namespace quorel::lang
