#include "host/postgis/PostGIS.h"

#include "fzy/AggregationRecords.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <cmath>
#include <cstdlib>
#include <functional>

namespace quorel::host::postgis {
namespace {

constexpr const char* kSource = "PostGIS";
constexpr std::size_t kCursorBatch = 10000;

// A table's (or view's) schema and name from a layer name: a relation of that name in the
// search path, else "schema.table".
TableName ResolveTable(Connection& connection, const std::string& layerName) {
    const Result found = connection.Exec(
        "SELECT n.nspname, c.relname FROM pg_catalog.pg_class c "
        "JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
        "WHERE c.relkind IN ('r', 'p', 'v', 'm', 'f') AND ((c.relname = $1 AND n.nspname = ANY "
        "(pg_catalog.current_schemas(false))) OR n.nspname || '.' || c.relname = $1) "
        "ORDER BY CASE WHEN c.relname = $1 THEN "
        "pg_catalog.array_position(pg_catalog.current_schemas(false), n.nspname) END "
        "NULLS LAST LIMIT 1",
        {layerName});
    if (found.Rows() == 0) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "No table '" + layerName + "' in " + connection.Source());
    }
    return {found.Text(0, 0), found.Text(0, 1)};
}

std::string Qualified(const Connection& connection, const TableName& table) {
    return connection.QuoteIdentifier(table.schema) + "." + connection.QuoteIdentifier(table.name);
}

std::int32_t FieldTypeOf(const std::string& type, bool primaryKey) {
    if (primaryKey && (type == "int4" || type == "int8" || type == "int2")) {
        return kFieldTypeOID;
    }
    if (type == "int2") {
        return kFieldTypeSmallInteger;
    }
    if (type == "int4") {
        return kFieldTypeInteger;
    }
    if (type == "float4") {
        return kFieldTypeSingle;
    }
    if (type == "float8" || type == "numeric" || type == "int8") {
        return kFieldTypeDouble;
    }
    if (type == "geometry" || type == "geography") {
        return kFieldTypeGeometry;
    }
    if (type == "date" || type == "timestamp" || type == "timestamptz") {
        return kFieldTypeDate;
    }
    return kFieldTypeString;
}

const char* SqlTypeOf(std::int32_t fieldType) {
    switch (fieldType) {
    case kFieldTypeSmallInteger:
        return "smallint";
    case kFieldTypeInteger:
        return "integer";
    case kFieldTypeSingle:
        return "real";
    case kFieldTypeDouble:
        return "double precision";
    case kFieldTypeDate:
        return "timestamp with time zone";
    default:
        return "text";
    }
}

bool IsNumericType(std::int32_t fieldType) {
    return fieldType >= kFieldTypeSmallInteger && fieldType <= kFieldTypeDouble;
}

// Runs work as one unit: inside the write lock's transaction under a savepoint, so that a
// failure leaves the transaction usable and the table as it was; otherwise in a transaction of
// its own.
void AsOneUnit(Connection& connection, const std::function<void()>& work) {
    const bool nested = connection.InTransaction();
    connection.Run(nested ? "SAVEPOINT quorel_unit" : "BEGIN");
    try {
        work();
    } catch (...) {
        try {
            connection.Run(nested ? "ROLLBACK TO SAVEPOINT quorel_unit; RELEASE SAVEPOINT "
                                    "quorel_unit"
                                  : "ROLLBACK");
        } catch (...) {
            // The connection is gone: the server has rolled back.
        }
        throw;
    }
    connection.Run(nested ? "RELEASE SAVEPOINT quorel_unit" : "COMMIT");
}

std::string NumberText(double value) {
    return util::FormatRoundTrip(value);
}

const char* KindName(int kind) {
    static const char* const names[] = {"none",        "singleton",    "triangle",
                                        "rising ramp", "falling ramp", "trapezoid"};
    return kind >= 0 && kind <= 5 ? names[kind] : "unknown";
}

class PostgisFields final : public IFields {
public:
    explicit PostgisFields(std::vector<std::shared_ptr<map::Field>> fields)
        : m_fields(std::move(fields)) {}

    std::int32_t FieldCount() const override { return static_cast<std::int32_t>(m_fields.size()); }
    std::shared_ptr<IField> Field(std::int32_t index) const override {
        if (index < 0 || index >= FieldCount()) {
            throw Error(error_number::kHostInvalidIndex, kSource,
                        "No field at index " + std::to_string(index));
        }
        return m_fields[static_cast<std::size_t>(index)];
    }
    std::int32_t FindField(const std::string& name) const override {
        for (std::size_t i = 0; i < m_fields.size(); ++i) {
            if (m_fields[i]->Name() == name) {
                return static_cast<std::int32_t>(i);
            }
        }
        return -1;
    }

private:
    std::vector<std::shared_ptr<map::Field>> m_fields;
};

class PostgisRow final : public IRow {
public:
    explicit PostgisRow(std::vector<Value> values) : m_values(std::move(values)) {}
    void Reset(std::vector<Value> values) { m_values = std::move(values); }

    Value GetValue(std::int32_t fieldIndex) const override {
        if (fieldIndex < 0 || static_cast<std::size_t>(fieldIndex) >= m_values.size()) {
            throw Error(error_number::kHostInvalidIndex, kSource,
                        "No field at index " + std::to_string(fieldIndex));
        }
        return m_values[static_cast<std::size_t>(fieldIndex)];
    }

private:
    std::vector<Value> m_values;
};

} // namespace

std::vector<std::string> LayerNames(const std::string& source) {
    const auto connection = SharedConnection(source);
    const Result layers = connection->Exec(
        "SELECT DISTINCT CASE WHEN f_table_schema = ANY (pg_catalog.current_schemas(false)) "
        "THEN f_table_name ELSE f_table_schema || '.' || f_table_name END "
        "FROM geometry_columns ORDER BY 1");
    std::vector<std::string> names;
    for (int i = 0; i < layers.Rows(); ++i) {
        names.push_back(layers.Text(i, 0));
    }
    return names;
}

PostgisWorkspace::PostgisWorkspace(const std::string& source)
    : m_source(source), m_connection(SharedConnection(source)) {}

std::shared_ptr<IFeatureClass> PostgisWorkspace::OpenFeatureClass(const std::string& name) {
    return std::make_shared<PostgisFeatureClass>(shared_from_this(), m_connection,
                                                 ResolveTable(*m_connection, name), name);
}

std::shared_ptr<IFeatureWorkspace> PostgisWorkspaceFactory::OpenFromFile(const std::string& path,
                                                                         std::intptr_t) {
    return std::make_shared<PostgisWorkspace>(path);
}

PostgisFeatureClass::PostgisFeatureClass(std::shared_ptr<PostgisWorkspace> workspace,
                                         std::shared_ptr<Connection> connection, TableName table,
                                         std::string layerName)
    : m_workspace(std::move(workspace)), m_connection(std::move(connection)),
      m_table(std::move(table)), m_layerName(std::move(layerName)) {}

std::string PostgisFeatureClass::QualifiedName() const {
    return Qualified(*m_connection, m_table);
}

std::int32_t PostgisFeatureClass::ShapeType() const {
    const Result type =
        m_connection->Exec("SELECT upper(type) FROM geometry_columns WHERE f_table_schema = $1 AND "
                           "f_table_name = $2 LIMIT 1",
                           {m_table.schema, m_table.name});
    const std::string name = type.Rows() > 0 ? type.Text(0, 0) : "";
    if (name == "POLYGON" || name == "MULTIPOLYGON") {
        return kGeometryPolygon;
    }
    if (name == "POINT") {
        return kGeometryPoint;
    }
    if (name == "MULTIPOINT") {
        return kGeometryMultipoint;
    }
    if (name == "LINESTRING" || name == "MULTILINESTRING") {
        return kGeometryPolyline;
    }
    return kGeometryNull;
}

std::shared_ptr<IFields> PostgisFeatureClass::Fields() const {
    const Result columns = m_connection->Exec(
        "SELECT a.attname, t.typname, COALESCE(a.attnum = ANY (i.indkey::int2[]) AND "
        "array_length(i.indkey::int2[], 1) = 1, false) "
        "FROM pg_catalog.pg_attribute a JOIN pg_catalog.pg_type t ON t.oid = a.atttypid "
        "LEFT JOIN pg_catalog.pg_index i ON i.indrelid = a.attrelid AND i.indisprimary "
        "WHERE a.attrelid = $1::regclass AND a.attnum > 0 AND NOT a.attisdropped "
        "ORDER BY a.attnum",
        {QualifiedName()});
    std::vector<std::shared_ptr<map::Field>> fields;
    for (int i = 0; i < columns.Rows(); ++i) {
        fields.push_back(std::make_shared<map::Field>(
            columns.Text(i, 0), FieldTypeOf(columns.Text(i, 1), columns.Text(i, 2) == "t")));
    }
    return std::make_shared<PostgisFields>(std::move(fields));
}

std::int32_t PostgisFeatureClass::FindField(const std::string& name) const {
    return Fields()->FindField(name);
}

void PostgisFeatureClass::AddField(const IField& field) {
    const std::string name = field.Name();
    if (name.empty()) {
        throw Error(error_number::kHostInvalidIndex, kSource, "A field needs a name");
    }
    if (name.size() > *FieldNameByteLimit()) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "The field name " + name + " is longer than PostgreSQL's 63 bytes");
    }
    if (FindField(name) >= 0) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "The table " + m_layerName + " already has a field " + name);
    }
    AsOneUnit(*m_connection, [&] {
        m_connection->Run("ALTER TABLE " + QualifiedName() + " ADD COLUMN " +
                          m_connection->QuoteIdentifier(name) + " " + SqlTypeOf(field.Type()));
    });
}

std::shared_ptr<ICursor> PostgisFeatureClass::Search(bool recycling) {
    return std::make_shared<PostgisCursor>(shared_from_this(), recycling);
}

std::string PostgisFeatureClass::RecordsTable() const {
    return m_connection->QuoteIdentifier(m_table.schema) + ".quorel_criteria";
}

std::string PostgisFeatureClass::AggregationsTable() const {
    return m_connection->QuoteIdentifier(m_table.schema) + ".quorel_aggregations";
}

bool PostgisFeatureClass::TableExists(const std::string& qualifiedName) const {
    return m_connection->Exec("SELECT pg_catalog.to_regclass($1) IS NOT NULL", {qualifiedName})
               .Text(0, 0) == "t";
}

void PostgisFeatureClass::RemoveRecordsOfMissingColumns() {
    for (const std::string& records : {RecordsTable(), AggregationsTable()}) {
        if (!TableExists(records)) {
            continue;
        }
        m_connection->Exec("DELETE FROM " + records +
                               " q WHERE q.\"table\" = $1 AND NOT EXISTS (SELECT 1 FROM "
                               "pg_catalog.pg_attribute a WHERE a.attrelid = $2::regclass AND "
                               "a.attnum > 0 AND NOT a.attisdropped AND a.attname = q.\"column\")",
                           {m_table.name, QualifiedName()});
    }
}

// The comment is for everyone who reads the table: the description, else the English one,
// its lines as psql shows them and the source's password left out.
void PostgisFeatureClass::Comment(const std::string& column, const std::string& description,
                                  const std::string& english) {
    std::string comment;
    for (std::size_t i = 0; i < description.size(); ++i) {
        if (description.compare(i, 2, "\r\n") != 0) {
            comment += description[i];
        }
    }
    if (comment.empty()) {
        comment = english;
    }
    const std::string source = Source();
    const std::string shown = WithoutPassword(source);
    if (shown != source) {
        for (auto at = comment.find(source); at != std::string::npos;
             at = comment.find(source, at + shown.size())) {
            comment.replace(at, source.size(), shown);
        }
    }
    m_connection->Run("COMMENT ON COLUMN " + QualifiedName() + "." +
                      m_connection->QuoteIdentifier(column) + " IS " +
                      m_connection->QuoteLiteral(comment));
}

// Makes a records table on first use (table and column, the given columns, created and
// version) and removes the row of a column, which the new record replaces.
void PostgisFeatureClass::ClearRecordRow(const std::string& recordsTable,
                                         const std::string& columns, const std::string& column) {
    m_connection->Run("CREATE TABLE IF NOT EXISTS " + recordsTable +
                      " (\"table\" text NOT NULL, \"column\" text NOT NULL, " + columns +
                      ", created timestamp with time zone NOT NULL, version text NOT NULL, "
                      "PRIMARY KEY (\"table\", \"column\"))");
    m_connection->Exec("DELETE FROM " + recordsTable + " WHERE \"table\" = $1 AND \"column\" = $2",
                       {m_table.name, column});
}

void PostgisFeatureClass::WriteRecord(const CriterionRecord& record) {
    AsOneUnit(*m_connection, [&] {
        ClearRecordRow(RecordsTable(),
                       "source_field text NOT NULL, kind smallint NOT NULL, "
                       "a double precision, b double precision, c double precision, "
                       "d double precision",
                       record.column);
        m_connection->Exec(
            "INSERT INTO " + RecordsTable() + " VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10)",
            {m_table.name, record.column, record.sourceField, std::to_string(record.kind),
             NumberText(record.a), NumberText(record.b), NumberText(record.c), NumberText(record.d),
             record.created, record.version});
        const std::string english =
            "Quorel criterion: " + std::string(KindName(record.kind)) + " (kind " +
            std::to_string(record.kind) + ") of " + record.sourceField +
            ", a = " + util::FormatNumber(record.a) + ", b = " + util::FormatNumber(record.b) +
            ", c = " + util::FormatNumber(record.c) + ", d = " + util::FormatNumber(record.d) +
            ", computed " + record.created + " by version " + record.version;
        Comment(record.column, record.description, english);
    });
}

namespace {

constexpr const char* kRecordColumns =
    "\"table\", \"column\", source_field, kind, a, b, c, d, "
    "to_char(created AT TIME ZONE 'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS') || '+00:00', version";

CriterionRecord RecordOf(const Result& rows, int i) {
    CriterionRecord record;
    record.table = rows.Text(i, 0);
    record.column = rows.Text(i, 1);
    record.sourceField = rows.Text(i, 2);
    record.kind = static_cast<std::int16_t>(std::stoi(rows.Text(i, 3)));
    double* numbers[] = {&record.a, &record.b, &record.c, &record.d};
    for (int k = 0; k < 4; ++k) {
        *numbers[k] = rows.IsNull(i, 4 + k) ? 0 : std::strtod(rows.Text(i, 4 + k).c_str(), nullptr);
    }
    record.created = rows.Text(i, 8);
    record.version = rows.Text(i, 9);
    return record;
}

} // namespace

std::optional<CriterionRecord> PostgisFeatureClass::Record(const std::string& column) const {
    if (!RecordsTableExists()) {
        return std::nullopt;
    }
    const Result rows =
        m_connection->Exec(std::string("SELECT ") + kRecordColumns + " FROM " + RecordsTable() +
                               " WHERE \"table\" = $1 AND \"column\" = $2",
                           {m_table.name, column});
    if (rows.Rows() == 0) {
        return std::nullopt;
    }
    return RecordOf(rows, 0);
}

std::vector<CriterionRecord> PostgisFeatureClass::Records() const {
    std::vector<CriterionRecord> records;
    if (!RecordsTableExists()) {
        return records;
    }
    const Result rows =
        m_connection->Exec(std::string("SELECT ") + kRecordColumns + " FROM " + RecordsTable() +
                               " WHERE \"table\" = $1 ORDER BY created, \"column\"",
                           {m_table.name});
    for (int i = 0; i < rows.Rows(); ++i) {
        records.push_back(RecordOf(rows, i));
    }
    return records;
}

namespace {

// An array's text as PostgreSQL reads it ({"a","b\\"c"}), each element quoted.
std::string ArrayLiteral(const std::vector<std::string>& elements) {
    std::string literal = "{";
    for (std::size_t i = 0; i < elements.size(); ++i) {
        literal += i == 0 ? "\"" : ",\"";
        for (const char c : elements[i]) {
            if (c == '"' || c == '\\') {
                literal += '\\';
            }
            literal += c;
        }
        literal += '"';
    }
    return literal + "}";
}

std::string Joined(const std::vector<std::string>& parts) {
    std::string joined;
    for (const auto& part : parts) {
        joined += (joined.empty() ? "" : ", ") + part;
    }
    return joined;
}

} // namespace

void PostgisFeatureClass::WriteAggregationRecord(const AggregationRecord& record) {
    std::vector<std::string> weights;
    for (const double weight : record.weights) {
        weights.push_back(NumberText(weight));
    }
    AsOneUnit(*m_connection, [&] {
        ClearRecordRow(AggregationsTable(),
                       "inputs text[] NOT NULL, operator text NOT NULL, "
                       "gamma double precision, weights double precision[]",
                       record.field);
        m_connection->Exec(
            "INSERT INTO " + AggregationsTable() +
                " (\"table\", \"column\", inputs, operator, gamma, weights, created, version) "
                "VALUES ($1, $2, $3::text[], $4, $5::double precision, $6::double precision[], "
                "$7, $8)",
            {m_table.name, record.field, ArrayLiteral(record.inputs), record.op,
             record.gamma ? std::optional<std::string>(NumberText(*record.gamma)) : std::nullopt,
             weights.empty() ? std::nullopt : std::optional<std::string>(ArrayLiteral(weights)),
             record.created, record.version});
        std::string operation = record.op;
        if (record.gamma) {
            operation += " (gamma " + util::FormatNumber(*record.gamma) + ")";
        }
        if (!weights.empty()) {
            std::vector<std::string> shown;
            for (const double weight : record.weights) {
                shown.push_back(util::FormatNumber(weight));
            }
            operation += " (weights " + Joined(shown) + ")";
        }
        Comment(record.field, record.description,
                "Quorel aggregation: " + operation + " of " + Joined(record.inputs) +
                    ", computed " + record.created + " by version " + record.version);
    });
}

std::vector<AggregationRecord> PostgisFeatureClass::AggregationRecords() const {
    std::vector<AggregationRecord> records;
    if (!TableExists(AggregationsTable())) {
        return records;
    }
    // The server writes each row as the JSON document a GeoPackage keeps: one reader for both.
    const Result rows = m_connection->Exec(
        "SELECT \"column\", json_strip_nulls(json_build_object('inputs', inputs, 'operator', "
        "operator, 'gamma', gamma, 'weights', weights, 'created', to_char(created AT TIME ZONE "
        "'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS') || '+00:00', 'version', version))::text FROM " +
            AggregationsTable() + " WHERE \"table\" = $1 ORDER BY created, \"column\"",
        {m_table.name});
    for (int i = 0; i < rows.Rows(); ++i) {
        records.push_back(
            fzy::AggregationFromDocument(rows.Text(i, 1), rows.Text(i, 0), AggregationsTable()));
    }
    return records;
}

PostgisCursor::PostgisCursor(std::shared_ptr<PostgisFeatureClass> featureClass, bool recycling)
    : m_featureClass(std::move(featureClass)), m_fields(m_featureClass->Fields()),
      m_recycling(recycling) {}

PostgisCursor::~PostgisCursor() = default;

void PostgisCursor::Fetch() {
    if (!m_connection) {
        m_connection = std::make_unique<Connection>(m_featureClass->Source());
        // Geometry stays on the server: the rows carry the attributes only.
        std::string columns;
        for (std::int32_t i = 0; i < m_fields->FieldCount(); ++i) {
            const auto field = m_fields->Field(i);
            columns += i > 0 ? ", " : "";
            columns += field->Type() == kFieldTypeGeometry
                           ? std::string("NULL")
                           : m_connection->QuoteIdentifier(field->Name());
        }
        std::string order;
        for (std::int32_t i = 0; i < m_fields->FieldCount(); ++i) {
            if (m_fields->Field(i)->Type() == kFieldTypeOID) {
                order = " ORDER BY " + m_connection->QuoteIdentifier(m_fields->Field(i)->Name());
                break;
            }
        }
        m_connection->Run("BEGIN READ ONLY");
        m_connection->Run("DECLARE quorel_rows NO SCROLL CURSOR FOR SELECT " +
                          (columns.empty() ? std::string("1") : columns) + " FROM " +
                          Qualified(*m_connection, m_featureClass->Table()) + order);
    }
    const Result rows =
        m_connection->Exec("FETCH " + std::to_string(kCursorBatch) + " FROM quorel_rows");
    m_batch.clear();
    m_next = 0;
    for (int r = 0; r < rows.Rows(); ++r) {
        std::vector<Value> values;
        for (std::int32_t i = 0; i < m_fields->FieldCount(); ++i) {
            const std::int32_t type = m_fields->Field(i)->Type();
            if (rows.IsNull(r, i) || type == kFieldTypeGeometry) {
                values.emplace_back();
            } else if (IsNumericType(type) || type == kFieldTypeOID) {
                values.emplace_back(std::strtod(rows.Text(r, i).c_str(), nullptr));
            } else {
                values.emplace_back(rows.Text(r, i));
            }
        }
        m_batch.push_back(std::move(values));
    }
    if (m_batch.empty()) {
        m_done = true;
        m_connection.reset();
    }
}

std::shared_ptr<IRow> PostgisCursor::NextRow() {
    if (m_done) {
        return nullptr;
    }
    if (m_next >= m_batch.size()) {
        Fetch();
        if (m_done) {
            return nullptr;
        }
    }
    auto& values = m_batch[m_next++];
    if (m_recycling && m_row) {
        static_cast<PostgisRow&>(*m_row).Reset(std::move(values));
        return m_row;
    }
    auto row = std::make_shared<PostgisRow>(std::move(values));
    if (m_recycling) {
        m_row = row;
    }
    return row;
}

void Calculator::SetCursor(std::shared_ptr<ICursor> cursor) {
    m_cursor = std::dynamic_pointer_cast<PostgisCursor>(cursor);
    if (!m_cursor) {
        throw Error(error_number::kHostFailure, kSource, "The cursor is not a PostGIS table's");
    }
}

void Calculator::Calculate() {
    if (!m_cursor) {
        throw Error(error_number::kObjectVariableNotSet, kSource, "The calculator has no cursor");
    }
    PostgisFeatureClass& table = m_cursor->FeatureClass();
    if (table.FindField(m_field) < 0) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "The table " + table.AliasName() + " has no field " + m_field);
    }
    if (m_sql) {
        CalculateWithSql(table);
    } else {
        CalculateWithScript(table);
    }
}

void Calculator::CalculateWithSql(PostgisFeatureClass& table) {
    Connection& connection = table.SharedConnection();
    const Result target = connection.Exec(
        "SELECT pg_catalog.format_type(a.atttypid, a.atttypmod), c.relkind "
        "FROM pg_catalog.pg_attribute a JOIN pg_catalog.pg_class c ON c.oid = a.attrelid "
        "WHERE a.attrelid = $1::regclass AND a.attname = $2 AND NOT a.attisdropped",
        {table.QualifiedName(), m_field});
    const bool rewritable = target.Rows() == 1 && target.Text(0, 0) == "double precision" &&
                            (target.Text(0, 1) == "r" || target.Text(0, 1) == "p");
    const std::string column = connection.QuoteIdentifier(m_field);
    const std::string update =
        "UPDATE " + table.QualifiedName() + " SET " + column + " = (" + *m_sql + ")";
    AsOneUnit(connection, [&] {
        if (!rewritable) {
            connection.Run(update);
            return;
        }
        // One rewrite of the table writes each row once; an UPDATE would write a new version of
        // every row and index entry. A column some view or rule uses cannot change this way.
        connection.Run("SAVEPOINT quorel_rewrite");
        try {
            connection.Run("ALTER TABLE " + table.QualifiedName() + " ALTER COLUMN " + column +
                           " TYPE double precision USING (" + *m_sql + ")");
        } catch (const Error&) {
            if (connection.LastSqlState() != "0A000") {
                throw;
            }
            connection.Run("ROLLBACK TO SAVEPOINT quorel_rewrite");
            connection.Run(update);
        }
        connection.Run("RELEASE SAVEPOINT quorel_rewrite");
    });
}

void Calculator::CalculateWithScript(PostgisFeatureClass& table) {
    Connection& connection = table.SharedConnection();
    const auto program = script::Program::Compile(m_preExpression, m_expression);
    std::string columns = "ctid::text";
    for (const auto& name : program.FieldNames()) {
        columns += ", CAST(" + connection.QuoteIdentifier(name) + " AS double precision)";
    }
    // Read on the writer's connection: it sees the field just added under the lock.
    const Result rows = connection.Exec("SELECT " + columns + " FROM " + table.QualifiedName());
    const auto count = static_cast<std::size_t>(rows.Rows());
    std::vector<script::Column> inputs(program.FieldNames().size());
    std::vector<const script::Column*> inputPointers;
    for (std::size_t k = 0; k < inputs.size(); ++k) {
        inputs[k].resize(count);
        for (std::size_t r = 0; r < count; ++r) {
            const int row = static_cast<int>(r);
            const int col = static_cast<int>(k) + 1;
            inputs[k].isNull[r] = rows.IsNull(row, col) ? 1 : 0;
            inputs[k].values[r] =
                rows.IsNull(row, col) ? NAN : std::strtod(rows.Text(row, col).c_str(), nullptr);
        }
        inputPointers.push_back(&inputs[k]);
    }
    script::Column output;
    output.resize(count);
    program.Evaluate(inputPointers, output);

    std::string ids = "{";
    std::string values = "{";
    for (std::size_t r = 0; r < count; ++r) {
        ids += (r > 0 ? ",\"" : "\"") + rows.Text(static_cast<int>(r), 0) + "\"";
        values += r > 0 ? "," : "";
        values += output.isNull[r] || std::isnan(output.values[r]) ? std::string("NULL")
                                                                   : NumberText(output.values[r]);
    }
    ids += "}";
    values += "}";
    AsOneUnit(connection, [&] {
        connection.Exec("UPDATE " + table.QualifiedName() + " t SET " +
                            connection.QuoteIdentifier(m_field) +
                            " = v.value FROM unnest($1::tid[], $2::double precision[]) "
                            "AS v(id, value) WHERE t.ctid = v.id",
                        {ids, values});
    });
}

PostgisWriteLock::PostgisWriteLock(const std::string& source, const std::string& layerName,
                                   std::chrono::milliseconds wait)
    : m_connection(SharedConnection(source)) {
    if (m_connection->InTransaction()) {
        throw Error(error_number::kHostLayerLocked, kSource,
                    layerName + " in " + source + " is being written by another run");
    }
    const TableName table = ResolveTable(*m_connection, layerName);
    const std::string qualified = Qualified(*m_connection, table);
    m_connection->Run("BEGIN");
    m_open = true;
    try {
        const Result rights =
            m_connection->Exec("SELECT pg_catalog.pg_has_role(c.relowner, 'USAGE'), "
                               "pg_catalog.current_setting('transaction_read_only') "
                               "FROM pg_catalog.pg_class c WHERE c.oid = $1::regclass",
                               {qualified});
        if (rights.Text(0, 1) == "on") {
            throw Error(error_number::kHostLayerReadOnly, kSource,
                        source + " is read-only: the table " + layerName + " cannot be written");
        }
        if (rights.Text(0, 0) != "t") {
            throw Error(error_number::kHostLayerReadOnly, kSource,
                        "Only the owner of the table " + layerName + " in " + source +
                            " may add a field to it");
        }
        if (wait.count() > 0) {
            m_connection->Run("SET LOCAL lock_timeout = '" + std::to_string(wait.count()) + "ms'");
            m_connection->Run("LOCK TABLE " + qualified + " IN SHARE ROW EXCLUSIVE MODE");
        } else {
            m_connection->Run("LOCK TABLE " + qualified + " IN SHARE ROW EXCLUSIVE MODE NOWAIT");
        }
        // Adding the column waits for the readers of the moment, a while at most.
        m_connection->Run("SET LOCAL lock_timeout = '60s'");
    } catch (...) {
        try {
            m_connection->Run("ROLLBACK");
        } catch (...) {
        }
        m_open = false;
        throw;
    }
}

PostgisWriteLock::~PostgisWriteLock() {
    if (m_open) {
        try {
            m_connection->Run("ROLLBACK");
        } catch (...) {
            // A lost connection: the server has rolled back.
        }
    }
}

void PostgisWriteLock::Commit() {
    if (m_open) {
        m_open = false;
        // A transaction a failed statement aborted ends in ROLLBACK, whatever was asked.
        if (m_connection->Exec("COMMIT").CommandStatus() != "COMMIT") {
            throw Error(error_number::kHostFailure, kSource,
                        "The transaction failed and was rolled back");
        }
    }
}

} // namespace quorel::host::postgis
