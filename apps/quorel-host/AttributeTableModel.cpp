#include "apps/quorel-host/AttributeTableModel.h"

#include "util/Error.h"
#include "util/KeyOrder.h"
#include "util/NumberText.h"

#include <QColor>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::host_app {
namespace {

constexpr std::size_t kPageRows = 256;
constexpr std::size_t kKeptPages = 32;
// How much of the table the search for deleted records reads at a time.
constexpr std::size_t kScanBytes = std::size_t{4} << 20;

} // namespace

DbfTableReader::DbfTableReader(std::string dbfPath) : m_path(std::move(dbfPath)) {
    m_file = host::shapefile::FileHandle(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
    if (m_file.Get() < 0) {
        host::shapefile::ThrowFileError(errno, "open", m_path);
    }
    m_identity = IdentityOf(m_file.Get());
    m_header = host::shapefile::ReadDbfHeader(m_file.Get(), m_path);
    // A table cut short holds the records that are whole.
    const auto stored = static_cast<std::size_t>(
        std::max<std::int64_t>(m_identity.size - m_header.headerLength, 0));
    FindDeletedRecords(std::min<std::size_t>(m_header.recordCount, stored / m_header.recordLength));
}

DbfTableReader::FileIdentity DbfTableReader::IdentityOf(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return {};
    }
    return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
            static_cast<std::int64_t>(status.st_size),
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 +
                status.st_mtim.tv_nsec};
}

bool DbfTableReader::IsCurrent() const {
    const host::shapefile::FileHandle now(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
    return now.Get() >= 0 && IdentityOf(now.Get()) == m_identity;
}

void DbfTableReader::ReadAt(char* into, std::size_t bytes, std::size_t record) const {
    auto offset = static_cast<off_t>(m_header.headerLength + record * m_header.recordLength);
    while (bytes > 0) {
        const ssize_t got = ::pread(m_file.Get(), into, bytes, offset);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            host::shapefile::ThrowFileError(got < 0 ? errno : EIO, "read", m_path);
        }
        into += got;
        bytes -= static_cast<std::size_t>(got);
        offset += got;
    }
}

// Deleted records are rare: the rows map to records one for one until the first is met.
void DbfTableReader::FindDeletedRecords(std::size_t recordCount) {
    const std::size_t length = m_header.recordLength;
    const std::size_t batch = std::max<std::size_t>(kScanBytes / length, 1);
    std::vector<char> buffer(batch * length);
    bool sawDeleted = false;
    for (std::size_t first = 0; first < recordCount; first += batch) {
        const std::size_t count = std::min(batch, recordCount - first);
        ReadAt(buffer.data(), count * length, first);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t record = first + i;
            if (host::shapefile::DbfBatchFile::IsDeleted(buffer.data() + i * length)) {
                if (!sawDeleted) {
                    sawDeleted = true;
                    m_liveRecords.reserve(recordCount);
                    for (std::size_t r = 0; r < record; ++r) {
                        m_liveRecords.push_back(static_cast<std::uint32_t>(r));
                    }
                }
                continue;
            }
            if (sawDeleted) {
                m_liveRecords.push_back(static_cast<std::uint32_t>(record));
            }
            ++m_rowCount;
        }
    }
}

std::optional<std::size_t> DbfTableReader::RowOfRecord(std::int64_t record) const {
    if (record < 0) {
        return std::nullopt;
    }
    const auto wanted = static_cast<std::size_t>(record);
    if (m_liveRecords.empty()) {
        return wanted < m_rowCount ? std::optional<std::size_t>(wanted) : std::nullopt;
    }
    const auto found = std::lower_bound(m_liveRecords.begin(), m_liveRecords.end(), wanted);
    if (found == m_liveRecords.end() || *found != wanted) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - m_liveRecords.begin());
}

const char* DbfTableReader::Record(std::size_t row) const {
    const std::size_t index = row / kPageRows;
    auto page = std::find_if(m_pages.begin(), m_pages.end(),
                             [index](const Page& p) { return p.index == index; });
    if (page == m_pages.end()) {
        const std::size_t firstRow = index * kPageRows;
        const std::size_t lastRow = std::min(firstRow + kPageRows, m_rowCount) - 1;
        Page loaded;
        loaded.index = index;
        loaded.firstRecord = RecordOf(firstRow);
        const std::size_t records = RecordOf(lastRow) - loaded.firstRecord + 1;
        loaded.bytes.resize(records * m_header.recordLength);
        ReadAt(loaded.bytes.data(), loaded.bytes.size(), loaded.firstRecord);
        if (m_pages.size() >= kKeptPages) {
            m_pages.pop_back();
        }
        m_pages.push_front(std::move(loaded));
    } else if (page != m_pages.begin()) {
        m_pages.splice(m_pages.begin(), m_pages, page);
    }
    const Page& current = m_pages.front();
    return current.bytes.data() + (RecordOf(row) - current.firstRecord) * m_header.recordLength;
}

host::Value DbfTableReader::Value(std::size_t row, std::size_t column) const {
    if (row >= m_rowCount || column >= m_header.fields.size()) {
        throw Error(error_number::kHostInvalidIndex, "TableReader",
                    "No cell at row " + std::to_string(row) + ", column " + std::to_string(column) +
                        " of " + m_path);
    }
    const host::shapefile::DbfField& field = m_header.fields[column];
    const std::string_view bytes = host::shapefile::FieldBytes(Record(row), field);
    if (field.IsNumeric()) {
        if (const auto number = host::shapefile::ParseDbfNumber(bytes)) {
            return *number;
        }
        return std::monostate{};
    }
    std::string_view text = bytes;
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) {
        text.remove_suffix(1);
    }
    return host::shapefile::DecodeDbfText(text, m_header.encoding);
}

FeatureClassTable::FeatureClassTable(std::string key,
                                     std::shared_ptr<host::IFeatureClass> featureClass)
    : m_key(std::move(key)), m_featureClass(std::move(featureClass)) {
    const auto fields = m_featureClass->Fields();
    std::optional<std::int32_t> idField;
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        const auto field = fields->Field(i);
        m_fieldNames.push_back(field->Name());
        if (field->Type() == host::kFieldTypeOID) {
            idField = i;
        } else if (field->Type() != host::kFieldTypeGeometry) {
            m_columns.push_back({field->Name(), i, field->Type() < host::kFieldTypeString});
        }
    }
    const auto cursor = m_featureClass->Search(true);
    std::int64_t position = 0;
    while (const auto row = cursor->NextRow()) {
        std::int64_t id = position++;
        if (idField) {
            const host::Value value = row->GetValue(*idField);
            if (const auto* number = std::get_if<double>(&value)) {
                id = static_cast<std::int64_t>(*number);
            }
        }
        m_ids.push_back(id);
        std::vector<host::Value>& values = m_rows.emplace_back();
        values.reserve(m_columns.size());
        for (const Column& column : m_columns) {
            values.push_back(row->GetValue(column.field));
        }
    }
    // The cursor lists rows in the order of their ids; a source that does not is sorted.
    util::SortByKeys(m_rows, m_ids);
}

std::vector<std::string> FeatureClassTable::FieldNamesNow() const {
    std::vector<std::string> names;
    const auto fields = m_featureClass->Fields();
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        names.push_back(fields->Field(i)->Name());
    }
    return names;
}

bool FeatureClassTable::IsCurrent() const {
    try {
        return FieldNamesNow() == m_fieldNames;
    } catch (const std::exception&) {
        return false;
    }
}

std::optional<std::size_t> FeatureClassTable::RowOfRecord(std::int64_t record) const {
    const auto found = std::lower_bound(m_ids.begin(), m_ids.end(), record);
    if (found == m_ids.end() || *found != record) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - m_ids.begin());
}

host::Value FeatureClassTable::Value(std::size_t row, std::size_t column) const {
    if (row >= m_ids.size() || column >= m_columns.size()) {
        throw Error(error_number::kHostInvalidIndex, "TableReader",
                    "No cell at row " + std::to_string(row) + ", column " + std::to_string(column) +
                        " of " + m_key);
    }
    return m_rows[row][column];
}

QString CellText(const host::Value& value) {
    if (const auto* number = std::get_if<double>(&value)) {
        return QString::fromStdString(util::FormatNumber(*number, '.'));
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return QString::fromStdString(*text);
    }
    return {};
}

void AttributeTableModel::SetTable(std::shared_ptr<const TableReader> table) {
    beginResetModel();
    m_table = std::move(table);
    FilterRows();
    endResetModel();
}

void AttributeTableModel::SetSelection(std::vector<std::int64_t> selectedIds) {
    if (selectedIds == m_selected) {
        return;
    }
    if (m_selectedOnly) {
        beginResetModel();
        m_selected = std::move(selectedIds);
        FilterRows();
        endResetModel();
        return;
    }
    m_selected = std::move(selectedIds);
    if (rowCount() > 0) {
        emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1),
                         {Qt::BackgroundRole});
    }
}

void AttributeTableModel::SetSelectedOnly(bool selectedOnly) {
    if (selectedOnly == m_selectedOnly) {
        return;
    }
    beginResetModel();
    m_selectedOnly = selectedOnly;
    FilterRows();
    endResetModel();
}

void AttributeTableModel::FilterRows() {
    m_shownRows.clear();
    if (!m_selectedOnly || !m_table) {
        return;
    }
    for (const std::int64_t id : m_selected) {
        if (const auto row = m_table->RowOfRecord(id)) {
            m_shownRows.push_back(*row);
        }
    }
}

std::size_t AttributeTableModel::TableRow(int row) const {
    const auto index = static_cast<std::size_t>(row);
    return m_selectedOnly ? m_shownRows.at(index) : index;
}

std::optional<int> AttributeTableModel::ModelRow(std::size_t tableRow) const {
    if (!m_selectedOnly) {
        return static_cast<int>(tableRow);
    }
    // Selected FIDs are ascending, and so are their rows.
    const auto found = std::lower_bound(m_shownRows.begin(), m_shownRows.end(), tableRow);
    if (found == m_shownRows.end() || *found != tableRow) {
        return std::nullopt;
    }
    return static_cast<int>(found - m_shownRows.begin());
}

bool AttributeTableModel::IsSelectedRow(std::size_t tableRow) const {
    return std::binary_search(m_selected.begin(), m_selected.end(),
                              static_cast<std::int64_t>(m_table->RecordOf(tableRow)));
}

int AttributeTableModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid() || !m_table) {
        return 0;
    }
    return static_cast<int>(m_selectedOnly ? m_shownRows.size() : m_table->RowCount());
}

int AttributeTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() || !m_table ? 0 : static_cast<int>(m_table->ColumnCount()) + 1;
}

QVariant AttributeTableModel::data(const QModelIndex& index, int role) const {
    if (!m_table || !index.isValid()) {
        return {};
    }
    const std::size_t row = TableRow(index.row());
    if (role == Qt::BackgroundRole) {
        // Lighter than the map's selection colour, so the text stays readable.
        return IsSelectedRow(row) ? QVariant(QColor(178, 232, 255)) : QVariant();
    }
    if (role == Qt::TextAlignmentRole) {
        const bool numeric = index.column() == 0 ||
                             m_table->IsNumericColumn(static_cast<std::size_t>(index.column() - 1));
        return numeric ? QVariant(Qt::AlignRight | Qt::AlignVCenter) : QVariant();
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    if (index.column() == 0) {
        return QString::number(static_cast<qulonglong>(m_table->RecordOf(row)));
    }
    try {
        return CellText(m_table->Value(row, static_cast<std::size_t>(index.column() - 1)));
    } catch (const std::exception&) {
        return {}; // the file went away under the view; the next refresh replaces the table
    }
}

QVariant AttributeTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (!m_table || orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    if (section == 0) {
        return QStringLiteral("FID");
    }
    return QString::fromStdString(m_table->ColumnName(static_cast<std::size_t>(section - 1)));
}

} // namespace quorel::host_app
