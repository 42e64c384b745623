#pragma once

// One libpq connection, its results and its errors. Every statement goes with its values as
// parameters; identifiers are quoted by the server's client library.

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct pg_conn;
struct pg_result;

namespace quorel::host::postgis {

// A source's text as the user writes it: PG:"dbname=... host=..." (GDAL's form), quotes
// optional. IsPostgresSource says whether a source is one.
bool IsPostgresSource(const std::string& source);
// The libpq connection string inside it.
std::string ConnectionInfo(const std::string& source);
// The source as it may be shown to others: without its password.
std::string WithoutPassword(const std::string& source);

class Result {
public:
    explicit Result(pg_result* result) : m_result(result) {}
    Result(Result&&) noexcept;
    Result& operator=(Result&&) noexcept;
    ~Result();

    int Rows() const;
    // The command's tag, e.g. "COMMIT" or "ROLLBACK".
    std::string CommandStatus() const;
    bool IsNull(int row, int column) const;
    std::string Text(int row, int column) const;
    // Null as nullopt.
    std::optional<std::string> Optional(int row, int column) const;

private:
    pg_result* m_result;
};

class Connection {
public:
    // Connects, or throws quorel::Error naming the source and the server's reason.
    explicit Connection(const std::string& source);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // Runs one statement with its parameters (Null as nullopt); a failure throws quorel::Error:
    // the script's numbers for a division by zero (11) and an overflow (6), kHostLayerLocked
    // for a lock not granted in time, kHostFailure otherwise, with the server's message.
    Result Exec(const std::string& sql, const std::vector<std::optional<std::string>>& params = {});
    // Runs statements without parameters (several may be separated by semicolons).
    void Run(const std::string& sql);

    std::string QuoteIdentifier(const std::string& name) const;
    std::string QuoteLiteral(const std::string& text) const;
    // The SQLSTATE of the last failure ("" when the server gave none, e.g. a lost connection).
    const std::string& LastSqlState() const { return m_lastSqlState; }
    const std::string& Source() const { return m_source; }
    // Whether a transaction is open on the connection (a write lock holds it).
    bool InTransaction() const;
    bool Alive() const;
    // The server process serving this connection.
    int BackendPid() const;

private:
    [[noreturn]] void Fail(pg_result* result);

    std::string m_source;
    std::string m_lastSqlState;
    // A window's worker thread may read fields while its user-interface thread writes.
    mutable std::mutex m_mutex;
    pg_conn* m_connection = nullptr;
};

// The one connection of a source shared by everything of this process that reads and writes it,
// so that a write lock's transaction covers the field added, the values and the record.
std::shared_ptr<Connection> SharedConnection(const std::string& source);

} // namespace quorel::host::postgis
