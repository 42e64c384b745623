#pragma once

// The attribute table of a layer, read on demand: the header when it is opened, the records a
// page at a time as the view asks for them, so a table of a million rows opens at once and
// scrolls without holding more than a few pages.

#include "host/api/Host.h"
#include "host/api/HostTypes.h"
#include "host/shapefile/DbfTable.h"

#include <QAbstractTableModel>

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host_app {

// A layer's table as the window shows it. Rows are the features in the order of their ids: the
// features the map draws, one for one.
class TableReader {
public:
    virtual ~TableReader() = default;
    // What the table is read from: a .dbf's path, or a source and its table.
    virtual const std::string& Path() const = 0;
    virtual std::size_t ColumnCount() const = 0;
    virtual std::string ColumnName(std::size_t column) const = 0;
    virtual bool IsNumericColumn(std::size_t column) const = 0;
    virtual std::size_t RowCount() const = 0;
    // The record behind a row: the feature's FID.
    virtual std::size_t RecordOf(std::size_t row) const = 0;
    // The row of a record (a FID), or nothing for one the table does not hold.
    virtual std::optional<std::size_t> RowOfRecord(std::int64_t record) const = 0;
    // A column's value in a row, as the host's cursor gives it (empty for Null).
    virtual host::Value Value(std::size_t row, std::size_t column) const = 0;
    // Whether the data is still what was read (a criterion run replaces or widens it).
    virtual bool IsCurrent() const = 0;
};

// A shapefile's table, read on demand. Rows are the records not deleted.
class DbfTableReader final : public TableReader {
public:
    // Throws quorel::Error when the table cannot be read.
    explicit DbfTableReader(std::string dbfPath);

    const std::string& Path() const override { return m_path; }
    std::size_t ColumnCount() const override { return m_header.fields.size(); }
    std::string ColumnName(std::size_t column) const override {
        return m_header.fields.at(column).name;
    }
    bool IsNumericColumn(std::size_t column) const override {
        return m_header.fields.at(column).IsNumeric();
    }
    std::size_t RowCount() const override { return m_rowCount; }
    std::size_t RecordOf(std::size_t row) const override {
        return m_liveRecords.empty() ? row : m_liveRecords[row];
    }
    std::optional<std::size_t> RowOfRecord(std::int64_t record) const override;
    host::Value Value(std::size_t row, std::size_t column) const override;
    bool IsCurrent() const override;

private:
    struct Page {
        std::size_t index = 0;
        std::size_t firstRecord = 0;
        std::vector<char> bytes;
    };
    struct FileIdentity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t modified = 0;
        bool operator==(const FileIdentity&) const = default;
    };
    static FileIdentity IdentityOf(int fd);

    const char* Record(std::size_t row) const;
    void FindDeletedRecords(std::size_t recordCount);
    void ReadAt(char* into, std::size_t bytes, std::size_t record) const;

    std::string m_path;
    host::shapefile::FileHandle m_file;
    FileIdentity m_identity;
    host::shapefile::DbfHeader m_header;
    std::size_t m_rowCount = 0;
    std::vector<std::uint32_t> m_liveRecords; // empty when no record is deleted
    mutable std::list<Page> m_pages;          // most recently used first
};

// The table of a layer of a database (GeoPackage, PostGIS), read whole through the layer's cursor
// when it is opened: the attributes only, the geometry staying in the database.
class FeatureClassTable final : public TableReader {
public:
    // Throws quorel::Error when the rows cannot be read.
    FeatureClassTable(std::string key, std::shared_ptr<host::IFeatureClass> featureClass);

    const std::string& Path() const override { return m_key; }
    std::size_t ColumnCount() const override { return m_columns.size(); }
    std::string ColumnName(std::size_t column) const override { return m_columns.at(column).name; }
    bool IsNumericColumn(std::size_t column) const override { return m_columns.at(column).numeric; }
    std::size_t RowCount() const override { return m_ids.size(); }
    std::size_t RecordOf(std::size_t row) const override {
        return static_cast<std::size_t>(m_ids.at(row));
    }
    std::optional<std::size_t> RowOfRecord(std::int64_t record) const override;
    host::Value Value(std::size_t row, std::size_t column) const override;
    // Whether the layer still has the fields that were read.
    bool IsCurrent() const override;

private:
    struct Column {
        std::string name;
        std::int32_t field = 0; // its index among the layer's fields
        bool numeric = false;
    };
    std::vector<std::string> FieldNamesNow() const;

    std::string m_key;
    std::shared_ptr<host::IFeatureClass> m_featureClass;
    std::vector<std::string> m_fieldNames;        // the layer's, as read
    std::vector<Column> m_columns;                // its fields but the FID and the geometry
    std::vector<std::int64_t> m_ids;              // per row, rising
    std::vector<std::vector<host::Value>> m_rows; // per row, per column
};

// A value as the table shows it: numbers with up to 15 significant digits and a point.
QString CellText(const host::Value& value);

// The rows of the selected features stand out; with "selected only" they are the only rows.
class AttributeTableModel final : public QAbstractTableModel {
public:
    using QAbstractTableModel::QAbstractTableModel;

    // Shows that table (its first column the FID); null shows nothing.
    void SetTable(std::shared_ptr<const TableReader> table);
    const std::shared_ptr<const TableReader>& Table() const { return m_table; }
    // The selected FIDs, ascending.
    void SetSelection(std::vector<std::int64_t> selectedIds);
    void SetSelectedOnly(bool selectedOnly);
    bool SelectedOnly() const { return m_selectedOnly; }
    // The table's row behind a row of the model, and back (nothing when it is filtered out).
    std::size_t TableRow(int row) const;
    std::optional<int> ModelRow(std::size_t tableRow) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    void FilterRows();
    bool IsSelectedRow(std::size_t tableRow) const;

    std::shared_ptr<const TableReader> m_table;
    std::vector<std::int64_t> m_selected;
    bool m_selectedOnly = false;
    std::vector<std::size_t> m_shownRows; // the table rows shown, with "selected only"
};

} // namespace quorel::host_app
