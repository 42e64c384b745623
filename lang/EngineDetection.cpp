#include "lang/Database.h"

#include <array>
#include <cstring>
#include <fstream>

namespace quorel::lang {

DatabaseEngine DetectEngine(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, 32> head{};
    if (!file || !file.read(head.data(), head.size())) {
        return DatabaseEngine::Unknown;
    }
    static constexpr char kSqlite[] = "SQLite format 3"; // followed by a NUL
    if (std::memcmp(head.data(), kSqlite, sizeof kSqlite) == 0) {
        return DatabaseEngine::Sqlite;
    }
    // Access files: a 4-byte page header, then "Standard Jet DB" (Jet 3 and 4) or
    // "Standard ACE DB" (later versions).
    if (std::memcmp(head.data() + 4, "Standard Jet DB", 15) == 0 ||
        std::memcmp(head.data() + 4, "Standard ACE DB", 15) == 0) {
        return DatabaseEngine::Access;
    }
    return DatabaseEngine::Unknown;
}

std::unique_ptr<IDatabase> OpenDatabase(const std::string& path) {
    switch (DetectEngine(path)) {
    case DatabaseEngine::Sqlite:
        return OpenSqliteDatabase(path);
    case DatabaseEngine::Access:
        return OpenAccessDatabase(path);
    case DatabaseEngine::Unknown:
        break;
    }
    throw EngineError("Unrecognized database format '" + path + "'.");
}

} // namespace quorel::lang
