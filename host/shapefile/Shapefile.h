#pragma once

// Shapefiles as the host's workspaces, feature classes, fields and cursors. The geometry type
// comes from the .shp's header; the attribute table is read and written through DbfTable, so
// that a field is added and a column filled without touching the geometry.

#include "host/api/Host.h"
#include "host/map/Field.h"
#include "host/shapefile/DbfTable.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::shapefile {

// The host's field types for a .dbf column: integers by width, numbers with decimals as double.
std::int32_t HostFieldType(const DbfField& field);

// A snapshot of a shapefile's fields: "FID" (object id) and "Shape" (geometry) first, as the
// host lists them, then the table's columns in order.
class ShapefileFields final : public IFields {
public:
    explicit ShapefileFields(const DbfHeader& header);

    std::int32_t FieldCount() const override;
    std::shared_ptr<IField> Field(std::int32_t index) const override;
    std::int32_t FindField(const std::string& name) const override;

    // The table column behind a field index, or -1 for FID and Shape.
    static std::int32_t ColumnOf(std::int32_t fieldIndex) { return fieldIndex - 2; }
    static std::int32_t FieldOfColumn(std::size_t column) {
        return static_cast<std::int32_t>(column) + 2;
    }

private:
    std::vector<std::shared_ptr<map::Field>> m_fields;
};

class ShapefileFeatureClass;

// Walks the records of the table in batches; deleted records are skipped. The table is opened
// at the first row asked for, so that a cursor made for the calculator reads nothing.
class ShapefileCursor final : public ICursor {
public:
    ShapefileCursor(std::shared_ptr<ShapefileFeatureClass> featureClass, bool recycling);

    std::shared_ptr<IRow> NextRow() override;
    std::shared_ptr<IFields> Fields() const override { return m_fields; }

    ShapefileFeatureClass& FeatureClass() const { return *m_featureClass; }
    // Index of the next record the cursor would read; the calculator starts there.
    std::size_t Position() const { return m_position; }
    // Whether no row was asked for yet.
    bool AtStart() const { return !m_batch; }
    void MoveToEnd() { m_position = SIZE_MAX; }

private:
    std::shared_ptr<ShapefileFeatureClass> m_featureClass;
    std::optional<DbfBatchFile> m_batch;
    std::shared_ptr<const DbfHeader> m_header; // shared by the rows
    std::shared_ptr<IFields> m_fields;
    bool m_recycling;
    std::size_t m_position = 0;
    std::shared_ptr<IRow> m_row;
};

// A field added to a shapefile is written with its values when the field calculator's first
// work is to fill it: the table is then rewritten once, field and values together, instead of
// once for the field and again for the values. Until then the field is listed as the table's
// last; any reading of the records, another field added or the object's end writes it, Null.
// The field's checks (name, room in the table) are made when it is added.
class ShapefileFeatureClass final : public IFeatureClass,
                                    public std::enable_shared_from_this<ShapefileFeatureClass> {
public:
    // Opens folder/baseName.shp; throws quorel::Error saying why it cannot.
    ShapefileFeatureClass(const std::string& folder, const std::string& baseName);
    ~ShapefileFeatureClass() override;
    ShapefileFeatureClass(const ShapefileFeatureClass&) = delete;
    ShapefileFeatureClass& operator=(const ShapefileFeatureClass&) = delete;

    std::int32_t ShapeType() const override { return m_shapeType; }
    std::string AliasName() const override { return m_baseName; }
    std::shared_ptr<IWorkspace> Workspace() const override;
    std::shared_ptr<IFields> Fields() const override;
    std::int32_t FindField(const std::string& name) const override;
    void AddField(const IField& field) override;
    std::shared_ptr<ICursor> Search(bool recycling) override;
    std::optional<std::size_t> FieldNameByteLimit() const override;
    std::size_t FieldNameByteLength(const std::string& name) const override;

    const std::string& Folder() const { return m_folder; }
    const std::string& ShpPath() const { return m_shpPath; }
    const std::string& DbfPath() const { return m_dbfPath; }

    // Whether `name` is a field added but not yet written.
    bool IsFieldPending(const std::string& name) const;
    // Writes the field added last, Null, if it is not yet written. A write that fails throws, and
    // the field stays pending: every later attempt (a reading of the records, another field
    // added) fails again rather than going on without it; the object's end no longer tries it.
    void WritePendingField();
    // Writes the pending field with the values the filler made for its layout (the table with
    // the field) puts there. When the filler cannot be made or fails, the field is written Null
    // and the filler's error thrown; when even that fails, the error says the field was not
    // added, and the field stays pending as above. A filler that refuses (ValuesOutsideRange)
    // leaves the table as it was and the field dropped.
    using FillerMaker = std::function<std::unique_ptr<DbfColumnFiller>(const DbfHeader& layout)>;
    void WritePendingField(const FillerMaker& makeFiller, const DbfProgress& progress,
                           const DbfWorkSharing& sharing);

private:
    struct PendingField {
        std::string name;
        char type;
        std::uint8_t length;
        std::uint8_t decimals;
        bool failed = false; // a write was tried and its failure thrown
    };

    std::string m_folder;
    std::string m_baseName;
    std::string m_shpPath;
    std::string m_dbfPath;
    std::int32_t m_shapeType = kGeometryNull;
    std::optional<PendingField> m_pending;
};

// The write lock of a shapefile's data: an exclusive flock(2) on its .shp, opened read-only. The
// .shp because its inode stays: no writer ever writes it, whereas the table is replaced by a
// rename, so that a lock on the table's inode would not be seen by a process that opens the new
// table. Being advisory, it binds our writers only (every run takes it); readers ignore it.
class ShapefileWriteLock final : public ILayerWriteLock {
public:
    // Takes the lock of shpPath, trying again for at most `wait`; then checks that the table can
    // be written whole (writable in place, in a folder that can take its replacement; as many
    // records in the file and in the .shx as its header counts) and removes the temporaries that
    // killed writers left beside it. Throws as IApplication::LockLayerForWriting says.
    ShapefileWriteLock(const std::string& shpPath, std::chrono::milliseconds wait);

private:
    FileHandle m_shp;
};

class ShapefileWorkspace final : public IFeatureWorkspace {
public:
    explicit ShapefileWorkspace(std::string folder) : m_folder(std::move(folder)) {}

    std::string PathName() const override { return m_folder; }
    std::shared_ptr<IFeatureClass> OpenFeatureClass(const std::string& name) override;

private:
    std::string m_folder;
};

class ShapefileWorkspaceFactory final : public IWorkspaceFactory {
public:
    // Opens a folder of shapefiles; throws when it is not a readable folder.
    std::shared_ptr<IFeatureWorkspace> OpenFromFile(const std::string& path,
                                                    std::intptr_t window) override;
};

} // namespace quorel::host::shapefile
