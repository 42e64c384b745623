#include "host/gdal/Shapefile.h"

#include "util/Error.h"

#include <gdal.h>
#include <ogr_api.h>

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::host::gdal {
namespace {

constexpr const char* kSource = "ShapefileWorkspace";

void RegisterDrivers() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

struct DatasetCloser {
    void operator()(GDALDatasetH dataset) const { GDALClose(dataset); }
};
using Dataset = std::unique_ptr<void, DatasetCloser>;

// Keeps GDAL from printing its own messages; we turn failures into our errors.
class QuietGdalErrors {
public:
    QuietGdalErrors() { CPLPushErrorHandler(CPLQuietErrorHandler); }
    ~QuietGdalErrors() { CPLPopErrorHandler(); }
    QuietGdalErrors(const QuietGdalErrors&) = delete;
    QuietGdalErrors& operator=(const QuietGdalErrors&) = delete;
};

std::int32_t HostShapeType(OGRwkbGeometryType type) {
    switch (OGR_GT_Flatten(type)) {
    case wkbPoint:
        return kGeometryPoint;
    case wkbMultiPoint:
        return kGeometryMultipoint;
    case wkbLineString:
    case wkbMultiLineString:
        return kGeometryPolyline;
    case wkbPolygon:
    case wkbMultiPolygon:
        return kGeometryPolygon;
    default:
        return kGeometryNull;
    }
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
    m_fields.push_back(std::make_shared<HostField>("FID", kFieldTypeOID));
    m_fields.push_back(std::make_shared<HostField>("Shape", kFieldTypeGeometry));
    for (const DbfField& field : header.fields) {
        m_fields.push_back(std::make_shared<HostField>(field.name, HostFieldType(field)));
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

ShapefileCursor::ShapefileCursor(std::shared_ptr<const ShapefileFeatureClass> featureClass,
                                 bool recycling)
    : m_featureClass(std::move(featureClass)), m_batch(m_featureClass->DbfPath(), false),
      m_header(std::make_shared<const DbfHeader>(m_batch.Header())),
      m_fields(std::make_shared<ShapefileFields>(m_batch.Header())), m_recycling(recycling) {}

std::shared_ptr<IRow> ShapefileCursor::NextRow() {
    while (true) {
        const std::size_t batchEnd = m_batch.BatchFirstRecord() + m_batch.BatchSize();
        if (m_position >= batchEnd || m_position < m_batch.BatchFirstRecord()) {
            if (m_position >= m_batch.Header().recordCount || !m_batch.Next()) {
                return nullptr;
            }
            continue;
        }
        const char* record = m_batch.Record(m_position - m_batch.BatchFirstRecord());
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

    RegisterDrivers();
    const QuietGdalErrors quiet;
    const char* const drivers[] = {"ESRI Shapefile", nullptr};
    const Dataset dataset(GDALOpenEx(m_shpPath.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers,
                                     nullptr, nullptr));
    if (!dataset || GDALDatasetGetLayerCount(dataset.get()) < 1) {
        const std::string reason = CPLGetLastErrorMsg();
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot open " + m_shpPath + ": " +
                        (reason.empty() ? std::string("not a shapefile") : reason));
    }
    OGRLayerH layer = GDALDatasetGetLayer(dataset.get(), 0);
    m_shapeType = HostShapeType(OGR_L_GetGeomType(layer));
}

std::shared_ptr<IWorkspace> ShapefileFeatureClass::Workspace() const {
    return std::make_shared<ShapefileWorkspace>(m_folder);
}

std::shared_ptr<IFields> ShapefileFeatureClass::Fields() const {
    return std::make_shared<ShapefileFields>(ReadDbfHeader(m_dbfPath));
}

std::int32_t ShapefileFeatureClass::FindField(const std::string& name) const {
    return Fields()->FindField(name);
}

void ShapefileFeatureClass::AddField(const IField& field) {
    const std::string name = field.Name();
    if (name == "FID" || name == "Shape") {
        throw Error(error_number::kHostFailure, kSource, "Field already exists: " + name);
    }
    switch (field.Type()) {
    case kFieldTypeSmallInteger:
        AddDbfField(m_dbfPath, name, 'N', 4, 0);
        break;
    case kFieldTypeInteger:
        AddDbfField(m_dbfPath, name, 'N', 9, 0);
        break;
    case kFieldTypeSingle:
        AddDbfField(m_dbfPath, name, 'N', 13, 11);
        break;
    case kFieldTypeDouble:
        // As the Windows host made a double with precision and scale left at 0.
        AddDbfField(m_dbfPath, name, 'N', 19, 11);
        break;
    case kFieldTypeString:
        AddDbfField(m_dbfPath, name, 'C', 50, 0);
        break;
    case kFieldTypeDate:
        AddDbfField(m_dbfPath, name, 'D', 8, 0);
        break;
    default:
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot add the field " + name + ": a shapefile cannot hold fields of type " +
                        std::to_string(field.Type()));
    }
}

std::shared_ptr<ICursor> ShapefileFeatureClass::Search(bool recycling) {
    return std::make_shared<ShapefileCursor>(shared_from_this(), recycling);
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

} // namespace quorel::host::gdal
