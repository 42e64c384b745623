#include "host/shapefile/Shapefile.h"

#include "util/Error.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quorel::host::shapefile {
namespace {

constexpr const char* kSource = "ShapefileWorkspace";

// The host's geometry type for the shape type of a .shp header (ESRI Shapefile Technical
// Description: Z and M variants share their plain type's geometry).
std::int32_t HostShapeType(std::int32_t shapeType) {
    switch (shapeType) {
    case 1:
    case 11:
    case 21:
        return kGeometryPoint;
    case 8:
    case 18:
    case 28:
        return kGeometryMultipoint;
    case 3:
    case 13:
    case 23:
        return kGeometryPolyline;
    case 5:
    case 15:
    case 25:
        return kGeometryPolygon;
    default:
        return kGeometryNull;
    }
}

// The 100-byte header shared by the .shp and the .shx, checked to be one.
using MainHeader = std::array<unsigned char, 100>;

std::int32_t BigEndian32(const MainHeader& header, std::size_t at) {
    return static_cast<std::int32_t>(std::uint32_t{header[at]} << 24 |
                                     std::uint32_t{header[at + 1]} << 16 |
                                     std::uint32_t{header[at + 2]} << 8 | header[at + 3]);
}

std::int32_t LittleEndian32(const MainHeader& header, std::size_t at) {
    return static_cast<std::int32_t>(std::uint32_t{header[at + 3]} << 24 |
                                     std::uint32_t{header[at + 2]} << 16 |
                                     std::uint32_t{header[at + 1]} << 8 | header[at]);
}

MainHeader ReadMainHeader(const std::string& path) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        ThrowFileError(errno, "open", path);
    }
    MainHeader header{};
    std::size_t got = 0;
    while (got < header.size()) {
        const ssize_t n =
            ::pread(file.Get(), header.data() + got, header.size() - got, static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            ThrowFileError(errno, "read", path);
        }
        if (n == 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    constexpr std::int32_t kFileCode = 9994;
    constexpr std::int32_t kVersion = 1000;
    if (got < header.size() || BigEndian32(header, 0) != kFileCode ||
        LittleEndian32(header, 28) != kVersion) {
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot open " + path + ": not a shapefile");
    }
    return header;
}

// Reads the geometry type from the main file's header.
std::int32_t ReadShapeType(const std::string& shpPath) {
    return HostShapeType(LittleEndian32(ReadMainHeader(shpPath), 32));
}

// The records the index file counts: 8 bytes each behind its header, whose file length is in
// 16-bit words.
std::int64_t ShxRecordCount(const std::string& shxPath) {
    const std::int64_t length = std::int64_t{BigEndian32(ReadMainHeader(shxPath), 24)} * 2;
    return (length - 100) / 8;
}

// Refuses a file this process may not write (kHostLayerReadOnly) before anything is written.
void CheckWritable(const std::string& path, const std::string& what) {
    if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0) {
        return;
    }
    const int error = errno;
    if (error == EACCES || error == EPERM || error == EROFS || error == ETXTBSY) {
        throw Error(error_number::kHostLayerReadOnly, kSource,
                    "Cannot write " + what + " " + path + ": " + std::strerror(error));
    }
    ThrowFileError(error, "open", path);
}

// Fails with the system's reason when the file cannot be read.
void CheckReadable(const std::string& path) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        ThrowFileError(errno, "open", path);
    }
}

std::string ExistingSibling(const std::string& shpPath, const std::string& extension) {
    std::string path = SiblingPath(shpPath, extension);
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        std::string upper = extension;
        for (char& c : upper) {
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
        const std::string other = SiblingPath(shpPath, upper);
        if (::stat(other.c_str(), &status) == 0) {
            return other;
        }
    }
    return path;
}

class ShapefileRow final : public IRow {
public:
    ShapefileRow(std::shared_ptr<const DbfHeader> header, std::size_t recordIndex,
                 const char* record)
        : m_header(std::move(header)), m_recordIndex(recordIndex),
          m_record(record, record + m_header->recordLength) {}

    Value GetValue(std::int32_t fieldIndex) const override {
        if (fieldIndex == 0) {
            return static_cast<double>(m_recordIndex);
        }
        const std::int32_t column = ShapefileFields::ColumnOf(fieldIndex);
        if (fieldIndex == 1) {
            return std::monostate{}; // the geometry is not a value
        }
        if (column < 0 || static_cast<std::size_t>(column) >= m_header->fields.size()) {
            throw Error(error_number::kHostInvalidIndex, "Row",
                        "No field at index " + std::to_string(fieldIndex));
        }
        const DbfField& field = m_header->fields[static_cast<std::size_t>(column)];
        const std::string_view bytes = FieldBytes(m_record.data(), field);
        if (field.IsNumeric()) {
            if (const auto number = ParseDbfNumber(bytes)) {
                return *number;
            }
            return std::monostate{};
        }
        std::string_view text = bytes;
        while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) {
            text.remove_suffix(1);
        }
        return DecodeDbfText(text, m_header->encoding);
    }

    void Reset(std::size_t recordIndex, const char* record) {
        m_recordIndex = recordIndex;
        m_record.assign(record, record + m_header->recordLength);
    }

private:
    std::shared_ptr<const DbfHeader> m_header;
    std::size_t m_recordIndex;
    std::vector<char> m_record;
};

} // namespace

std::int32_t HostFieldType(const DbfField& field) {
    if (field.IsNumeric()) {
        if (field.decimals > 0) {
            return kFieldTypeDouble;
        }
        if (field.length <= 4) {
            return kFieldTypeSmallInteger;
        }
        return field.length <= 9 ? kFieldTypeInteger : kFieldTypeDouble;
    }
    return field.type == 'D' ? kFieldTypeDate : kFieldTypeString;
}

ShapefileFields::ShapefileFields(const DbfHeader& header) {
    m_fields.push_back(std::make_shared<map::Field>("FID", kFieldTypeOID));
    m_fields.push_back(std::make_shared<map::Field>("Shape", kFieldTypeGeometry));
    for (const DbfField& field : header.fields) {
        m_fields.push_back(std::make_shared<map::Field>(field.name, HostFieldType(field)));
    }
}

std::int32_t ShapefileFields::FieldCount() const {
    return static_cast<std::int32_t>(m_fields.size());
}

std::shared_ptr<IField> ShapefileFields::Field(std::int32_t index) const {
    if (index < 0 || index >= FieldCount()) {
        throw Error(error_number::kHostInvalidIndex, "Fields",
                    "No field at index " + std::to_string(index) + " (the table has " +
                        std::to_string(FieldCount()) + " fields)");
    }
    return m_fields[static_cast<std::size_t>(index)];
}

std::int32_t ShapefileFields::FindField(const std::string& name) const {
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i]->Name() == name) {
            return static_cast<std::int32_t>(i);
        }
    }
    return -1;
}

ShapefileCursor::ShapefileCursor(std::shared_ptr<ShapefileFeatureClass> featureClass,
                                 bool recycling)
    : m_featureClass(std::move(featureClass)), m_fields(m_featureClass->Fields()),
      m_recycling(recycling) {}

std::shared_ptr<IRow> ShapefileCursor::NextRow() {
    if (!m_batch) {
        m_featureClass->WritePendingField();
        m_batch.emplace(m_featureClass->DbfPath(), false);
        m_header = std::make_shared<const DbfHeader>(m_batch->Header());
    }
    while (true) {
        const std::size_t batchEnd = m_batch->BatchFirstRecord() + m_batch->BatchSize();
        if (m_position >= batchEnd || m_position < m_batch->BatchFirstRecord()) {
            if (m_position >= m_batch->Header().recordCount || !m_batch->Next()) {
                return nullptr;
            }
            continue;
        }
        const char* record = m_batch->Record(m_position - m_batch->BatchFirstRecord());
        const std::size_t index = m_position++;
        if (DbfBatchFile::IsDeleted(record)) {
            continue;
        }
        if (m_recycling && m_row) {
            static_cast<ShapefileRow&>(*m_row).Reset(index, record);
            return m_row;
        }
        auto row = std::make_shared<ShapefileRow>(m_header, index, record);
        if (m_recycling) {
            m_row = row;
        }
        return row;
    }
}

ShapefileFeatureClass::ShapefileFeatureClass(const std::string& folder, const std::string& baseName)
    : m_folder(folder), m_baseName(baseName) {
    m_shpPath = ExistingSibling(folder + "/" + baseName + ".shp", ".shp");
    CheckReadable(m_shpPath);
    m_dbfPath = ExistingSibling(m_shpPath, ".dbf");
    CheckReadable(m_dbfPath);

    m_shapeType = ReadShapeType(m_shpPath);
    // The index file must be there too, as every shapefile reader requires.
    CheckReadable(ExistingSibling(m_shpPath, ".shx"));
}

ShapefileFeatureClass::~ShapefileFeatureClass() {
    // A field whose write failed was reported then; writing it now, unasked and unseen, could
    // only surprise.
    if (m_pending && !m_pending->failed) {
        try {
            WritePendingField();
        } catch (...) {
            // Nothing to report to at this point; the table stays as it was, whole.
        }
    }
}

std::shared_ptr<IWorkspace> ShapefileFeatureClass::Workspace() const {
    return std::make_shared<ShapefileWorkspace>(m_folder);
}

std::shared_ptr<IFields> ShapefileFeatureClass::Fields() const {
    DbfHeader header = ReadDbfHeader(m_dbfPath);
    if (m_pending) {
        DbfField field;
        field.name = m_pending->name;
        field.type = m_pending->type;
        field.length = m_pending->length;
        field.decimals = m_pending->decimals;
        header.fields.push_back(field);
    }
    return std::make_shared<ShapefileFields>(header);
}

std::int32_t ShapefileFeatureClass::FindField(const std::string& name) const {
    return Fields()->FindField(name);
}

void ShapefileFeatureClass::AddField(const IField& field) {
    const std::string name = field.Name();
    if (name == "FID" || name == "Shape") {
        throw Error(error_number::kHostFailure, kSource, "Field already exists: " + name);
    }
    PendingField pending{name, 'N', 0, 0};
    switch (field.Type()) {
    case kFieldTypeSmallInteger:
        pending.length = 4;
        break;
    case kFieldTypeInteger:
        pending.length = 9;
        break;
    case kFieldTypeSingle:
        pending.length = 13;
        pending.decimals = 11;
        break;
    case kFieldTypeDouble:
        // As the Windows host made a double with precision and scale left at 0.
        pending.length = 19;
        pending.decimals = 11;
        break;
    case kFieldTypeString:
        pending.type = 'C';
        pending.length = 50;
        break;
    case kFieldTypeDate:
        pending.type = 'D';
        pending.length = 8;
        break;
    default:
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot add the field " + name + ": a shapefile cannot hold fields of type " +
                        std::to_string(field.Type()));
    }
    WritePendingField();
    // Checked now, so that a refused field fails here and not at its writing.
    PlanDbfField(m_dbfPath, pending.name, pending.type, pending.length, pending.decimals);
    m_pending = pending;
}

bool ShapefileFeatureClass::IsFieldPending(const std::string& name) const {
    return m_pending && m_pending->name == name;
}

void ShapefileFeatureClass::WritePendingField() {
    if (!m_pending) {
        return;
    }
    try {
        AddDbfField(m_dbfPath, m_pending->name, m_pending->type, m_pending->length,
                    m_pending->decimals);
    } catch (...) {
        m_pending->failed = true;
        throw;
    }
    m_pending.reset();
}

void ShapefileFeatureClass::WritePendingField(const FillerMaker& makeFiller,
                                              const DbfProgress& progress,
                                              const DbfWorkSharing& sharing) {
    if (!m_pending) {
        return;
    }
    std::optional<DbfNewColumn> plan;
    std::exception_ptr failure;
    try {
        plan = PlanDbfField(m_dbfPath, m_pending->name, m_pending->type, m_pending->length,
                            m_pending->decimals);
        const std::unique_ptr<DbfColumnFiller> filler = makeFiller(plan->layout);
        WriteDbfColumn(m_dbfPath, *plan, filler.get(), progress, sharing);
        m_pending.reset();
        return;
    } catch (const ValuesOutsideRange&) {
        m_pending.reset();
        throw;
    } catch (...) {
        if (!plan) {
            m_pending->failed = true;
            throw;
        }
        failure = std::current_exception();
    }
    // The field stays added, Null, as when it is written first and filled after; the filler's
    // error is the one to report.
    try {
        WriteDbfColumn(m_dbfPath, *plan);
    } catch (const std::exception& error) {
        m_pending->failed = true;
        std::string reason = error.what();
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& first) {
            reason += " (after: " + std::string(first.what()) + ")";
        } catch (...) {
        }
        const auto* own = dynamic_cast<const Error*>(&error);
        throw Error(own ? own->Number() : error_number::kHostFailure, kSource,
                    "The field " + m_pending->name + " was not added to the table " + m_dbfPath +
                        ": " + reason);
    }
    m_pending.reset();
    std::rethrow_exception(failure);
}

std::shared_ptr<ICursor> ShapefileFeatureClass::Search(bool recycling) {
    return std::make_shared<ShapefileCursor>(shared_from_this(), recycling);
}

std::optional<std::size_t> ShapefileFeatureClass::FieldNameByteLimit() const {
    return kDbfFieldNameBytes;
}

std::size_t ShapefileFeatureClass::FieldNameByteLength(const std::string& name) const {
    return EncodeDbfText(name, ReadEncoding(m_dbfPath)).size();
}

ShapefileWriteLock::ShapefileWriteLock(const std::string& path, std::chrono::milliseconds wait) {
    const std::string shpPath = ExistingSibling(path, ".shp");
    m_shp = FileHandle(::open(shpPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (m_shp.Get() < 0) {
        ThrowFileError(errno, "open", shpPath);
    }
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (::flock(m_shp.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            ThrowFileError(errno, "lock", shpPath);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw Error(error_number::kHostLayerLocked, kSource,
                        "Another run is writing the shapefile " + shpPath);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    // Any failure from here on closes the .shp, which lets the lock go.
    const std::string dbfPath = ExistingSibling(shpPath, ".dbf");
    CheckWritable(dbfPath, "the table");
    // The table is replaced, not written in place: its folder takes the new one.
    const auto slash = dbfPath.find_last_of('/');
    const std::string folder =
        slash == std::string::npos ? "." : (slash == 0 ? "/" : dbfPath.substr(0, slash));
    CheckWritable(folder, "the folder of the table");

    const FileHandle table(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (table.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    const DbfHeader header = ReadDbfHeader(table.Get(), dbfPath);
    struct stat status {};
    if (::fstat(table.Get(), &status) != 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    CheckDbfRecordCount(header, status.st_size, dbfPath);
    const std::string shxPath = ExistingSibling(shpPath, ".shx");
    const std::int64_t shapes = ShxRecordCount(shxPath);
    if (shapes != std::int64_t{header.recordCount}) {
        throw Error(error_number::kHostLayerDamaged, kSource,
                    "The table " + dbfPath + " is damaged (its header counts " +
                        std::to_string(header.recordCount) + " records, the index " + shxPath +
                        " " + std::to_string(shapes) + ")");
    }
    util::RemoveStaleReplacements(dbfPath);
}

std::shared_ptr<IFeatureClass> ShapefileWorkspace::OpenFeatureClass(const std::string& name) {
    return std::make_shared<ShapefileFeatureClass>(m_folder, name);
}

std::shared_ptr<IFeatureWorkspace> ShapefileWorkspaceFactory::OpenFromFile(const std::string& path,
                                                                           std::intptr_t) {
    std::string folder = path;
    while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) {
        folder.pop_back();
    }
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        ThrowFileError(errno, "open the folder", folder);
    }
    if (!S_ISDIR(status.st_mode)) {
        ThrowFileError(ENOTDIR, "open the folder", folder);
    }
    return std::make_shared<ShapefileWorkspace>(folder);
}

} // namespace quorel::host::shapefile
