#pragma once

// GeoPackage files as the host's workspaces, feature classes, fields and cursors, over SQLite
// itself (no GDAL). A feature class is one feature table of the file; its criterion records live
// in the file's metadata tables (the GeoPackage metadata extension), and a writer's work is one
// SQLite transaction, made durable by the write lock's Commit.

#include "host/api/Host.h"
#include "host/map/Field.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::gpkg {

class Database;
class Statement;

// Whether a source names a GeoPackage: a path ending in ".gpkg" (any letter case).
bool IsGeoPackagePath(const std::string& source);

// The feature tables of a GeoPackage, by name. Throws quorel::Error when the file cannot be read
// as one.
std::vector<std::string> LayerNames(const std::string& path);

// A column of a feature table as the host lists it.
struct TableColumn {
    std::string name;
    std::int32_t type = kFieldTypeString; // the host's type code
    bool primaryKey = false;
    bool geometry = false;
};

class GeoPackageFields final : public IFields {
public:
    explicit GeoPackageFields(const std::vector<TableColumn>& columns);

    std::int32_t FieldCount() const override;
    std::shared_ptr<IField> Field(std::int32_t index) const override;
    std::int32_t FindField(const std::string& name) const override;

private:
    std::vector<std::shared_ptr<map::Field>> m_fields;
};

class GeoPackageFeatureClass;

// Walks the rows in the order of their primary key, one value per column (the geometry's is
// Null: the map reads geometry on its own). The query starts at the first row asked for, so that
// a cursor made for the calculator reads nothing.
class GeoPackageCursor final : public ICursor {
public:
    GeoPackageCursor(std::shared_ptr<GeoPackageFeatureClass> featureClass, bool recycling);
    ~GeoPackageCursor() override;

    std::shared_ptr<IRow> NextRow() override;
    std::shared_ptr<IFields> Fields() const override { return m_fields; }

    GeoPackageFeatureClass& FeatureClass() const { return *m_class; }
    // The key of the last row read; nothing before the first.
    std::optional<std::int64_t> LastKey() const { return m_lastKey; }
    bool AtEnd() const { return m_atEnd; }
    void MoveToEnd();

private:
    std::shared_ptr<GeoPackageFeatureClass> m_class;
    std::vector<TableColumn> m_columns;
    std::shared_ptr<IFields> m_fields;
    std::unique_ptr<Statement> m_query;
    bool m_recycling;
    bool m_atEnd = false;
    std::optional<std::int64_t> m_lastKey;
    std::shared_ptr<IRow> m_row;
};

// A feature table. Names are SQLite's: any text, quoted; SQLite compares them without regard to
// letter case, so a name that differs from an existing column only so is refused.
class GeoPackageFeatureClass final : public IFeatureClass,
                                     public ICriterionRecords,
                                     public std::enable_shared_from_this<GeoPackageFeatureClass> {
public:
    // Throws quorel::Error when the file holds no feature table of that name.
    GeoPackageFeatureClass(std::shared_ptr<Database> database, const std::string& table);

    std::int32_t ShapeType() const override { return m_shapeType; }
    std::string AliasName() const override { return m_table; }
    std::shared_ptr<IWorkspace> Workspace() const override;
    std::shared_ptr<IFields> Fields() const override;
    std::int32_t FindField(const std::string& name) const override;
    // ALTER TABLE ... ADD COLUMN, a REAL column for a double.
    void AddField(const IField& field) override;
    std::shared_ptr<ICursor> Search(bool recycling) override;
    std::optional<std::size_t> FieldNameByteLimit() const override { return std::nullopt; }
    std::size_t FieldNameByteLength(const std::string& name) const override { return name.size(); }
    std::optional<std::size_t> FieldNameCharacterLimit() const override { return std::nullopt; }

    void RemoveRecordsOfMissingColumns() override;
    void WriteRecord(const CriterionRecord& record) override;
    std::optional<CriterionRecord> Record(const std::string& column) const override;
    std::vector<CriterionRecord> Records() const override;
    // Aggregation records are documents of their own standard URI beside the criterion records,
    // referenced to their column the same way.
    void WriteAggregationRecord(const AggregationRecord& record) override;
    std::vector<AggregationRecord> AggregationRecords() const override;

    const std::string& Table() const { return m_table; }
    const std::string& GeometryColumn() const { return m_geometryColumn; }
    std::string Path() const;
    Database& Db() const { return *m_database; }
    // The table's columns now, in table order.
    std::vector<TableColumn> Columns() const;
    std::string PrimaryKey() const;

private:
    struct StoredRecord {
        std::int64_t id;
        CriterionRecord record;
    };
    std::vector<StoredRecord> StoredRecords() const;
    struct StoredDocument {
        std::int64_t id;
        std::string column;
        std::string document;
    };
    // The documents of one standard URI referenced to columns of this table, oldest first.
    std::vector<StoredDocument> StoredDocuments(const char* standardUri) const;
    // Replaces the document of the column, in one savepoint.
    void WriteDocument(const char* standardUri, const std::string& column,
                       const std::string& document);

    std::shared_ptr<Database> m_database;
    std::string m_table;
    std::string m_geometryColumn;
    std::int32_t m_shapeType = kGeometryNull;
};

class GeoPackageWorkspace final : public IFeatureWorkspace {
public:
    explicit GeoPackageWorkspace(std::string path) : m_path(std::move(path)) {}

    // The .gpkg file's path.
    std::string PathName() const override { return m_path; }
    std::shared_ptr<IFeatureClass> OpenFeatureClass(const std::string& name) override;

private:
    std::string m_path;
};

class GeoPackageWorkspaceFactory final : public IWorkspaceFactory {
public:
    // path: the .gpkg file. Throws when it is missing or no GeoPackage.
    std::shared_ptr<IFeatureWorkspace> OpenFromFile(const std::string& path,
                                                    std::intptr_t window) override;
};

// The write lock of a GeoPackage: an SQLite write transaction (BEGIN IMMEDIATE) on the file,
// which every writer of the file, ours or another program, has to wait for. Commit ends it; a
// lock destroyed without Commit rolls back whatever was written under it.
class GeoPackageWriteLock final : public ILayerWriteLock {
public:
    // Throws as IApplication::LockLayerForWriting says: kHostLayerLocked when another writer held
    // the file for all of `wait`, kHostLayerReadOnly when the file or its folder cannot be
    // written.
    GeoPackageWriteLock(const std::string& path, std::chrono::milliseconds wait);
    ~GeoPackageWriteLock() override;
    GeoPackageWriteLock(const GeoPackageWriteLock&) = delete;
    GeoPackageWriteLock& operator=(const GeoPackageWriteLock&) = delete;

    void Commit() override;
    bool UndoesUncommittedWrites() const override { return true; }

private:
    std::shared_ptr<Database> m_database;
    bool m_open = false;
};

// The field calculator over a GeoPackage's cursor: the script engine computes every row's value
// (the same engine and script as for a shapefile, so the same degrees, bit for bit), handed to
// one UPDATE of the table through a function registered for it. Rows from the cursor's position
// to the end; a failing script stops the UPDATE, which then changes nothing.
class Calculator final : public ICalculator {
public:
    explicit Calculator(std::shared_ptr<IStatusBar> statusBar)
        : m_statusBar(std::move(statusBar)) {}

    void SetCursor(std::shared_ptr<ICursor> cursor) override { m_cursor = std::move(cursor); }
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    void Calculate() override;

private:
    std::shared_ptr<IStatusBar> m_statusBar;
    std::shared_ptr<ICursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
};

} // namespace quorel::host::gpkg
