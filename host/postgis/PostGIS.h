#pragma once

// PostGIS tables as the host's workspaces, feature classes, fields and cursors, over libpq. The
// workspace is the database, named by its connection text (PG:"dbname=... host=..."); a layer
// is a table with a geometry column, named "table", or "schema.table" outside the search path.
// Writes go through the source's shared connection, so that a write lock's transaction holds
// them all; cursors read on a connection of their own, opened at their first row.

#include "host/api/Host.h"
#include "host/map/Field.h"
#include "host/postgis/Connection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::postgis {

// The tables of the database holding a geometry column, as layer names, in name order.
std::vector<std::string> LayerNames(const std::string& source);

// A table: its schema and name, unquoted.
struct TableName {
    std::string schema;
    std::string name;
};

class PostgisWorkspace final : public IFeatureWorkspace,
                               public std::enable_shared_from_this<PostgisWorkspace> {
public:
    explicit PostgisWorkspace(const std::string& source);

    std::string PathName() const override { return m_source; }
    // A layer name as LayerNames gives it; a missing table throws quorel::Error.
    std::shared_ptr<IFeatureClass> OpenFeatureClass(const std::string& name) override;

private:
    std::string m_source;
    std::shared_ptr<Connection> m_connection;
};

class PostgisWorkspaceFactory final : public IWorkspaceFactory {
public:
    std::shared_ptr<IFeatureWorkspace> OpenFromFile(const std::string& path,
                                                    std::intptr_t window) override;
};

class PostgisFeatureClass final : public IFeatureClass,
                                  public ICriterionRecords,
                                  public std::enable_shared_from_this<PostgisFeatureClass> {
public:
    PostgisFeatureClass(std::shared_ptr<PostgisWorkspace> workspace,
                        std::shared_ptr<Connection> connection, TableName table,
                        std::string layerName);

    std::int32_t ShapeType() const override;
    std::string AliasName() const override { return m_layerName; }
    std::shared_ptr<IWorkspace> Workspace() const override { return m_workspace; }
    std::shared_ptr<IFields> Fields() const override;
    std::int32_t FindField(const std::string& name) const override;
    // ALTER TABLE ... ADD COLUMN double precision (text for a text field).
    void AddField(const IField& field) override;
    std::shared_ptr<ICursor> Search(bool recycling) override;
    // PostgreSQL keeps 63 bytes of a name.
    std::optional<std::size_t> FieldNameByteLimit() const override { return 63; }
    std::size_t FieldNameByteLength(const std::string& name) const override { return name.size(); }
    std::optional<std::size_t> FieldNameCharacterLimit() const override { return std::nullopt; }

    // Criterion records are rows of quorel_criteria in the table's schema, aggregation records
    // rows of quorel_aggregations there (inputs and weights as arrays), each table made on first
    // use; each recorded column gets a COMMENT ON COLUMN describing it.
    void RemoveRecordsOfMissingColumns() override;
    void WriteRecord(const CriterionRecord& record) override;
    std::optional<CriterionRecord> Record(const std::string& column) const override;
    std::vector<CriterionRecord> Records() const override;
    void WriteAggregationRecord(const AggregationRecord& record) override;
    std::vector<AggregationRecord> AggregationRecords() const override;

    const TableName& Table() const { return m_table; }
    // schema.table, each quoted.
    std::string QualifiedName() const;
    Connection& SharedConnection() const { return *m_connection; }
    std::string Source() const { return m_workspace->PathName(); }

private:
    std::string RecordsTable() const;
    std::string AggregationsTable() const;
    // Whether the table (schema and name, quoted) is there.
    bool TableExists(const std::string& qualifiedName) const;
    bool RecordsTableExists() const { return TableExists(RecordsTable()); }
    void ClearRecordRow(const std::string& recordsTable, const std::string& columns,
                        const std::string& column);
    // Sets a record's column comment: its description, else the English one.
    void Comment(const std::string& column, const std::string& description,
                 const std::string& english);

    std::shared_ptr<PostgisWorkspace> m_workspace;
    std::shared_ptr<Connection> m_connection;
    TableName m_table;
    std::string m_layerName;
};

// Reads the table on a connection of its own, opened at the first row asked for, so that a
// cursor made for the calculator reads nothing and never waits for the writer's lock.
class PostgisCursor final : public ICursor {
public:
    PostgisCursor(std::shared_ptr<PostgisFeatureClass> featureClass, bool recycling);
    ~PostgisCursor() override;

    std::shared_ptr<IRow> NextRow() override;
    std::shared_ptr<IFields> Fields() const override { return m_fields; }
    PostgisFeatureClass& FeatureClass() const { return *m_featureClass; }

private:
    void Fetch();

    std::shared_ptr<PostgisFeatureClass> m_featureClass;
    std::shared_ptr<IFields> m_fields;
    bool m_recycling;
    std::unique_ptr<Connection> m_connection;
    std::vector<std::vector<Value>> m_batch;
    std::size_t m_next = 0;
    bool m_done = false;
    std::shared_ptr<IRow> m_row;
};

// Fills a field of a PostGIS table. Given the degree as SQL (ISqlCalculator), the server
// computes it in one statement and no row travels: a column of double precision in a plain
// table is rewritten once (ALTER COLUMN ... TYPE double precision USING the expression), any
// other (a view, a column of another type, a column a view uses) is filled by UPDATE. Without
// SQL (a user's script), the values are read, computed by the script engine and written back
// by one UPDATE. Either way it is one transaction (the write lock's, when one is held): a
// failure leaves the field as it was.
class Calculator final : public ICalculator, public ISqlCalculator {
public:
    void SetCursor(std::shared_ptr<ICursor> cursor) override;
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    void Calculate() override;

    std::string SqlDialect() const override { return "postgresql"; }
    void SetSqlExpression(const std::string& expression) override { m_sql = expression; }

private:
    void CalculateWithSql(PostgisFeatureClass& table);
    void CalculateWithScript(PostgisFeatureClass& table);

    std::shared_ptr<PostgisCursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
    std::optional<std::string> m_sql;
};

// The write lock of a table: a transaction on the source's shared connection that holds the
// table in SHARE ROW EXCLUSIVE mode (readers go on, another writer waits), waiting `wait` for
// another writer. Commit commits; destroyed without it, everything is rolled back.
class PostgisWriteLock final : public ILayerWriteLock {
public:
    PostgisWriteLock(const std::string& source, const std::string& layerName,
                     std::chrono::milliseconds wait);
    ~PostgisWriteLock() override;

    void Commit() override;
    bool UndoesUncommittedWrites() const override { return true; }

private:
    std::shared_ptr<Connection> m_connection;
    bool m_open = false;
};

} // namespace quorel::host::postgis
