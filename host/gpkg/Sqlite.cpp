#include "host/gpkg/Sqlite.h"

#include "util/Error.h"

#include <unistd.h>

#include <filesystem>
#include <map>
#include <mutex>

namespace quorel::host::gpkg {
namespace {

constexpr const char* kSource = "GeoPackage";

[[noreturn]] void Fail(sqlite3* db, const std::string& what) {
    const int code = db ? sqlite3_extended_errcode(db) : SQLITE_ERROR;
    const std::string message = db ? sqlite3_errmsg(db) : "out of memory";
    std::int32_t number = error_number::kHostFailure;
    if ((code & 0xFF) == SQLITE_BUSY || (code & 0xFF) == SQLITE_LOCKED) {
        number = error_number::kHostLayerLocked;
    } else if ((code & 0xFF) == SQLITE_READONLY) {
        number = error_number::kHostLayerReadOnly;
    } else if ((code & 0xFF) == SQLITE_FULL) {
        number = error_number::kDiskFull;
    } else if ((code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB) {
        number = error_number::kHostLayerDamaged;
    }
    throw Error(number, kSource, what + ": " + message);
}

} // namespace

std::string QuoteIdentifier(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c;
        if (c == '"') {
            quoted += '"';
        }
    }
    return quoted + "\"";
}

Statement::Statement(sqlite3* db, const std::string& sql) : m_db(db) {
    if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &m_statement, nullptr) !=
        SQLITE_OK) {
        Fail(db, sqlite3_db_filename(db, "main"));
    }
}

Statement::~Statement() {
    sqlite3_finalize(m_statement);
}

void Statement::Bind(int index, const std::string& text) {
    if (sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
        Fail(m_db, "bind");
    }
}

void Statement::Bind(int index, double value) {
    if (sqlite3_bind_double(m_statement, index, value) != SQLITE_OK) {
        Fail(m_db, "bind");
    }
}

void Statement::Bind(int index, std::int64_t value) {
    if (sqlite3_bind_int64(m_statement, index, value) != SQLITE_OK) {
        Fail(m_db, "bind");
    }
}

void Statement::BindNull(int index) {
    if (sqlite3_bind_null(m_statement, index) != SQLITE_OK) {
        Fail(m_db, "bind");
    }
}

bool Statement::Step() {
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result == SQLITE_DONE) {
        return false;
    }
    sqlite3_reset(m_statement);
    Fail(m_db, sqlite3_db_filename(m_db, "main"));
}

void Statement::Reset() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

int Statement::ColumnType(int column) const {
    return sqlite3_column_type(m_statement, column);
}

double Statement::Double(int column) const {
    return sqlite3_column_double(m_statement, column);
}

std::int64_t Statement::Integer(int column) const {
    return sqlite3_column_int64(m_statement, column);
}

std::string Statement::Text(int column) const {
    const auto* text = sqlite3_column_text(m_statement, column);
    return text ? std::string(reinterpret_cast<const char*>(text),
                              static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)))
                : std::string();
}

Database::Database(const std::string& path) : m_path(path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        throw Error(error_number::kFileNotFound, kSource, "File not found: " + path);
    }
    m_readOnly = access(path.c_str(), W_OK) != 0;
    const int flags =
        (m_readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path.c_str(), &m_db, flags, nullptr) != SQLITE_OK) {
        const std::string message = m_db ? sqlite3_errmsg(m_db) : "out of memory";
        sqlite3_close(m_db);
        throw Error(error_number::kPermissionDenied, kSource, path + ": " + message);
    }
    sqlite3_extended_result_codes(m_db, 1);
    RegisterGeoPackageFunctions(m_db);
    SetBusyWait(std::chrono::milliseconds(3000));
    try {
        Statement contents(m_db, "SELECT count(*) FROM gpkg_contents");
        contents.Step();
    } catch (const Error& notGeoPackage) {
        sqlite3_close(m_db);
        throw Error(notGeoPackage.Number() == error_number::kHostLayerLocked
                        ? error_number::kHostLayerLocked
                        : error_number::kHostLayerDamaged,
                    kSource, path + " is not a GeoPackage (" + notGeoPackage.Description() + ")");
    }
}

Database::~Database() {
    sqlite3_close_v2(m_db);
}

void Database::Execute(const std::string& sql) {
    char* message = nullptr;
    if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        sqlite3_free(message);
        Fail(m_db, m_path);
    }
}

void Database::SetBusyWait(std::chrono::milliseconds wait) {
    sqlite3_busy_timeout(m_db, static_cast<int>(wait.count()));
}

std::string Database::LastError() const {
    return m_path + ": " + sqlite3_errmsg(m_db);
}

bool Database::InTransaction() const {
    return sqlite3_get_autocommit(m_db) == 0;
}

std::shared_ptr<Database> SharedDatabase(const std::string& path) {
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<Database>> open;
    std::error_code error;
    const std::filesystem::path canonical = std::filesystem::weakly_canonical(path, error);
    const std::string key = error ? path : canonical.string();
    const std::lock_guard<std::mutex> guard(mutex);
    if (auto database = open[key].lock()) {
        return database;
    }
    auto database = std::make_shared<Database>(path);
    open[key] = database;
    return database;
}

} // namespace quorel::host::gpkg
