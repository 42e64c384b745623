#include "lang/Database.h"
#include "lang/SelectStatement.h"

#include <mdbtools.h>

#include <charconv>
#include <optional>
#include <strings.h>

namespace quorel::lang {
namespace {

struct HandleCloser {
    void operator()(MdbHandle* handle) const noexcept { mdb_close(handle); }
};
struct TableFreer {
    void operator()(MdbTableDef* table) const noexcept { mdb_free_tabledef(table); }
};
using MdbHandleOwner = std::unique_ptr<MdbHandle, HandleCloser>;
using MdbTableOwner = std::unique_ptr<MdbTableDef, TableFreer>;

using Row = std::vector<DbValue>;

bool IsNumericType(int type) {
    switch (type) {
    case MDB_BOOL:
    case MDB_BYTE:
    case MDB_INT:
    case MDB_LONGINT:
    case MDB_MONEY:
    case MDB_FLOAT:
    case MDB_DOUBLE:
    case MDB_NUMERIC:
        return true;
    default:
        return false;
    }
}

bool IsTextType(int type) {
    return type == MDB_TEXT || type == MDB_MEMO;
}

// Row offsets on a data page carry flags in their top bits.
constexpr int kRowOffsetMask = 0x1fff;

// The library prints numbers as text; it may use either decimal mark, so read both.
DbValue NumberFromText(std::string text) {
    for (char& c : text) {
        if (c == ',') {
            c = '.';
        }
    }
    double value = 0;
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (code != std::errc() || end != text.data() + text.size()) {
        return text;
    }
    return value;
}

// Values compared by max and min: numbers as numbers, texts case-insensitively as the Access
// engine compares them.
bool Less(const DbValue& left, const DbValue& right) {
    const auto* leftNumber = std::get_if<double>(&left);
    const auto* rightNumber = std::get_if<double>(&right);
    if (leftNumber != nullptr && rightNumber != nullptr) {
        return *leftNumber < *rightNumber;
    }
    if (leftNumber != nullptr || rightNumber != nullptr) {
        return leftNumber != nullptr; // numbers sort before texts
    }
    return strcasecmp(std::get<std::string>(left).c_str(), std::get<std::string>(right).c_str()) <
           0;
}

class MemoryRecordset final : public IRecordset {
public:
    MemoryRecordset(int fieldCount, std::vector<Row> rows)
        : m_fieldCount(fieldCount), m_rows(std::move(rows)) {}

    bool Eof() const override { return m_closed || m_current >= m_rows.size(); }
    void MoveNext() override {
        if (Eof()) {
            throw EngineError("No current record.");
        }
        ++m_current;
    }
    int FieldCount() const override { return m_fieldCount; }
    DbValue Field(int index) const override {
        if (Eof()) {
            throw EngineError("No current record.");
        }
        if (index < 0 || index >= m_fieldCount) {
            throw EngineError("Item not found in this collection.");
        }
        return m_rows[m_current][static_cast<std::size_t>(index)];
    }
    void Close() override {
        m_closed = true;
        m_rows.clear();
    }

private:
    int m_fieldCount;
    std::vector<Row> m_rows;
    std::size_t m_current = 0;
    bool m_closed = false;
};

class AccessDatabase final : public IDatabase {
public:
    AccessDatabase(std::string path, MdbHandleOwner handle)
        : m_path(std::move(path)), m_handle(std::move(handle)) {}

    const std::string& Path() const override { return m_path; }

    std::unique_ptr<IRecordset> OpenRecordset(const std::string& sql) override {
        const auto statement = ParseSelect(sql);
        if (!statement) {
            throw EngineError("Syntax error in the statement '" + sql +
                              "': only SELECT of columns, max, min or count FROM one table is "
                              "read from Access files.");
        }
        MdbTableOwner table = ReadTable(statement->table);
        const std::vector<MdbColumn*> columns = Columns(table.get());

        // Which table columns each item reads; * stands for all of them.
        std::vector<const SelectItem*> items;
        std::vector<int> sources; // table column per output field, -1 for count(*)
        bool aggregate = false;
        bool plain = false;
        for (const SelectItem& item : statement->items) {
            if (item.kind == SelectItem::Kind::AllColumns) {
                for (std::size_t i = 0; i < columns.size(); ++i) {
                    items.push_back(&item);
                    sources.push_back(static_cast<int>(i));
                }
                plain = true;
                continue;
            }
            items.push_back(&item);
            sources.push_back(item.column.empty() ? -1 : ColumnIndex(columns, item.column));
            (item.kind == SelectItem::Kind::Column ? plain : aggregate) = true;
        }
        if (aggregate && plain) {
            throw EngineError("The statement mixes columns and aggregate functions: " + sql);
        }

        const std::vector<Row> tableRows = ReadRows(table.get(), columns);
        if (!aggregate) {
            std::vector<Row> rows;
            rows.reserve(tableRows.size());
            for (const Row& tableRow : tableRows) {
                Row row;
                for (int source : sources) {
                    row.push_back(tableRow[static_cast<std::size_t>(source)]);
                }
                rows.push_back(std::move(row));
            }
            return std::make_unique<MemoryRecordset>(static_cast<int>(sources.size()),
                                                     std::move(rows));
        }
        Row result;
        for (std::size_t i = 0; i < items.size(); ++i) {
            result.push_back(Aggregate(*items[i], sources[i], tableRows));
        }
        const int fieldCount = static_cast<int>(result.size());
        return std::make_unique<MemoryRecordset>(fieldCount, std::vector<Row>{std::move(result)});
    }

    std::vector<std::string> ColumnNames(const std::string& tableName) override {
        MdbTableOwner table = ReadTable(tableName);
        std::vector<std::string> names;
        for (MdbColumn* column : Columns(table.get())) {
            names.emplace_back(column->name);
        }
        return names;
    }

private:
    MdbTableOwner ReadTable(const std::string& name) {
        MdbTableOwner table(
            mdb_read_table_by_name(m_handle.get(), const_cast<char*>(name.c_str()), MDB_TABLE));
        if (!table) {
            throw EngineError("The table '" + name + "' does not exist in " + m_path + ".");
        }
        if (mdb_read_columns(table.get()) == nullptr) {
            throw EngineError("The columns of table '" + name + "' cannot be read.");
        }
        return table;
    }

    static std::vector<MdbColumn*> Columns(MdbTableDef* table) {
        std::vector<MdbColumn*> columns;
        for (unsigned int i = 0; i < table->num_cols; ++i) {
            columns.push_back(static_cast<MdbColumn*>(g_ptr_array_index(table->columns, i)));
        }
        return columns;
    }

    static int ColumnIndex(const std::vector<MdbColumn*>& columns, const std::string& name) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (strcasecmp(columns[i]->name, name.c_str()) == 0) {
                return static_cast<int>(i);
            }
        }
        throw EngineError("No column named '" + name + "'.");
    }

    static std::vector<Row> ReadRows(MdbTableDef* table, const std::vector<MdbColumn*>& columns) {
        const std::size_t count = columns.size();
        std::vector<std::vector<char>> buffers(count, std::vector<char>(MDB_BIND_SIZE + 1, '\0'));
        std::vector<int> lengths(count, 0);
        mdb_rewind_table(table);
        for (std::size_t i = 0; i < count; ++i) {
            mdb_bind_column(table, static_cast<int>(i) + 1, buffers[i].data(), &lengths[i]);
        }
        std::vector<Row> rows;
        std::vector<MdbField> fields(count);
        while (mdb_fetch_row(table) != 0) {
            const std::vector<bool> nulls = NullFlags(table, fields);
            Row row;
            row.reserve(count);
            for (std::size_t i = 0; i < count; ++i) {
                // Bound values are texts: a Null and an empty text both come out empty, so the
                // row's null mask tells them apart. Other types are never empty but Null.
                if (nulls[i] || (lengths[i] <= 0 && !IsTextType(columns[i]->col_type))) {
                    row.emplace_back(DbNull{});
                    continue;
                }
                std::string text(buffers[i].data());
                if (IsNumericType(columns[i]->col_type)) {
                    row.push_back(NumberFromText(std::move(text)));
                } else {
                    row.emplace_back(std::move(text));
                }
            }
            rows.push_back(std::move(row));
        }
        return rows;
    }

    // The null flags of the row mdb_fetch_row has just read: it leaves that row's page in the
    // handle's page buffer and its number, plus one, in cur_row.
    static std::vector<bool> NullFlags(MdbTableDef* table, std::vector<MdbField>& fields) {
        MdbHandle* mdb = table->entry->mdb;
        int start = 0;
        std::size_t size = 0;
        if (table->cur_row == 0 ||
            mdb_find_row(mdb, static_cast<int>(table->cur_row) - 1, &start, &size) != 0 ||
            mdb_crack_row(table, start & kRowOffsetMask, size, fields.data()) < 0) {
            throw EngineError("A row of table '" + std::string(table->name) + "' cannot be read.");
        }
        std::vector<bool> nulls(fields.size());
        for (std::size_t i = 0; i < fields.size(); ++i) {
            // A boolean keeps its value in the null mask: it is never Null.
            const auto column = static_cast<std::size_t>(fields[i].colnum);
            nulls[column] =
                fields[i].is_null != 0 &&
                static_cast<MdbColumn*>(g_ptr_array_index(table->columns, column))->col_type !=
                    MDB_BOOL;
        }
        return nulls;
    }

    static DbValue Aggregate(const SelectItem& item, int source, const std::vector<Row>& rows) {
        if (item.kind == SelectItem::Kind::Count) {
            std::size_t count = 0;
            for (const Row& row : rows) {
                count += (source < 0 || !IsNull(row[static_cast<std::size_t>(source)])) ? 1 : 0;
            }
            return static_cast<double>(count);
        }
        std::optional<DbValue> best;
        for (const Row& row : rows) {
            const DbValue& value = row[static_cast<std::size_t>(source)];
            if (IsNull(value)) {
                continue;
            }
            if (!best) {
                best = value;
            } else if (item.kind == SelectItem::Kind::Max ? Less(*best, value)
                                                          : Less(value, *best)) {
                best = value;
            }
        }
        return best ? *best : DbValue(DbNull{});
    }

    std::string m_path;
    MdbHandleOwner m_handle;
};

} // namespace

std::unique_ptr<IDatabase> OpenAccessDatabase(const std::string& path) {
    MdbHandleOwner handle(mdb_open(path.c_str(), MDB_NOFLAGS));
    if (!handle) {
        throw EngineError("The file " + path + " cannot be read as an Access database.");
    }
    if (mdb_read_catalog(handle.get(), MDB_TABLE) == nullptr) {
        throw EngineError("The table list of " + path + " cannot be read.");
    }
    return std::make_unique<AccessDatabase>(path, std::move(handle));
}

} // namespace quorel::lang
