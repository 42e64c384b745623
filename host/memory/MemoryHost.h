#pragma once

// An in-memory GIS host for tests: maps, layers, feature classes with fields and rows, the
// editor, the status bar, the field calculator and the data statistics, all inspectable and
// changeable by the test. Failures throw quorel::Error as the real host's do.

#include "host/api/Events.h"
#include "host/api/Host.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::memory {

class MemoryField final : public IFieldEdit {
public:
    MemoryField() = default;
    MemoryField(std::string name, std::int32_t type, std::string alias = {});

    std::string Name() const override { return m_name; }
    std::string AliasName() const override { return m_alias.empty() ? m_name : m_alias; }
    std::int32_t Type() const override { return m_type; }
    void SetName(const std::string& name) override { m_name = name; }
    void SetType(std::int32_t type) override { m_type = type; }
    void SetAliasName(const std::string& alias) override { m_alias = alias; }

private:
    std::string m_name;
    std::int32_t m_type = kFieldTypeDouble;
    std::string m_alias;
};

class MemoryFields final : public IFields {
public:
    std::int32_t FieldCount() const override;
    std::shared_ptr<IField> Field(std::int32_t index) const override;
    std::int32_t FindField(const std::string& name) const override;

    void Add(std::shared_ptr<MemoryField> field) { m_fields.push_back(std::move(field)); }
    void Remove(std::int32_t index);

private:
    std::vector<std::shared_ptr<MemoryField>> m_fields;
};

class MemoryFeatureClass;

// A row of a feature class, by position; it reads the class's current values.
class MemoryRow final : public IRow {
public:
    MemoryRow(std::shared_ptr<MemoryFeatureClass> featureClass, std::size_t index)
        : m_class(std::move(featureClass)), m_index(index) {}
    Value GetValue(std::int32_t fieldIndex) const override;
    void SetValue(std::int32_t fieldIndex, const Value& value);

    std::size_t Index() const { return m_index; }
    void MoveTo(std::size_t index) { m_index = index; }

private:
    std::shared_ptr<MemoryFeatureClass> m_class;
    std::size_t m_index;
};

class MemoryCursor final : public ICursor {
public:
    MemoryCursor(std::shared_ptr<MemoryFeatureClass> featureClass, bool recycling);
    std::shared_ptr<IRow> NextRow() override;
    std::shared_ptr<IFields> Fields() const override;

private:
    std::shared_ptr<MemoryFeatureClass> m_class;
    bool m_recycling;
    std::size_t m_next = 0;
    std::shared_ptr<MemoryRow> m_row;
};

class MemoryWorkspace final : public IFeatureWorkspace {
public:
    explicit MemoryWorkspace(std::string path) : m_path(std::move(path)) {}
    std::string PathName() const override { return m_path; }
    // Throws Error(kFileNotFound) when no class of that name was added.
    std::shared_ptr<IFeatureClass> OpenFeatureClass(const std::string& name) override;

    void Register(const std::string& name, std::shared_ptr<MemoryFeatureClass> featureClass);

private:
    std::string m_path;
    std::map<std::string, std::shared_ptr<MemoryFeatureClass>> m_classes;
};

class MemoryFeatureClass final : public IFeatureClass,
                                 public std::enable_shared_from_this<MemoryFeatureClass> {
public:
    struct FieldSpec {
        std::string name;
        std::int32_t type;
    };

    // The class named name in workspace (registered there), with these fields and no rows.
    static std::shared_ptr<MemoryFeatureClass> Create(std::shared_ptr<MemoryWorkspace> workspace,
                                                      const std::string& name,
                                                      std::int32_t shapeType,
                                                      const std::vector<FieldSpec>& fields);

    std::int32_t ShapeType() const override { return m_shapeType; }
    std::string AliasName() const override { return m_name; }
    std::shared_ptr<IWorkspace> Workspace() const override { return m_workspace.lock(); }
    std::shared_ptr<IFields> Fields() const override { return m_fields; }
    std::int32_t FindField(const std::string& name) const override;
    // Adds a copy of the field; every row gets Null. An existing name, or one over the byte
    // limit, throws.
    void AddField(const IField& field) override;
    std::shared_ptr<ICursor> Search(bool recycling) override;
    std::optional<std::size_t> FieldNameByteLimit() const override { return m_nameByteLimit; }
    // Names are held as given, in UTF-8.
    std::size_t FieldNameByteLength(const std::string& name) const override { return name.size(); }

    // Test access: rows hold one value per field, in field order.
    void AddRow(std::vector<Value> values);
    std::size_t RowCount() const { return m_rows.size(); }
    Value GetValue(std::size_t row, std::int32_t field) const;
    void SetValue(std::size_t row, std::int32_t field, const Value& value);
    void DeleteField(const std::string& name);
    // The next AddField throws this error instead of adding (a locked table, a full disk).
    void FailNextAddField(std::int32_t number, const std::string& description);
    // Limits field names to so many bytes, as some sources do; none by default.
    void LimitFieldNames(std::optional<std::size_t> bytes) { m_nameByteLimit = bytes; }

private:
    MemoryFeatureClass(std::shared_ptr<MemoryWorkspace> workspace, std::string name,
                       std::int32_t shapeType);

    // The workspace owns its classes; a class only refers back to it.
    std::weak_ptr<MemoryWorkspace> m_workspace;
    std::string m_name;
    std::int32_t m_shapeType;
    std::shared_ptr<MemoryFields> m_fields = std::make_shared<MemoryFields>();
    std::vector<std::vector<Value>> m_rows;
    std::int32_t m_failNumber = 0;
    std::string m_failDescription;
    std::optional<std::size_t> m_nameByteLimit;
};

class MemoryWorkspaceFactory final : public IWorkspaceFactory {
public:
    // Throws Error(kPathNotFound) for a folder that holds no workspace.
    std::shared_ptr<IFeatureWorkspace> OpenFromFile(const std::string& path,
                                                    std::intptr_t window) override;
    // The workspace of a folder, made on first request.
    std::shared_ptr<MemoryWorkspace> Workspace(const std::string& path);

private:
    std::map<std::string, std::shared_ptr<MemoryWorkspace>> m_workspaces;
};

// The name every kind of layer carries.
template <typename LayerInterface> class NamedLayer : public LayerInterface {
public:
    explicit NamedLayer(std::string name) : m_name(std::move(name)) {}
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }

private:
    std::string m_name;
};

// A layer that is neither a feature layer nor a group (a raster, an annotation).
class MemoryLayer final : public NamedLayer<ILayer> {
public:
    using NamedLayer::NamedLayer;
};

class MemoryFeatureLayer final : public NamedLayer<IFeatureLayer> {
public:
    explicit MemoryFeatureLayer(std::string name = {},
                                std::shared_ptr<IFeatureClass> featureClass = nullptr)
        : NamedLayer(std::move(name)), m_class(std::move(featureClass)) {}
    std::shared_ptr<IFeatureClass> FeatureClass() const override { return m_class; }
    void SetFeatureClass(std::shared_ptr<IFeatureClass> featureClass) override {
        m_class = std::move(featureClass);
    }
    bool Selectable() const override { return m_selectable; }
    void SetSelectable(bool selectable) override { m_selectable = selectable; }
    std::shared_ptr<ICursor> Search(bool recycling) override;

private:
    std::shared_ptr<IFeatureClass> m_class;
    bool m_selectable = true;
};

class MemoryGroupLayer final : public NamedLayer<IGroupLayer> {
public:
    explicit MemoryGroupLayer(std::string name) : NamedLayer(std::move(name)) {}
    std::int32_t Count() const override { return static_cast<std::int32_t>(m_layers.size()); }
    std::shared_ptr<ILayer> Layer(std::int32_t index) const override;
    void Add(std::shared_ptr<ILayer> layer) override { m_layers.push_back(std::move(layer)); }

private:
    std::vector<std::shared_ptr<ILayer>> m_layers;
};

class MemoryMap final : public IMap, public IMapEventSource {
public:
    void Advise(IMapActiveViewEvents* handler) override { m_viewHandlers.Advise(handler); }
    void Unadvise(IMapActiveViewEvents* handler) override { m_viewHandlers.Unadvise(handler); }
    void SetViewActive(bool active) override {
        m_viewActive = active;
        ++m_viewActiveSets;
    }
    bool ViewActive() const override { return m_viewActive; }
    int ViewActiveSets() const { return m_viewActiveSets; }
    const EventHandlers<IMapActiveViewEvents>& ViewHandlers() const { return m_viewHandlers; }

    explicit MemoryMap(std::string name = "Layers") : m_name(std::move(name)) {}
    std::string Name() const override { return m_name; }
    std::int32_t LayerCount() const override { return static_cast<std::int32_t>(m_layers.size()); }
    std::shared_ptr<ILayer> Layer(std::int32_t index) const override;
    // New layers go on top, at index 0, as the host adds them.
    void AddLayer(std::shared_ptr<ILayer> layer) override;
    void DeleteLayer(const std::shared_ptr<ILayer>& layer) override;
    // The feature-layer id lists feature layers, the group-layer id group layers; any other id
    // lists every layer.
    std::unique_ptr<IEnumLayer> Layers(const UID& uid, bool recursive) const override;

    // Appends below the existing layers, for building a map in a given order.
    void AppendLayer(std::shared_ptr<ILayer> layer) { m_layers.push_back(std::move(layer)); }

private:
    EventHandlers<IMapActiveViewEvents> m_viewHandlers;
    bool m_viewActive = false;
    int m_viewActiveSets = 0;
    std::string m_name;
    std::vector<std::shared_ptr<ILayer>> m_layers;
};

class MemoryDocument final : public IMxDocument, public IDocumentEventSource {
public:
    MemoryDocument() : m_map(std::make_shared<MemoryMap>()) {}
    std::shared_ptr<IMap> FocusMap() const override { return m_map; }
    // Changes the focus map and raises the change to the old map's view handlers, as the host
    // does when the user activates another data frame.
    void SetFocusMap(std::shared_ptr<IMap> map);

    void Advise(IDocumentEvents* handler) override { m_handlers.Advise(handler); }
    void Unadvise(IDocumentEvents* handler) override { m_handlers.Unadvise(handler); }
    const EventHandlers<IDocumentEvents>& Handlers() const { return m_handlers; }

private:
    std::shared_ptr<IMap> m_map;
    EventHandlers<IDocumentEvents> m_handlers;
};

class MemoryStatusBar final : public IStatusBar {
public:
    void Message(std::int32_t pane, const std::string& text) override;
    std::string MessageText(std::int32_t pane) const override;
    void Progress(double fraction) override { progress.push_back(fraction); }

    // Every message in order, for the tests.
    std::vector<std::pair<std::int32_t, std::string>> history;
    std::vector<double> progress;

private:
    std::map<std::int32_t, std::string> m_panes;
};

class MemoryEditor final : public IEditor {
public:
    std::string Name() const override { return "Editor"; }
    std::int32_t EditState() const override { return m_state; }
    void SetEditState(std::int32_t state) { m_state = state; }

private:
    std::int32_t m_state = kEditStateNotEditing;
};

class MemoryCalculator final : public ICalculator {
public:
    using Engine = std::function<void(MemoryCalculator&)>;

    explicit MemoryCalculator(Engine engine) : m_engine(std::move(engine)) {}
    void SetCursor(std::shared_ptr<ICursor> cursor) override { m_cursor = std::move(cursor); }
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    // Hands the calculation to the application's engine; without one it throws.
    void Calculate() override;

    const std::shared_ptr<ICursor>& Cursor() const { return m_cursor; }
    const std::string& PreExpression() const { return m_preExpression; }
    const std::string& Expression() const { return m_expression; }
    const std::string& FieldName() const { return m_field; }

private:
    Engine m_engine;
    std::shared_ptr<ICursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
};

// Distinct values in the order found; figures over the numeric values (population standard
// deviation).
class MemoryDataStatistics final : public IDataStatistics {
public:
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    void SetCursor(std::shared_ptr<ICursor> cursor) override;
    std::vector<Value> UniqueValues() override;
    std::int32_t UniqueValueCount() override;
    std::shared_ptr<IStatisticsResults> Statistics() override;

private:
    void Collect();

    std::string m_field;
    std::shared_ptr<ICursor> m_cursor;
    bool m_collected = false;
    std::vector<Value> m_values;
};

class MemoryApplication;

class MemoryObjectFactory final : public IObjectFactory {
public:
    explicit MemoryObjectFactory(MemoryApplication& application) : m_application(application) {}
    std::shared_ptr<IFieldEdit> NewField() override;
    std::shared_ptr<ICalculator> NewCalculator() override;
    std::shared_ptr<IDataStatistics> NewDataStatistics() override;
    std::shared_ptr<IWorkspaceFactory> NewShapefileWorkspaceFactory() override;
    std::shared_ptr<IFeatureLayer> NewFeatureLayer() override;

private:
    MemoryApplication& m_application;
};

class MemoryApplication final : public IApplication {
public:
    MemoryApplication();

    std::shared_ptr<IMxDocument> Document() const override { return m_document; }
    std::shared_ptr<IStatusBar> StatusBar() const override { return m_statusBar; }
    std::shared_ptr<IExtension> FindExtensionByCLSID(const UID& uid) const override;
    IObjectFactory& Factory() override { return m_factory; }
    // Locks folder/name (a trailing ".shp" aside) in a registry of the process: a second lock of
    // the same layer waits for at most SetWriteLockWait (none by default) and is then refused.
    // Data in memory are always writable and whole: there is nothing else to check.
    std::unique_ptr<ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                         const std::string& name) override;
    void SetWriteLockWait(std::chrono::milliseconds wait) { m_writeLockWait = wait; }

    // Test access.
    const std::shared_ptr<MemoryDocument>& MemDocument() const { return m_document; }
    std::shared_ptr<MemoryMap> FocusMemoryMap() const;
    const std::shared_ptr<MemoryStatusBar>& MemStatusBar() const { return m_statusBar; }
    const std::shared_ptr<MemoryEditor>& Editor() const { return m_editor; }
    const std::shared_ptr<MemoryWorkspaceFactory>& Workspaces() const { return m_workspaces; }
    void RegisterExtension(const std::string& id, std::shared_ptr<IExtension> extension);
    void RemoveExtension(const std::string& id) { m_extensions.erase(id); }
    // What the field calculator does when asked to calculate.
    void SetCalculatorEngine(MemoryCalculator::Engine engine) { m_engine = std::move(engine); }
    const MemoryCalculator::Engine& CalculatorEngine() const { return m_engine; }
    // Every calculator handed out, for the tests to examine.
    std::vector<std::shared_ptr<MemoryCalculator>> calculators;

    // A feature class in folder with a feature layer of the same name, put on top of the focus
    // map; returns the layer.
    std::shared_ptr<MemoryFeatureLayer>
    AddFeatureLayer(const std::string& folder, const std::string& name, std::int32_t shapeType,
                    const std::vector<MemoryFeatureClass::FieldSpec>& fields);

private:
    std::shared_ptr<MemoryDocument> m_document = std::make_shared<MemoryDocument>();
    std::shared_ptr<MemoryStatusBar> m_statusBar = std::make_shared<MemoryStatusBar>();
    std::shared_ptr<MemoryEditor> m_editor = std::make_shared<MemoryEditor>();
    std::shared_ptr<MemoryWorkspaceFactory> m_workspaces =
        std::make_shared<MemoryWorkspaceFactory>();
    std::map<std::string, std::shared_ptr<IExtension>> m_extensions;
    MemoryCalculator::Engine m_engine;
    MemoryObjectFactory m_factory{*this};
    std::chrono::milliseconds m_writeLockWait{0};
};

} // namespace quorel::host::memory
