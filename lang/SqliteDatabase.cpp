#include "lang/Database.h"

#include <sqlite3.h>

#include <memory>

namespace quorel::lang {
namespace {

struct SqliteCloser {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
};
struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using SqliteHandle = std::shared_ptr<sqlite3>;
using StatementHandle = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

StatementHandle Prepare(sqlite3* handle, const std::string& sql) {
    sqlite3_stmt* raw = nullptr;
    const int rc =
        sqlite3_prepare_v2(handle, sql.c_str(), static_cast<int>(sql.size()) + 1, &raw, nullptr);
    StatementHandle statement(raw);
    if (rc != SQLITE_OK) {
        throw EngineError(sqlite3_errmsg(handle));
    }
    if (!statement) {
        throw EngineError("The statement is empty.");
    }
    return statement;
}

// Rows of one prepared statement. It shares the connection, so a recordset outliving its
// database object stays valid.
class SqliteRecordset final : public IRecordset {
public:
    SqliteRecordset(SqliteHandle handle, StatementHandle statement)
        : m_handle(std::move(handle)), m_statement(std::move(statement)) {
        Step();
    }

    bool Eof() const override { return m_eof; }

    void MoveNext() override {
        if (m_eof) {
            throw EngineError("No current record.");
        }
        Step();
    }

    int FieldCount() const override {
        return m_statement ? sqlite3_column_count(m_statement.get()) : 0;
    }

    DbValue Field(int index) const override {
        if (m_eof) {
            throw EngineError("No current record.");
        }
        if (index < 0 || index >= FieldCount()) {
            throw EngineError("Item not found in this collection.");
        }
        sqlite3_stmt* statement = m_statement.get();
        switch (sqlite3_column_type(statement, index)) {
        case SQLITE_NULL:
            return DbNull{};
        case SQLITE_INTEGER:
            return static_cast<double>(sqlite3_column_int64(statement, index));
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, index);
        default: {
            const auto* text = sqlite3_column_text(statement, index);
            const int length = sqlite3_column_bytes(statement, index);
            return std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
        }
        }
    }

    void Close() override {
        m_statement.reset();
        m_eof = true;
    }

private:
    void Step() {
        const int rc = sqlite3_step(m_statement.get());
        if (rc == SQLITE_ROW) {
            m_eof = false;
        } else if (rc == SQLITE_DONE) {
            m_eof = true;
        } else {
            m_eof = true;
            throw EngineError(sqlite3_errmsg(m_handle.get()));
        }
    }

    SqliteHandle m_handle;
    StatementHandle m_statement;
    bool m_eof = true;
};

class SqliteDatabase final : public IDatabase {
public:
    SqliteDatabase(std::string path, SqliteHandle handle)
        : m_path(std::move(path)), m_handle(std::move(handle)) {}

    const std::string& Path() const override { return m_path; }

    std::unique_ptr<IRecordset> OpenRecordset(const std::string& sql) override {
        return std::make_unique<SqliteRecordset>(m_handle, Prepare(m_handle.get(), sql));
    }

    std::vector<std::string> ColumnNames(const std::string& table) override {
        // Preparing a select of the whole table gives its columns in their declared order,
        // and the engine's own message when the table does not exist.
        std::string quoted = "\"";
        for (char c : table) {
            quoted += c;
            if (c == '"') {
                quoted += '"';
            }
        }
        quoted += '"';
        const StatementHandle statement = Prepare(m_handle.get(), "SELECT * FROM " + quoted);
        std::vector<std::string> names;
        const int count = sqlite3_column_count(statement.get());
        for (int i = 0; i < count; ++i) {
            names.emplace_back(sqlite3_column_name(statement.get(), i));
        }
        return names;
    }

private:
    std::string m_path;
    SqliteHandle m_handle;
};

} // namespace

std::unique_ptr<IDatabase> OpenSqliteDatabase(const std::string& path) {
    sqlite3* raw = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    SqliteHandle handle(raw, SqliteCloser());
    if (rc != SQLITE_OK) {
        throw EngineError(raw != nullptr ? sqlite3_errmsg(raw) : sqlite3_errstr(rc));
    }
    // Opening is lazy; reading the schema once tells a damaged file at once.
    Prepare(handle.get(), "SELECT count(*) FROM sqlite_master");
    return std::make_unique<SqliteDatabase>(path, std::move(handle));
}

} // namespace quorel::lang
