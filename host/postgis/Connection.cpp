#include "host/postgis/Connection.h"

#include "util/Error.h"

#include <libpq-fe.h>

#include <cstring>
#include <map>
#include <mutex>
#include <regex>

namespace quorel::host::postgis {
namespace {

constexpr const char* kSource = "PostGIS";

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    const auto last = text.find_last_not_of(" \t\r\n");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

} // namespace

bool IsPostgresSource(const std::string& source) {
    return source.rfind("PG:", 0) == 0;
}

std::string ConnectionInfo(const std::string& source) {
    std::string info = Trimmed(IsPostgresSource(source) ? source.substr(3) : source);
    if (info.size() >= 2 && info.front() == '"' && info.back() == '"') {
        info = info.substr(1, info.size() - 2);
    }
    return info;
}

std::string WithoutPassword(const std::string& source) {
    static const std::regex password(R"(\s*\bpassword\s*=\s*('([^'\\]|\\.)*'|[^\s"]+))");
    return std::regex_replace(source, password, "");
}

Result::Result(Result&& other) noexcept : m_result(other.m_result) {
    other.m_result = nullptr;
}

Result& Result::operator=(Result&& other) noexcept {
    if (this != &other) {
        PQclear(m_result);
        m_result = other.m_result;
        other.m_result = nullptr;
    }
    return *this;
}

Result::~Result() {
    PQclear(m_result);
}

int Result::Rows() const {
    return PQntuples(m_result);
}

std::string Result::CommandStatus() const {
    return PQcmdStatus(m_result);
}

bool Result::IsNull(int row, int column) const {
    return PQgetisnull(m_result, row, column) != 0;
}

std::string Result::Text(int row, int column) const {
    return std::string(PQgetvalue(m_result, row, column),
                       static_cast<std::size_t>(PQgetlength(m_result, row, column)));
}

std::optional<std::string> Result::Optional(int row, int column) const {
    if (IsNull(row, column)) {
        return std::nullopt;
    }
    return Text(row, column);
}

Connection::Connection(const std::string& source) : m_source(source) {
    // Doubles travel as text: ask for the shortest text that reads back the same double.
    const std::string info = ConnectionInfo(source);
    const char* keywords[] = {"dbname", "options", "fallback_application_name", nullptr};
    const char* values[] = {info.c_str(), "-c extra_float_digits=3", "quorel", nullptr};
    m_connection = PQconnectdbParams(keywords, values, 1);
    if (PQstatus(m_connection) != CONNECTION_OK) {
        std::string reason = PQerrorMessage(m_connection);
        PQfinish(m_connection);
        m_connection = nullptr;
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot connect to " + source + ": " + Trimmed(reason));
    }
    // The server's notices ("... already exists, skipping") are not the user's business.
    PQsetNoticeProcessor(
        m_connection, [](void*, const char*) {}, nullptr);
}

Connection::~Connection() {
    PQfinish(m_connection);
}

void Connection::Fail(pg_result* result) {
    const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    const std::string code = state ? state : "";
    m_lastSqlState = code;
    std::string message =
        Trimmed(result ? PQresultErrorMessage(result) : PQerrorMessage(m_connection));
    if (message.empty()) {
        message = Trimmed(PQerrorMessage(m_connection));
    }
    PQclear(result);
    // The script's own errors, so that a run reports them as it does on a shapefile.
    if (code == "22012") {
        throw Error(error_number::kDivisionByZero, kSource, "Division by zero");
    }
    if (code == "22003") {
        throw Error(error_number::kOverflow, kSource, "Overflow");
    }
    if (code == "55P03") {
        throw Error(error_number::kHostLayerLocked, kSource, message);
    }
    throw Error(error_number::kHostFailure, kSource, message);
}

Result Connection::Exec(const std::string& sql,
                        const std::vector<std::optional<std::string>>& params) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<const char*> values;
    values.reserve(params.size());
    for (const auto& param : params) {
        values.push_back(param ? param->c_str() : nullptr);
    }
    pg_result* result = PQexecParams(m_connection, sql.c_str(), static_cast<int>(values.size()),
                                     nullptr, values.data(), nullptr, nullptr, 0);
    const auto status = result ? PQresultStatus(result) : PGRES_FATAL_ERROR;
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        Fail(result);
    }
    return Result(result);
}

void Connection::Run(const std::string& sql) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    pg_result* result = PQexec(m_connection, sql.c_str());
    const auto status = result ? PQresultStatus(result) : PGRES_FATAL_ERROR;
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        Fail(result);
    }
    PQclear(result);
}

std::string Connection::QuoteIdentifier(const std::string& name) const {
    char* quoted = PQescapeIdentifier(m_connection, name.c_str(), name.size());
    if (!quoted) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "Not a valid name: " + name + " (" + Trimmed(PQerrorMessage(m_connection)) +
                        ")");
    }
    std::string text = quoted;
    PQfreemem(quoted);
    return text;
}

std::string Connection::QuoteLiteral(const std::string& text) const {
    char* quoted = PQescapeLiteral(m_connection, text.c_str(), text.size());
    if (!quoted) {
        throw Error(error_number::kHostFailure, kSource, Trimmed(PQerrorMessage(m_connection)));
    }
    std::string literal = quoted;
    PQfreemem(quoted);
    return literal;
}

bool Connection::InTransaction() const {
    return PQtransactionStatus(m_connection) != PQTRANS_IDLE;
}

bool Connection::Alive() const {
    return PQstatus(m_connection) == CONNECTION_OK;
}

int Connection::BackendPid() const {
    return PQbackendPID(m_connection);
}

std::shared_ptr<Connection> SharedConnection(const std::string& source) {
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<Connection>> connections;
    const std::lock_guard<std::mutex> lock(mutex);
    auto& slot = connections[ConnectionInfo(source)];
    if (auto connection = slot.lock(); connection && connection->Alive()) {
        return connection;
    }
    auto connection = std::make_shared<Connection>(source);
    slot = connection;
    return connection;
}

} // namespace quorel::host::postgis
