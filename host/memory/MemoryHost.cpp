#include "host/memory/MemoryHost.h"

#include "host/map/DataStatistics.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <set>
#include <utility>

namespace quorel::host::memory {
namespace {

constexpr const char* kSource = "MemoryHost";
[[noreturn]] void ThrowInvalidIndex(std::int32_t index) {
    throw Error(error_number::kHostInvalidIndex, kSource, "Invalid index " + std::to_string(index));
}

} // namespace

std::int32_t MemoryFields::FieldCount() const {
    return static_cast<std::int32_t>(m_fields.size());
}

std::shared_ptr<IField> MemoryFields::Field(std::int32_t index) const {
    if (index < 0 || index >= FieldCount()) {
        ThrowInvalidIndex(index);
    }
    return m_fields[static_cast<std::size_t>(index)];
}

std::int32_t MemoryFields::FindField(const std::string& name) const {
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i]->Name() == name) {
            return static_cast<std::int32_t>(i);
        }
    }
    return -1;
}

void MemoryFields::Remove(std::int32_t index) {
    if (index < 0 || index >= FieldCount()) {
        ThrowInvalidIndex(index);
    }
    m_fields.erase(m_fields.begin() + index);
}

Value MemoryRow::GetValue(std::int32_t fieldIndex) const {
    return m_class->GetValue(m_index, fieldIndex);
}

void MemoryRow::SetValue(std::int32_t fieldIndex, const Value& value) {
    m_class->SetValue(m_index, fieldIndex, value);
}

MemoryCursor::MemoryCursor(std::shared_ptr<MemoryFeatureClass> featureClass, bool recycling)
    : m_class(std::move(featureClass)), m_recycling(recycling) {}

std::shared_ptr<IRow> MemoryCursor::NextRow() {
    if (m_next >= m_class->RowCount()) {
        return nullptr;
    }
    const std::size_t index = m_next++;
    if (m_recycling && m_row) {
        m_row->MoveTo(index);
        return m_row;
    }
    m_row = std::make_shared<MemoryRow>(m_class, index);
    return m_row;
}

std::shared_ptr<IFields> MemoryCursor::Fields() const {
    return m_class->Fields();
}

std::shared_ptr<IFeatureClass> MemoryWorkspace::OpenFeatureClass(const std::string& name) {
    const auto it = m_classes.find(name);
    if (it == m_classes.end()) {
        throw Error(error_number::kFileNotFound, kSource,
                    "File not found: " + m_path + "/" + name + ".shp");
    }
    return it->second;
}

void MemoryWorkspace::Register(const std::string& name,
                               std::shared_ptr<MemoryFeatureClass> featureClass) {
    m_classes[name] = std::move(featureClass);
}

MemoryFeatureClass::MemoryFeatureClass(std::shared_ptr<MemoryWorkspace> workspace, std::string name,
                                       std::int32_t shapeType)
    : m_workspace(std::move(workspace)), m_name(std::move(name)), m_shapeType(shapeType) {}

std::shared_ptr<MemoryFeatureClass>
MemoryFeatureClass::Create(std::shared_ptr<MemoryWorkspace> workspace, const std::string& name,
                           std::int32_t shapeType, const std::vector<FieldSpec>& fields) {
    std::shared_ptr<MemoryFeatureClass> featureClass(
        new MemoryFeatureClass(workspace, name, shapeType));
    for (const auto& field : fields) {
        featureClass->m_fields->Add(std::make_shared<map::Field>(field.name, field.type));
    }
    if (workspace) {
        workspace->Register(name, featureClass);
    }
    return featureClass;
}

std::int32_t MemoryFeatureClass::FindField(const std::string& name) const {
    return m_fields->FindField(name);
}

void MemoryFeatureClass::AddField(const IField& field) {
    if (field.Name().empty() || m_fields->FindField(field.Name()) >= 0) {
        throw Error(error_number::kHostFailure, kSource, "Cannot add field '" + field.Name() + "'");
    }
    m_fields->Add(std::make_shared<map::Field>(field.Name(), field.Type(), field.AliasName()));
    for (auto& row : m_rows) {
        row.emplace_back();
    }
}

std::shared_ptr<ICursor> MemoryFeatureClass::Search(bool recycling) {
    return std::make_shared<MemoryCursor>(shared_from_this(), recycling);
}

void MemoryFeatureClass::AddRow(std::vector<Value> values) {
    values.resize(static_cast<std::size_t>(m_fields->FieldCount()));
    m_rows.push_back(std::move(values));
}

Value MemoryFeatureClass::GetValue(std::size_t row, std::int32_t field) const {
    if (row >= m_rows.size() || field < 0 || field >= m_fields->FieldCount()) {
        ThrowInvalidIndex(field);
    }
    return m_rows[row][static_cast<std::size_t>(field)];
}

void MemoryFeatureClass::SetValue(std::size_t row, std::int32_t field, const Value& value) {
    if (row >= m_rows.size() || field < 0 || field >= m_fields->FieldCount()) {
        ThrowInvalidIndex(field);
    }
    m_rows[row][static_cast<std::size_t>(field)] = value;
}

void MemoryFeatureClass::DeleteField(const std::string& name) {
    const std::int32_t index = m_fields->FindField(name);
    if (index < 0) {
        throw Error(error_number::kHostFailure, kSource, "No field '" + name + "'");
    }
    m_fields->Remove(index);
    for (auto& row : m_rows) {
        row.erase(row.begin() + index);
    }
}

std::shared_ptr<IFeatureWorkspace> MemoryWorkspaceFactory::OpenFromFile(const std::string& path,
                                                                        std::intptr_t /*window*/) {
    const auto it = m_workspaces.find(path);
    if (it == m_workspaces.end()) {
        throw Error(error_number::kPathNotFound, kSource, "Path not found: " + path);
    }
    return it->second;
}

std::shared_ptr<MemoryWorkspace> MemoryWorkspaceFactory::Workspace(const std::string& path) {
    auto& workspace = m_workspaces[path];
    if (!workspace) {
        workspace = std::make_shared<MemoryWorkspace>(path);
    }
    return workspace;
}

void MemoryCalculator::Calculate() {
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "The calculator has no cursor");
    }
    const auto fields = m_cursor->Fields();
    const std::int32_t output = fields->FindField(m_field);
    if (output < 0) {
        throw Error(error_number::kHostFailure, kSource, "No field '" + m_field + "'");
    }
    const auto program = script::Program::Compile(m_preExpression, m_expression);
    std::vector<std::int32_t> inputFields;
    for (const auto& name : program.FieldNames()) {
        const std::int32_t index = fields->FindField(name);
        if (index < 0) {
            throw Error(error_number::kHostFailure, kSource, "No field '" + name + "'");
        }
        inputFields.push_back(index);
    }
    // Every row is read before any is written, so a failing script leaves the field as it was.
    std::vector<std::pair<MemoryFeatureClass*, std::size_t>> rows;
    std::vector<script::Column> inputs(inputFields.size());
    while (const auto row = m_cursor->NextRow()) {
        const auto& memoryRow = dynamic_cast<const MemoryRow&>(*row);
        rows.emplace_back(&memoryRow.Class(), memoryRow.Index());
        for (std::size_t k = 0; k < inputFields.size(); ++k) {
            const Value value = row->GetValue(inputFields[k]);
            const auto* number = std::get_if<double>(&value);
            inputs[k].values.push_back(number ? *number : 0);
            inputs[k].isNull.push_back(number ? 0 : 1);
        }
    }
    std::vector<const script::Column*> inputPointers;
    for (const auto& column : inputs) {
        inputPointers.push_back(&column);
    }
    script::Column result;
    result.resize(rows.size());
    program.Evaluate(inputPointers, result);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].first->SetValue(rows[i].second, output,
                                result.isNull[i] ? Value() : Value(result.values[i]));
    }
}

std::shared_ptr<IFieldEdit> MemoryObjectFactory::NewField() {
    return std::make_shared<map::Field>();
}

std::shared_ptr<ICalculator> MemoryObjectFactory::NewCalculator() {
    return std::make_shared<MemoryCalculator>();
}

std::shared_ptr<IDataStatistics> MemoryObjectFactory::NewDataStatistics() {
    return std::make_shared<map::DataStatistics>();
}

std::shared_ptr<IWorkspaceFactory> MemoryObjectFactory::NewShapefileWorkspaceFactory() {
    return m_application.Workspaces();
}

std::shared_ptr<IFeatureLayer> MemoryObjectFactory::NewFeatureLayer() {
    return std::make_shared<map::FeatureLayer>();
}

std::shared_ptr<IFeatureLayer>
MemoryApplication::AddFeatureLayer(const std::string& folder, const std::string& name,
                                   std::int32_t shapeType,
                                   const std::vector<MemoryFeatureClass::FieldSpec>& fields) {
    auto layer = m_factory.NewFeatureLayer();
    layer->SetName(name);
    layer->SetFeatureClass(
        MemoryFeatureClass::Create(m_workspaces->Workspace(folder), name, shapeType, fields));
    Document()->FocusMap()->AddLayer(layer);
    return layer;
}

MemoryFeatureClass& MemoryApplication::MemoryClass(const IFeatureLayer& layer) {
    return dynamic_cast<MemoryFeatureClass&>(*layer.FeatureClass());
}

} // namespace quorel::host::memory

namespace quorel::host::memory {

namespace {

// The layers locked for writing in this process, by folder and name.
struct LockRegistry {
    std::mutex mutex;
    std::condition_variable released;
    std::set<std::string> held;
};

LockRegistry& Locks() {
    static LockRegistry registry;
    return registry;
}

class MemoryWriteLock final : public ILayerWriteLock {
public:
    explicit MemoryWriteLock(std::string key) : m_key(std::move(key)) {}
    ~MemoryWriteLock() override {
        LockRegistry& locks = Locks();
        {
            const std::lock_guard<std::mutex> guard(locks.mutex);
            locks.held.erase(m_key);
        }
        locks.released.notify_all();
    }
    MemoryWriteLock(const MemoryWriteLock&) = delete;
    MemoryWriteLock& operator=(const MemoryWriteLock&) = delete;

private:
    std::string m_key;
};

} // namespace

std::unique_ptr<ILayerWriteLock> MemoryApplication::LockLayerForWriting(const std::string& folder,
                                                                        const std::string& name) {
    std::string baseName = name;
    if (baseName.ends_with(".shp")) {
        baseName.resize(baseName.size() - 4);
    }
    const std::string key = folder + "/" + baseName;
    LockRegistry& locks = Locks();
    std::unique_lock<std::mutex> guard(locks.mutex);
    if (!locks.released.wait_for(guard, m_writeLockWait,
                                 [&] { return locks.held.count(key) == 0; })) {
        throw Error(error_number::kHostLayerLocked, kSource,
                    "Another run is writing the layer " + key);
    }
    locks.held.insert(key);
    return std::make_unique<MemoryWriteLock>(key);
}

} // namespace quorel::host::memory
