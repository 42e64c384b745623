#pragma once

#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <unistd.h>

namespace quorel::lang::testing_support {

using ScratchFolder = quorel::test::ScratchFolder;

// Makes a real SQLite database file by running sql in it.
inline void MakeSqliteDatabase(const std::string& path, const std::string& sql) {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &handle), SQLITE_OK);
    char* message = nullptr;
    const int rc = sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, &message);
    const std::string text = message != nullptr ? message : "";
    sqlite3_free(message);
    sqlite3_close(handle);
    ASSERT_EQ(rc, SQLITE_OK) << text;
}

// The usual text table: ids 0 to 3 in French and English, text 1 naming a font.
inline constexpr const char* kFrEnTable = "CREATE TABLE tblText (id INTEGER, fr TEXT, en TEXT);"
                                          "INSERT INTO tblText VALUES (0, 'zéro', 'zero');"
                                          "INSERT INTO tblText VALUES (1, 'Tahoma', 'Arial');"
                                          "INSERT INTO tblText VALUES (2, 'Sortir', 'Exit');"
                                          "INSERT INTO tblText VALUES (3, 'Calculer', 'Compute');";

} // namespace quorel::lang::testing_support
