#include "host/gpkg/GeoPackage.h"

#include "host/gpkg/Sqlite.h"
#include "util/Error.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace quorel::host::gpkg {
namespace {

constexpr const char* kSource = "GeoPackage";

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The host's type of a column from its declared type, as the GeoPackage names them.
std::int32_t TypeOfDeclared(const std::string& declared) {
    const std::string type = Upper(declared);
    if (type == "BOOLEAN" || type == "TINYINT" || type == "SMALLINT") {
        return kFieldTypeSmallInteger;
    }
    if (type == "INTEGER" || type == "MEDIUMINT" || type == "INT") {
        return kFieldTypeInteger;
    }
    if (type == "FLOAT") {
        return kFieldTypeSingle;
    }
    if (type == "REAL" || type == "DOUBLE" || type.starts_with("NUMERIC")) {
        return kFieldTypeDouble;
    }
    if (type == "DATE" || type == "DATETIME") {
        return kFieldTypeDate;
    }
    return kFieldTypeString; // TEXT, TEXT(n), BLOB
}

std::string DeclaredOfType(std::int32_t type) {
    switch (type) {
    case kFieldTypeSmallInteger:
        return "SMALLINT";
    case kFieldTypeInteger:
        return "INTEGER";
    case kFieldTypeSingle:
        return "FLOAT";
    case kFieldTypeDouble:
        return "REAL";
    case kFieldTypeDate:
        return "DATETIME";
    default:
        return "TEXT";
    }
}

std::int32_t ShapeTypeOf(const std::string& geometryTypeName) {
    const std::string type = Upper(geometryTypeName);
    if (type == "POLYGON" || type == "MULTIPOLYGON" || type == "CURVEPOLYGON" ||
        type == "MULTISURFACE" || type == "SURFACE") {
        return kGeometryPolygon;
    }
    if (type == "POINT") {
        return kGeometryPoint;
    }
    if (type == "MULTIPOINT") {
        return kGeometryMultipoint;
    }
    if (type == "LINESTRING" || type == "MULTILINESTRING" || type == "CIRCULARSTRING" ||
        type == "COMPOUNDCURVE" || type == "MULTICURVE" || type == "CURVE") {
        return kGeometryPolyline;
    }
    return kGeometryNull;
}

class GeoPackageRow final : public IRow {
public:
    Value GetValue(std::int32_t fieldIndex) const override {
        if (fieldIndex < 0 || static_cast<std::size_t>(fieldIndex) >= values.size()) {
            throw Error(error_number::kHostInvalidIndex, kSource,
                        "No field at index " + std::to_string(fieldIndex));
        }
        return values[static_cast<std::size_t>(fieldIndex)];
    }
    std::vector<Value> values;
};

} // namespace

bool IsGeoPackagePath(const std::string& source) {
    return source.size() > 5 && Upper(source.substr(source.size() - 5)) == ".GPKG";
}

std::vector<std::string> LayerNames(const std::string& path) {
    const auto database = SharedDatabase(path);
    Statement query(database->Handle(),
                    "SELECT table_name FROM gpkg_contents WHERE data_type = 'features' "
                    "ORDER BY table_name");
    std::vector<std::string> names;
    while (query.Step()) {
        names.push_back(query.Text(0));
    }
    return names;
}

GeoPackageFields::GeoPackageFields(const std::vector<TableColumn>& columns) {
    for (const TableColumn& column : columns) {
        m_fields.push_back(std::make_shared<map::Field>(column.name,
                                                        column.geometry     ? kFieldTypeGeometry
                                                        : column.primaryKey ? kFieldTypeOID
                                                                            : column.type,
                                                        column.name));
    }
}

std::int32_t GeoPackageFields::FieldCount() const {
    return static_cast<std::int32_t>(m_fields.size());
}

std::shared_ptr<IField> GeoPackageFields::Field(std::int32_t index) const {
    if (index < 0 || index >= FieldCount()) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "No field at index " + std::to_string(index));
    }
    return m_fields[static_cast<std::size_t>(index)];
}

std::int32_t GeoPackageFields::FindField(const std::string& name) const {
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i]->Name() == name) {
            return static_cast<std::int32_t>(i);
        }
    }
    return -1;
}

GeoPackageCursor::GeoPackageCursor(std::shared_ptr<GeoPackageFeatureClass> featureClass,
                                   bool recycling)
    : m_class(std::move(featureClass)), m_columns(m_class->Columns()),
      m_fields(std::make_shared<GeoPackageFields>(m_columns)), m_recycling(recycling) {}

GeoPackageCursor::~GeoPackageCursor() = default;

std::shared_ptr<IRow> GeoPackageCursor::NextRow() {
    if (m_atEnd) {
        return nullptr;
    }
    if (!m_query) {
        std::string sql = "SELECT ";
        std::string key;
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            sql += i > 0 ? ", " : "";
            sql += m_columns[i].geometry ? "NULL" : QuoteIdentifier(m_columns[i].name);
            if (m_columns[i].primaryKey) {
                key = QuoteIdentifier(m_columns[i].name);
            }
        }
        if (key.empty()) {
            key = "rowid";
        }
        sql += ", " + key + " FROM " + QuoteIdentifier(m_class->Table()) + " ORDER BY " + key;
        m_query = std::make_unique<Statement>(m_class->Db().Handle(), sql);
    }
    if (!m_query->Step()) {
        MoveToEnd();
        return nullptr;
    }
    std::shared_ptr<GeoPackageRow> row =
        m_recycling ? std::static_pointer_cast<GeoPackageRow>(m_row) : nullptr;
    if (!row) {
        row = std::make_shared<GeoPackageRow>();
        if (m_recycling) {
            m_row = row;
        }
    }
    row->values.resize(m_columns.size());
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const int column = static_cast<int>(i);
        switch (m_query->ColumnType(column)) {
        case SQLITE_INTEGER:
        case SQLITE_FLOAT:
            row->values[i] = m_query->Double(column);
            break;
        case SQLITE_TEXT:
            row->values[i] = m_query->Text(column);
            break;
        default:
            row->values[i] = Value{};
        }
    }
    m_lastKey = m_query->Integer(static_cast<int>(m_columns.size()));
    return row;
}

void GeoPackageCursor::MoveToEnd() {
    m_atEnd = true;
    m_query.reset(); // lets go of the read
}

GeoPackageFeatureClass::GeoPackageFeatureClass(std::shared_ptr<Database> database,
                                               const std::string& table)
    : m_database(std::move(database)), m_table(table) {
    Statement query(m_database->Handle(),
                    "SELECT c.table_name, g.column_name, g.geometry_type_name "
                    "FROM gpkg_contents c LEFT JOIN gpkg_geometry_columns g "
                    "ON g.table_name = c.table_name "
                    "WHERE c.table_name = ?1 AND c.data_type = 'features'");
    query.Bind(1, table);
    // gpkg_contents names tables without regard to case; the layer is the exact one.
    bool found = false;
    while (query.Step()) {
        if (query.Text(0) == table) {
            found = true;
            m_geometryColumn = query.Text(1);
            m_shapeType = ShapeTypeOf(query.Text(2));
        }
    }
    if (!found) {
        throw Error(error_number::kFileNotFound, kSource,
                    "The GeoPackage " + m_database->Path() + " has no feature table " + table);
    }
}

std::shared_ptr<IWorkspace> GeoPackageFeatureClass::Workspace() const {
    return std::make_shared<GeoPackageWorkspace>(m_database->Path());
}

std::string GeoPackageFeatureClass::Path() const {
    return m_database->Path();
}

std::vector<TableColumn> GeoPackageFeatureClass::Columns() const {
    Statement query(m_database->Handle(), "SELECT name, type, pk FROM pragma_table_info(?1)");
    query.Bind(1, m_table);
    std::vector<TableColumn> columns;
    while (query.Step()) {
        TableColumn column;
        column.name = query.Text(0);
        column.type = TypeOfDeclared(query.Text(1));
        column.primaryKey = query.Integer(2) == 1;
        column.geometry = column.name == m_geometryColumn;
        columns.push_back(column);
    }
    return columns;
}

std::string GeoPackageFeatureClass::PrimaryKey() const {
    for (const TableColumn& column : Columns()) {
        if (column.primaryKey) {
            return column.name;
        }
    }
    return "rowid";
}

std::shared_ptr<IFields> GeoPackageFeatureClass::Fields() const {
    return std::make_shared<GeoPackageFields>(Columns());
}

std::int32_t GeoPackageFeatureClass::FindField(const std::string& name) const {
    return Fields()->FindField(name);
}

void GeoPackageFeatureClass::AddField(const IField& field) {
    const std::string name = field.Name();
    if (name.empty()) {
        throw Error(error_number::kHostInvalidIndex, kSource, "A field needs a name");
    }
    if (FindField(name) >= 0) {
        throw Error(error_number::kHostInvalidIndex, kSource,
                    "The table " + m_table + " already has a field " + name);
    }
    // One step: the column and the table's change date, or neither.
    m_database->Execute("SAVEPOINT quorel_add_field");
    try {
        m_database->Execute("ALTER TABLE " + QuoteIdentifier(m_table) + " ADD COLUMN " +
                            QuoteIdentifier(name) + " " + DeclaredOfType(field.Type()));
        Statement touch(m_database->Handle(),
                        "UPDATE gpkg_contents SET last_change = "
                        "strftime('%Y-%m-%dT%H:%M:%fZ', 'now') WHERE table_name = ?1");
        touch.Bind(1, m_table);
        touch.Step();
        m_database->Execute("RELEASE quorel_add_field");
    } catch (const Error& failed) {
        try {
            m_database->Execute("ROLLBACK TO quorel_add_field");
            m_database->Execute("RELEASE quorel_add_field");
        } catch (...) {
            // the add's own error says more
        }
        throw Error(failed.Number() == error_number::kHostFailure ? error_number::kHostInvalidIndex
                                                                  : failed.Number(),
                    kSource,
                    "The field " + name + " cannot be added to " + m_table + ": " +
                        failed.Description());
    }
}

std::shared_ptr<ICursor> GeoPackageFeatureClass::Search(bool recycling) {
    return std::make_shared<GeoPackageCursor>(shared_from_this(), recycling);
}

std::shared_ptr<IFeatureClass> GeoPackageWorkspace::OpenFeatureClass(const std::string& name) {
    return std::make_shared<GeoPackageFeatureClass>(SharedDatabase(m_path), name);
}

std::shared_ptr<IFeatureWorkspace> GeoPackageWorkspaceFactory::OpenFromFile(const std::string& path,
                                                                            std::intptr_t) {
    SharedDatabase(path); // says now when it is no GeoPackage
    return std::make_shared<GeoPackageWorkspace>(path);
}

GeoPackageWriteLock::GeoPackageWriteLock(const std::string& path, std::chrono::milliseconds wait)
    : m_database(SharedDatabase(path)) {
    std::string folder = std::filesystem::path(path).parent_path().string();
    if (folder.empty()) {
        folder = ".";
    }
    // SQLite writes its rollback journal beside the file.
    if (m_database->ReadOnly() || access(path.c_str(), W_OK) != 0 ||
        access(folder.c_str(), W_OK) != 0) {
        throw Error(error_number::kHostLayerReadOnly, kSource,
                    "The GeoPackage " + path + " or its folder cannot be written");
    }
    if (m_database->InTransaction()) {
        throw Error(error_number::kHostLayerLocked, kSource,
                    "Another run is writing the GeoPackage " + path);
    }
    m_database->SetBusyWait(wait);
    try {
        m_database->Execute("BEGIN IMMEDIATE");
    } catch (const Error& refused) {
        m_database->SetBusyWait(std::chrono::milliseconds(3000));
        if (refused.Number() == error_number::kHostLayerLocked) {
            throw Error(error_number::kHostLayerLocked, kSource,
                        "Another program is writing the GeoPackage " + path);
        }
        throw;
    }
    m_database->SetBusyWait(std::chrono::milliseconds(3000));
    m_open = true;
}

GeoPackageWriteLock::~GeoPackageWriteLock() {
    if (m_open) {
        try {
            m_database->Execute("ROLLBACK");
        } catch (...) {
            // a failed rollback leaves the journal: the next opening of the file rolls back
        }
    }
}

void GeoPackageWriteLock::Commit() {
    if (m_open) {
        m_database->Execute("COMMIT");
        m_open = false;
    }
}

} // namespace quorel::host::gpkg
