#pragma once

// An in-memory GIS host for tests: feature classes with fields and rows held in memory, on the
// map objects every host shares (host/map). The field calculator runs the script engine over
// the rows. Failures throw quorel::Error as the other hosts' do.

#include "host/api/Host.h"
#include "host/map/Application.h"
#include "host/map/Field.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::memory {

class MemoryFields final : public IFields {
public:
    std::int32_t FieldCount() const override;
    std::shared_ptr<IField> Field(std::int32_t index) const override;
    std::int32_t FindField(const std::string& name) const override;

    void Add(std::shared_ptr<map::Field> field) { m_fields.push_back(std::move(field)); }
    void Remove(std::int32_t index);

private:
    std::vector<std::shared_ptr<map::Field>> m_fields;
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
    MemoryFeatureClass& Class() const { return *m_class; }
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
    // Adds a copy of the field; every row gets Null. An empty or existing name throws.
    void AddField(const IField& field) override;
    std::shared_ptr<ICursor> Search(bool recycling) override;
    // No limit.
    std::optional<std::size_t> FieldNameByteLimit() const override { return std::nullopt; }
    // Names are held as given, in UTF-8.
    std::size_t FieldNameByteLength(const std::string& name) const override { return name.size(); }

    // Test access: rows hold one value per field, in field order.
    void AddRow(std::vector<Value> values);
    std::size_t RowCount() const { return m_rows.size(); }
    Value GetValue(std::size_t row, std::int32_t field) const;
    void SetValue(std::size_t row, std::int32_t field, const Value& value);
    void DeleteField(const std::string& name);

private:
    MemoryFeatureClass(std::shared_ptr<MemoryWorkspace> workspace, std::string name,
                       std::int32_t shapeType);

    // The workspace owns its classes; a class only refers back to it.
    std::weak_ptr<MemoryWorkspace> m_workspace;
    std::string m_name;
    std::int32_t m_shapeType;
    std::shared_ptr<MemoryFields> m_fields = std::make_shared<MemoryFields>();
    std::vector<std::vector<Value>> m_rows;
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

// A layer that is neither a feature layer nor a group (a raster, an annotation).
class MemoryLayer final : public ILayer {
public:
    explicit MemoryLayer(std::string name) : m_name(std::move(name)) {}
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }

private:
    std::string m_name;
};

// Runs the pre-expression and the expression over the rows of a cursor of this host, from its
// position to the end, and stores each value in the field (Null where the script leaves none).
class MemoryCalculator final : public ICalculator {
public:
    void SetCursor(std::shared_ptr<ICursor> cursor) override { m_cursor = std::move(cursor); }
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    void Calculate() override;

private:
    std::shared_ptr<ICursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
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

class MemoryApplication final : public map::Application {
public:
    IObjectFactory& Factory() override { return m_factory; }
    // Locks folder/name (a trailing ".shp" aside) in a registry of the process: a second lock of
    // the same layer waits for at most SetWriteLockWait (none by default) and is then refused.
    // Data in memory are always writable and whole: there is nothing else to check.
    std::unique_ptr<ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                         const std::string& name) override;
    void SetWriteLockWait(std::chrono::milliseconds wait) { m_writeLockWait = wait; }

    const std::shared_ptr<MemoryWorkspaceFactory>& Workspaces() const { return m_workspaces; }
    // A feature class in folder with a feature layer of the same name, added to the focus map
    // (at the bottom); returns the layer. MemoryClass gives the class back for AddRow and the
    // other test hooks.
    std::shared_ptr<IFeatureLayer>
    AddFeatureLayer(const std::string& folder, const std::string& name, std::int32_t shapeType,
                    const std::vector<MemoryFeatureClass::FieldSpec>& fields);
    static MemoryFeatureClass& MemoryClass(const IFeatureLayer& layer);

private:
    std::shared_ptr<MemoryWorkspaceFactory> m_workspaces =
        std::make_shared<MemoryWorkspaceFactory>();
    MemoryObjectFactory m_factory{*this};
    std::chrono::milliseconds m_writeLockWait{0};
};

} // namespace quorel::host::memory
