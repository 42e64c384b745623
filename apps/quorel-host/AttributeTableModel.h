#pragma once

// The attribute table of a layer, read on demand: the header when it is opened, the records a
// page at a time as the view asks for them, so a table of a million rows opens at once and
// scrolls without holding more than a few pages.

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

// Rows are the records not deleted, in order: the features the map draws, one for one.
class TableReader {
public:
    // Throws quorel::Error when the table cannot be read.
    explicit TableReader(std::string dbfPath);

    const std::string& Path() const { return m_path; }
    const host::shapefile::DbfHeader& Header() const { return m_header; }
    std::size_t RowCount() const { return m_rowCount; }
    // The record behind a row: the feature's FID.
    std::size_t RecordOf(std::size_t row) const {
        return m_liveRecords.empty() ? row : m_liveRecords[row];
    }
    // The row of a record (a FID), or nothing for a deleted record or one past the end.
    std::optional<std::size_t> RowOfRecord(std::int64_t record) const;
    // A column's value in a row, as the host's cursor gives it (empty for Null).
    host::Value Value(std::size_t row, std::size_t column) const;
    // Whether the file on disk is still the one that was read (a criterion run replaces it).
    bool IsCurrent() const;

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
