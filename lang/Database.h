#pragma once

#include "lang/DbValue.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel::lang {

// A failure inside a database engine; its text is the engine's own description, which the
// data-access procedures put into their errors and boxes.
class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The rows of one statement, read forward once.
class IRecordset {
public:
    virtual ~IRecordset() = default;
    virtual bool Eof() const = 0;
    virtual void MoveNext() = 0;
    virtual int FieldCount() const = 0;
    // Throws EngineError for an index outside the fields or when there is no current row.
    virtual DbValue Field(int index) const = 0;
    virtual void Close() = 0;
};

// An open database file. Statements and table definitions raise EngineError.
class IDatabase {
public:
    virtual ~IDatabase() = default;
    virtual const std::string& Path() const = 0;
    virtual std::unique_ptr<IRecordset> OpenRecordset(const std::string& sql) = 0;
    // Column names of a table in the table's own order.
    virtual std::vector<std::string> ColumnNames(const std::string& table) = 0;
};

enum class DatabaseEngine { Unknown, Sqlite, Access };

// The file's first bytes tell which engine reads it: SQLite's header, or the Jet/ACE signature
// of an Access file. Unknown when the file cannot be read or is neither.
DatabaseEngine DetectEngine(const std::string& path);

// Opens an existing database with the engine its first bytes name. SQLite files open read-write
// when the file allows it (read-only otherwise) and are never created; Access files are
// read-only. Throws EngineError.
std::unique_ptr<IDatabase> OpenDatabase(const std::string& path);

// Engine-specific openers, used by OpenDatabase and by tests.
std::unique_ptr<IDatabase> OpenSqliteDatabase(const std::string& path);
std::unique_ptr<IDatabase> OpenAccessDatabase(const std::string& path);

} // namespace quorel::lang
