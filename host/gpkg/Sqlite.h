#pragma once

// SQLite handles, each owned once: a connection to a GeoPackage with the GeoPackage SQL functions
// registered, and its prepared statements. Failures throw quorel::Error with SQLite's message.

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace quorel::host::gpkg {

// A name as SQL reads it whatever it holds: in double quotes, inner quotes doubled.
std::string QuoteIdentifier(const std::string& name);

class Statement {
public:
    Statement(sqlite3* db, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void Bind(int index, const std::string& text);
    void Bind(int index, double value);
    void Bind(int index, std::int64_t value);
    void BindNull(int index);
    // True while a row is there; false at the end. A failure throws.
    bool Step();
    void Reset();

    int ColumnType(int column) const;
    bool IsNull(int column) const { return ColumnType(column) == SQLITE_NULL; }
    double Double(int column) const;
    std::int64_t Integer(int column) const;
    std::string Text(int column) const;
    sqlite3_stmt* Handle() const { return m_statement; }

private:
    sqlite3* m_db;
    sqlite3_stmt* m_statement = nullptr;
};

// One connection to a GeoPackage file. Opened read and write when the file allows it, else
// read-only (a writer then finds it so when it takes the write lock).
class Database {
public:
    // Throws Error(kFileNotFound) for a missing file, another number when it is no SQLite file.
    explicit Database(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& Path() const { return m_path; }
    sqlite3* Handle() const { return m_db; }
    bool ReadOnly() const { return m_readOnly; }
    void Execute(const std::string& sql);
    // How long a statement waits for another connection's lock before it fails busy.
    void SetBusyWait(std::chrono::milliseconds wait);
    // The error a failed call left, as quorel::Error's description: the file, then SQLite's text.
    std::string LastError() const;
    // Whether a transaction is open on this connection.
    bool InTransaction() const;

private:
    std::string m_path;
    sqlite3* m_db = nullptr;
    bool m_readOnly = false;
};

// The connection of this process to a file, shared by every object that works on it, so that a
// write lock's transaction holds the writes of the feature classes of the file.
std::shared_ptr<Database> SharedDatabase(const std::string& path);

// Registers ST_IsEmpty, ST_MinX, ST_MaxX, ST_MinY, ST_MaxY, ST_GeometryType, ST_SRID and
// GPKG_IsAssignable on a connection: the functions the GeoPackage's triggers call.
void RegisterGeoPackageFunctions(sqlite3* db);

} // namespace quorel::host::gpkg
