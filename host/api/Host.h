#pragma once

// The GIS host's object model as the component sees it: pure interfaces, no GDAL. Every failing
// call throws quorel::Error with a number and a description a user can act on. Objects are
// shared: the host and the component may both hold them, as COM references did.

#include "host/api/HostTypes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel::host {

class IField {
public:
    virtual ~IField() = default;
    virtual std::string Name() const = 0;
    virtual std::string AliasName() const = 0;
    virtual std::int32_t Type() const = 0;
};

// A new field, filled in before it is added to a table.
class IFieldEdit : public IField {
public:
    virtual void SetName(const std::string& name) = 0;
    virtual void SetType(std::int32_t type) = 0;
    virtual void SetAliasName(const std::string& alias) = 0;
};

// The data's own fields in the data's order, a field added last. A host may list fields of its
// own before them: the shapefile host lists "FID" (object id) and "Shape" (geometry) first; the
// in-memory host lists none.
class IFields {
public:
    virtual ~IFields() = default;
    virtual std::int32_t FieldCount() const = 0;
    // Unchecked in the original host; here an index out of range throws.
    virtual std::shared_ptr<IField> Field(std::int32_t index) const = 0;
    // -1 when no field has that name (exact, case-sensitive).
    virtual std::int32_t FindField(const std::string& name) const = 0;
};

// One row of a cursor.
class IRow {
public:
    virtual ~IRow() = default;
    virtual Value GetValue(std::int32_t fieldIndex) const = 0;
};

// Walks the features of a feature class in the data's order; records the data marks deleted are
// never rows. NextRow gives nullptr at the end. A recycling cursor may hand out the same row
// object again, so a row is read before the next is asked for; a non-recycling one gives a fresh
// row each time, which keeps its values.
class ICursor {
public:
    virtual ~ICursor() = default;
    virtual std::shared_ptr<IRow> NextRow() = 0;
    virtual std::shared_ptr<IFields> Fields() const = 0;
};

class IWorkspace {
public:
    virtual ~IWorkspace() = default;
    // The folder of the data, without a trailing separator; for a database, the database
    // itself: the .gpkg file's path, the PG: connection text.
    virtual std::string PathName() const = 0;
};

class IFeatureClass {
public:
    virtual ~IFeatureClass() = default;
    virtual std::int32_t ShapeType() const = 0;
    virtual std::string AliasName() const = 0;
    virtual std::shared_ptr<IWorkspace> Workspace() const = 0;
    virtual std::shared_ptr<IFields> Fields() const = 0;
    virtual std::int32_t FindField(const std::string& name) const = 0;
    // Appends the field (see IFields), Null in every row. An empty name, a name already there
    // (exact case) or one over FieldNameByteLimit throws quorel::Error, as does any failure of
    // the data; a failed add changes nothing: the fields and the rows stay as they were.
    virtual void AddField(const IField& field) = 0;
    // All features, no filter.
    virtual std::shared_ptr<ICursor> Search(bool recycling) = 0;
    // Some sources limit a field's name in bytes of the table's own encoding (a shapefile's
    // table to 10 bytes in the code page its .cpg names), so that a name of few characters may
    // still be too long: the limit, or nothing for a source without one. AddField refuses a
    // name over the limit.
    virtual std::optional<std::size_t> FieldNameByteLimit() const = 0;
    // The bytes a name (UTF-8) takes in the table's encoding, to hold against that limit.
    virtual std::size_t FieldNameByteLength(const std::string& name) const = 0;
    // The characters a field name may have: the original host's 10 for a shapefile's table and
    // wherever a source keeps that rule; nothing for a database, whose names are quoted
    // identifiers held only to FieldNameByteLimit.
    virtual std::optional<std::size_t> FieldNameCharacterLimit() const { return 10; }
};

class IFeatureWorkspace : public IWorkspace {
public:
    virtual std::shared_ptr<IFeatureClass> OpenFeatureClass(const std::string& name) = 0;
};

class IWorkspaceFactory {
public:
    virtual ~IWorkspaceFactory() = default;
    virtual std::shared_ptr<IFeatureWorkspace> OpenFromFile(const std::string& path,
                                                            std::intptr_t window) = 0;
};

class ILayer {
public:
    virtual ~ILayer() = default;
    virtual std::string Name() const = 0;
    virtual void SetName(const std::string& name) = 0;
};

class IFeatureLayer : public ILayer {
public:
    virtual std::shared_ptr<IFeatureClass> FeatureClass() const = 0;
    virtual void SetFeatureClass(std::shared_ptr<IFeatureClass> featureClass) = 0;
    virtual bool Selectable() const = 0;
    virtual void SetSelectable(bool selectable) = 0;
    // All features, no filter.
    virtual std::shared_ptr<ICursor> Search(bool recycling) = 0;
};

class IGroupLayer : public ILayer {
public:
    virtual std::int32_t Count() const = 0;
    virtual std::shared_ptr<ILayer> Layer(std::int32_t index) const = 0;
    // Appends, as IMap::AddLayer does.
    virtual void Add(std::shared_ptr<ILayer> layer) = 0;
};

class IEnumLayer {
public:
    virtual ~IEnumLayer() = default;
    virtual void Reset() = 0;
    // nullptr at the end.
    virtual std::shared_ptr<ILayer> Next() = 0;
};

class IMap {
public:
    virtual ~IMap() = default;
    virtual std::string Name() const = 0;
    virtual std::int32_t LayerCount() const = 0;
    // The top-level layer at a 0-based position; out of range throws.
    virtual std::shared_ptr<ILayer> Layer(std::int32_t index) const = 0;
    // Appends the layer at the bottom of the contents (position LayerCount()); nullptr throws.
    virtual void AddLayer(std::shared_ptr<ILayer> layer) = 0;
    // A layer that is not one of the map's top-level layers is left alone.
    virtual void DeleteLayer(const std::shared_ptr<ILayer>& layer) = 0;
    // A snapshot of the layers implementing the interface uid names, in map order, each group
    // before the layers inside it: kLayerInterfaceId (or empty) every layer, groups included;
    // kFeatureLayerInterfaceId feature layers; kGroupLayerInterfaceId group layers. recursive
    // also visits the layers inside groups. Another id throws. host/api/LayerWalk.h is the walk.
    virtual std::unique_ptr<IEnumLayer> Layers(const UID& uid, bool recursive) const = 0;
};

class IMxDocument {
public:
    virtual ~IMxDocument() = default;
    virtual std::shared_ptr<IMap> FocusMap() const = 0;
};

class IStatusBar {
public:
    virtual ~IStatusBar() = default;
    virtual void Message(std::int32_t pane, const std::string& text) = 0;
    virtual std::string MessageText(std::int32_t pane) const = 0;
    // Fraction done of a long operation, 0 to 1; a negative value hides the progress.
    virtual void Progress(double fraction) = 0;
};

// Hides a status bar's progress however a long operation ends; a status bar that fails then must
// not hide the operation's own outcome. A null status bar is allowed.
class ProgressHiddenOnExit {
public:
    explicit ProgressHiddenOnExit(IStatusBar* statusBar) : m_statusBar(statusBar) {}
    ~ProgressHiddenOnExit() {
        if (m_statusBar) {
            try {
                m_statusBar->Progress(-1);
            } catch (...) {
            }
        }
    }
    ProgressHiddenOnExit(const ProgressHiddenOnExit&) = delete;
    ProgressHiddenOnExit& operator=(const ProgressHiddenOnExit&) = delete;

private:
    IStatusBar* m_statusBar;
};

class IExtension {
public:
    virtual ~IExtension() = default;
    virtual std::string Name() const = 0;
};

class IEditor : public IExtension {
public:
    virtual std::int32_t EditState() const = 0;
};

// The field calculator: runs the pre-expression once per feature of the cursor and stores the
// expression's value in the field. A failing script stops the work and Calculate throws its
// error (11 for a division by zero); a field just added then stays Null.
class ICalculator {
public:
    virtual ~ICalculator() = default;
    virtual void SetCursor(std::shared_ptr<ICursor> cursor) = 0;
    virtual void SetPreExpression(const std::string& script) = 0;
    virtual void SetExpression(const std::string& expression) = 0;
    virtual void SetField(const std::string& fieldName) = 0;
    virtual void Calculate() = 0;
};

// A calculator that computes inside a database may also take the degree as one SQL expression
// of the source field, written in its dialect, beside the script: it may then run the
// expression instead of the script, and must give exactly the script's degrees, Null included.
class ISqlCalculator {
public:
    virtual ~ISqlCalculator() = default;
    // "sqlite" or "postgresql"; empty when the calculator will not take SQL for its cursor (a
    // calculator over several sources, given a shapefile's cursor).
    virtual std::string SqlDialect() const = 0;
    virtual void SetSqlExpression(const std::string& expression) = 0;
};

class IStatisticsResults {
public:
    virtual ~IStatisticsResults() = default;
    virtual std::int32_t Count() const = 0;
    virtual double Minimum() const = 0;
    virtual double Maximum() const = 0;
    virtual double Mean() const = 0;
    virtual double StandardDeviation() const = 0;
};

class IDataStatistics {
public:
    virtual ~IDataStatistics() = default;
    virtual void SetField(const std::string& fieldName) = 0;
    virtual void SetCursor(std::shared_ptr<ICursor> cursor) = 0;
    // Distinct non-null values in the order the host finds them.
    virtual std::vector<Value> UniqueValues() = 0;
    virtual std::int32_t UniqueValueCount() = 0;
    virtual std::shared_ptr<IStatisticsResults> Statistics() = 0;
};

// Stands for the host's class creation ("new Field", "new Calculator" ...).
class IObjectFactory {
public:
    virtual ~IObjectFactory() = default;
    virtual std::shared_ptr<IFieldEdit> NewField() = 0;
    virtual std::shared_ptr<ICalculator> NewCalculator() = 0;
    virtual std::shared_ptr<IDataStatistics> NewDataStatistics() = 0;
    virtual std::shared_ptr<IWorkspaceFactory> NewShapefileWorkspaceFactory() = 0;
    virtual std::shared_ptr<IFeatureLayer> NewFeatureLayer() = 0;
};

// A calculator that can check the values of numeric fields while it reads them for the
// calculation, and refuse before it changes anything when some lie outside an interval: one read
// of the table where a check before the calculation would take two. Where a calculator cannot
// (ChecksRangeOf false), the caller checks before.
class IRangeCheckingCalculator {
public:
    virtual ~IRangeCheckingCalculator() = default;
    virtual bool ChecksRangeOf(const IFeatureClass& table) const = 0;
    // The next Calculate throws ValuesOutsideRange when any value of these fields is neither Null
    // nor in [low, high]; it then has changed nothing, and a field just added is dropped unwritten.
    virtual void SetRangeCheck(const std::vector<std::string>& fields, double low, double high) = 0;
};

// A range-checking calculator's refusal: per checked field, in the order given, how many values
// are neither Null nor in the interval.
class ValuesOutsideRange : public std::runtime_error {
public:
    explicit ValuesOutsideRange(std::vector<std::size_t> outside)
        : std::runtime_error("values outside the interval"), m_outside(std::move(outside)) {}
    const std::vector<std::size_t>& Outside() const { return m_outside; }

private:
    std::vector<std::size_t> m_outside;
};

// One criterion as a source that keeps the records inside its own data holds it: the column a
// run added to a table, from which field, with which shape and parameters (completed as the run
// used them), when and by which version of the program.
struct CriterionRecord {
    std::string table;
    std::string column;
    std::string sourceField;
    std::int16_t kind = 0; // a FuzzyNumberKind
    double a = 0;
    double b = 0;
    double c = 0;
    double d = 0;
    std::string created; // ISO 8601 with the offset from UTC: 2026-11-24T14:05:00+01:00
    std::string version; // the program's, "10.3.2"
    // The record as the metadata window shows it, in the run's language; a source may keep it
    // for people beside the record (a PostGIS column's comment). Not read back.
    std::string description = {};
};

// One aggregation: the field a run added by combining others, its inputs in the operator's order,
// the operator and its parameter, when and by which version of the program.
struct AggregationRecord {
    std::string field; // the output field
    std::vector<std::string> inputs;
    std::string op; // the operator's name: "and", "or", "product", "sum", "gamma", "mean", "owa"
    std::optional<double> gamma;
    std::vector<double> weights;
    std::string created; // ISO 8601 with the offset from UTC, e.g. 2026-11-24T15:04:05+01:00
    // The program's; empty where the record's place keeps none (a shapefile's JSON file).
    std::string version;
    // As CriterionRecord's description: the record as the metadata window shows it, in the
    // run's language, for a source that keeps it for people (a column's comment). Not read back.
    std::string description = {};
};

// The criterion and aggregation records of a feature class whose source keeps them inside its
// own data (a database), in place of the metadata file beside a shapefile. The feature class
// implements it beside IFeatureClass; a shapefile's does not, and the runs then keep the metadata
// file and its JSON companion.
class ICriterionRecords {
public:
    virtual ~ICriterionRecords() = default;
    // The runs' validation: every record, criterion or aggregation, whose column the table no
    // longer has goes. Under the write lock, so that it is kept or undone with the run's other
    // writes.
    virtual void RemoveRecordsOfMissingColumns() = 0;
    // Adds the record of a column just computed, under the write lock; a record of the same
    // table and column is replaced.
    virtual void WriteRecord(const CriterionRecord& record) = 0;
    // The record of a column of this feature class's table, if any. Readers take no lock.
    virtual std::optional<CriterionRecord> Record(const std::string& column) const = 0;
    // Every record of this feature class's table, oldest first.
    virtual std::vector<CriterionRecord> Records() const = 0;

    // Adds the record of a column an aggregation just computed, under the write lock; a record
    // of the same table and column is replaced.
    virtual void WriteAggregationRecord(const AggregationRecord& record) = 0;
    // Every aggregation record of this feature class's table, oldest first. Readers take no lock.
    virtual std::vector<AggregationRecord> AggregationRecords() const = 0;
};

// The exclusive right to write one layer's data: its table and the files kept beside it, the
// metadata file among them. A writer takes it before its first write and holds it until after its
// last; while it is held no one else can take it, in this process or another. Destroying the
// object releases it. Readers never take it.
class ILayerWriteLock {
public:
    virtual ~ILayerWriteLock() = default;
    // Makes everything written under the lock durable, in one step, for a source whose writes
    // are one transaction (a database): a lock destroyed without Commit then undoes them all.
    // Where each write is durable as it is made (a shapefile) it does nothing.
    virtual void Commit() {}
    // Whether writes made under the lock are undone when it goes without Commit.
    virtual bool UndoesUncommittedWrites() const { return false; }
};

class IApplication {
public:
    virtual ~IApplication() = default;
    virtual std::shared_ptr<IMxDocument> Document() const = 0;
    virtual std::shared_ptr<IStatusBar> StatusBar() const = 0;
    // nullptr when no extension is registered under that id.
    virtual std::shared_ptr<IExtension> FindExtensionByCLSID(const UID& uid) const = 0;
    virtual IObjectFactory& Factory() = 0;
    // Takes the write lock of the data of the layer `name` whose data lie in `folder` (the chosen
    // layer's g_layer_path and g_layer_name, with or without ".shp"; for a database the
    // workspace's PathName, the .gpkg file or the PG: connection, and the table), waiting a
    // short while (the host's choice) for another writer to let go. Then, still before anything is
    // written, makes sure the data can be written whole: otherwise it throws quorel::Error, having
    // changed nothing and released the lock, with one of these numbers
    //   kHostLayerLocked    another writer held the lock all the while;
    //   kHostLayerReadOnly  the data cannot be written in place (permissions, read-only medium);
    //   kHostLayerDamaged   the data disagree with themselves (a table's header and its content,
    //                       the table and the geometry), so a rewrite would lose some;
    // or another number when the data cannot be found or read. The description names the file
    // and says what is wrong. Once the lock is held, the host removes what writers killed
    // midway left behind (their temporary files).
    virtual std::unique_ptr<ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                                 const std::string& name) = 0;
};

} // namespace quorel::host
