#include "host/memory/MemoryHost.h"
#include "host/api/LayerList.h"

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
// The group-layer interface id, for listing group layers.
constexpr const char* kGroupLayerInterfaceId = "{EDAD6644-1810-11D1-86AE-0000F8751720}";

[[noreturn]] void ThrowInvalidIndex(std::int32_t index) {
    throw Error(error_number::kHostInvalidIndex, kSource, "Invalid index " + std::to_string(index));
}

class MemoryStatisticsResults final : public IStatisticsResults {
public:
    explicit MemoryStatisticsResults(const std::vector<double>& numbers) {
        m_count = static_cast<std::int32_t>(numbers.size());
        if (numbers.empty()) {
            return;
        }
        m_minimum = *std::min_element(numbers.begin(), numbers.end());
        m_maximum = *std::max_element(numbers.begin(), numbers.end());
        double sum = 0;
        for (double number : numbers) {
            sum += number;
        }
        m_mean = sum / static_cast<double>(numbers.size());
        double squares = 0;
        for (double number : numbers) {
            squares += (number - m_mean) * (number - m_mean);
        }
        m_deviation = std::sqrt(squares / static_cast<double>(numbers.size()));
    }
    std::int32_t Count() const override { return m_count; }
    double Minimum() const override { return m_minimum; }
    double Maximum() const override { return m_maximum; }
    double Mean() const override { return m_mean; }
    double StandardDeviation() const override { return m_deviation; }

private:
    std::int32_t m_count = 0;
    double m_minimum = 0;
    double m_maximum = 0;
    double m_mean = 0;
    double m_deviation = 0;
};

} // namespace

MemoryField::MemoryField(std::string name, std::int32_t type, std::string alias)
    : m_name(std::move(name)), m_type(type), m_alias(std::move(alias)) {}

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
        featureClass->m_fields->Add(std::make_shared<MemoryField>(field.name, field.type));
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
    if (m_failNumber != 0) {
        const std::int32_t number = std::exchange(m_failNumber, 0);
        throw Error(number, kSource, m_failDescription);
    }
    if (field.Name().empty() || m_fields->FindField(field.Name()) >= 0 ||
        (m_nameByteLimit && FieldNameByteLength(field.Name()) > *m_nameByteLimit)) {
        throw Error(error_number::kHostFailure, kSource, "Cannot add field '" + field.Name() + "'");
    }
    m_fields->Add(std::make_shared<MemoryField>(field.Name(), field.Type(), field.AliasName()));
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

void MemoryFeatureClass::FailNextAddField(std::int32_t number, const std::string& description) {
    m_failNumber = number;
    m_failDescription = description;
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

std::shared_ptr<ICursor> MemoryFeatureLayer::Search(bool recycling) {
    if (!m_class) {
        throw Error(error_number::kObjectRequired, kSource, "Layer has no feature class");
    }
    return m_class->Search(recycling);
}

std::shared_ptr<ILayer> MemoryGroupLayer::Layer(std::int32_t index) const {
    if (index < 0 || index >= Count()) {
        ThrowInvalidIndex(index);
    }
    return m_layers[static_cast<std::size_t>(index)];
}

std::shared_ptr<ILayer> MemoryMap::Layer(std::int32_t index) const {
    if (index < 0 || index >= LayerCount()) {
        ThrowInvalidIndex(index);
    }
    return m_layers[static_cast<std::size_t>(index)];
}

void MemoryMap::AddLayer(std::shared_ptr<ILayer> layer) {
    m_layers.push_back(std::move(layer));
    std::rotate(m_layers.rbegin(), m_layers.rbegin() + 1, m_layers.rend());
}

void MemoryMap::DeleteLayer(const std::shared_ptr<ILayer>& layer) {
    std::erase(m_layers, layer);
}

std::unique_ptr<IEnumLayer> MemoryMap::Layers(const UID& uid, bool recursive) const {
    auto wanted = [&](const std::shared_ptr<ILayer>& layer) {
        if (uid.Value == kFeatureLayerInterfaceId) {
            return std::dynamic_pointer_cast<IFeatureLayer>(layer) != nullptr;
        }
        if (uid.Value == kGroupLayerInterfaceId) {
            return std::dynamic_pointer_cast<IGroupLayer>(layer) != nullptr;
        }
        return true;
    };
    std::vector<std::shared_ptr<ILayer>> found;
    std::function<void(const std::shared_ptr<ILayer>&)> visit =
        [&](const std::shared_ptr<ILayer>& layer) {
            if (wanted(layer)) {
                found.push_back(layer);
            }
            const auto group = std::dynamic_pointer_cast<IGroupLayer>(layer);
            if (recursive && group) {
                for (std::int32_t i = 0; i < group->Count(); ++i) {
                    visit(group->Layer(i));
                }
            }
        };
    for (const auto& layer : m_layers) {
        visit(layer);
    }
    return std::make_unique<LayerList>(std::move(found));
}

void MemoryStatusBar::Message(std::int32_t pane, const std::string& text) {
    m_panes[pane] = text;
    history.emplace_back(pane, text);
}

std::string MemoryStatusBar::MessageText(std::int32_t pane) const {
    const auto it = m_panes.find(pane);
    return it == m_panes.end() ? std::string() : it->second;
}

void MemoryCalculator::Calculate() {
    if (!m_engine) {
        throw Error(error_number::kHostFailure, kSource, "No calculation engine");
    }
    m_engine(*this);
}

void MemoryDataStatistics::SetCursor(std::shared_ptr<ICursor> cursor) {
    m_cursor = std::move(cursor);
    m_collected = false;
}

void MemoryDataStatistics::Collect() {
    if (m_collected) {
        return;
    }
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "No cursor");
    }
    const std::int32_t index = m_cursor->Fields()->FindField(m_field);
    if (index < 0) {
        throw Error(error_number::kHostFailure, kSource, "No field '" + m_field + "'");
    }
    m_values.clear();
    while (const auto row = m_cursor->NextRow()) {
        m_values.push_back(row->GetValue(index));
    }
    m_collected = true;
}

std::vector<Value> MemoryDataStatistics::UniqueValues() {
    Collect();
    std::vector<Value> unique;
    for (const auto& value : m_values) {
        if (!IsNull(value) && std::find(unique.begin(), unique.end(), value) == unique.end()) {
            unique.push_back(value);
        }
    }
    return unique;
}

std::int32_t MemoryDataStatistics::UniqueValueCount() {
    return static_cast<std::int32_t>(UniqueValues().size());
}

std::shared_ptr<IStatisticsResults> MemoryDataStatistics::Statistics() {
    Collect();
    std::vector<double> numbers;
    for (const auto& value : m_values) {
        if (const auto* number = std::get_if<double>(&value)) {
            numbers.push_back(*number);
        }
    }
    return std::make_shared<MemoryStatisticsResults>(numbers);
}

std::shared_ptr<IFieldEdit> MemoryObjectFactory::NewField() {
    return std::make_shared<MemoryField>();
}

std::shared_ptr<ICalculator> MemoryObjectFactory::NewCalculator() {
    auto calculator = std::make_shared<MemoryCalculator>(m_application.CalculatorEngine());
    m_application.calculators.push_back(calculator);
    return calculator;
}

std::shared_ptr<IDataStatistics> MemoryObjectFactory::NewDataStatistics() {
    return std::make_shared<MemoryDataStatistics>();
}

std::shared_ptr<IWorkspaceFactory> MemoryObjectFactory::NewShapefileWorkspaceFactory() {
    return m_application.Workspaces();
}

std::shared_ptr<IFeatureLayer> MemoryObjectFactory::NewFeatureLayer() {
    return std::make_shared<MemoryFeatureLayer>();
}

MemoryApplication::MemoryApplication() {
    m_extensions[kEditorExtensionId] = m_editor;
}

std::shared_ptr<IExtension> MemoryApplication::FindExtensionByCLSID(const UID& uid) const {
    const auto it = m_extensions.find(uid.Value);
    return it == m_extensions.end() ? nullptr : it->second;
}

std::shared_ptr<MemoryMap> MemoryApplication::FocusMemoryMap() const {
    return std::dynamic_pointer_cast<MemoryMap>(m_document->FocusMap());
}

void MemoryApplication::RegisterExtension(const std::string& id,
                                          std::shared_ptr<IExtension> extension) {
    m_extensions[id] = std::move(extension);
}

std::shared_ptr<MemoryFeatureLayer>
MemoryApplication::AddFeatureLayer(const std::string& folder, const std::string& name,
                                   std::int32_t shapeType,
                                   const std::vector<MemoryFeatureClass::FieldSpec>& fields) {
    auto featureClass =
        MemoryFeatureClass::Create(m_workspaces->Workspace(folder), name, shapeType, fields);
    auto layer = std::make_shared<MemoryFeatureLayer>(name, featureClass);
    m_document->FocusMap()->AddLayer(layer);
    return layer;
}

} // namespace quorel::host::memory

namespace quorel::host::memory {

void MemoryDocument::SetFocusMap(std::shared_ptr<IMap> map) {
    const auto old = m_map;
    m_map = std::move(map);
    if (auto* source = dynamic_cast<MemoryMap*>(old.get())) {
        source->ViewHandlers().Raise([](IMapActiveViewEvents& h) { h.FocusMapChanged(); });
    }
}

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
