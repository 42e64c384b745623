#include "criterion/RunCriterion.h"

#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "criterion/SqlExpression.h"
#include "errors/Component.h"
#include "errors/ErrorLog.h"
#include "fzy/FzyFormat.h"
#include "fzy/IO_fzyext.h"
#include "util/AutomationDate.h"
#include "util/Error.h"
#include "util/FileReplacement.h"
#include "util/MessageUi.h"
#include "util/ScopeGuard.h"
#include "util/TextSource.h"

#include <algorithm>
#include <ctime>
#include <exception>

namespace quorel::criterion {
namespace {

constexpr const char* kFormName = "frm_back";
constexpr const char* kProcedureName = "cmd_go_Click";

// Names are cut by characters, not bytes.
std::size_t CharacterCount(const std::string& text) {
    std::size_t count = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            ++count;
        }
    }
    return count;
}

std::string FirstCharacters(const std::string& text, std::size_t count) {
    std::size_t seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            if (seen == count) {
                return text.substr(0, i);
            }
            ++seen;
        }
    }
    return text;
}

bool TableHasField(const host::IFields& fields, const std::string& name) {
    for (std::int32_t i = 0; i < fields.FieldCount(); ++i) {
        if (fields.Field(i)->Name() == name) {
            return true;
        }
    }
    return false;
}

// The longest beginning of text, cut between characters, that fits the limit with suffix after
// it.
std::string FittingBeginning(const std::string& text, const std::string& suffix,
                             const FieldNameLimit& limit) {
    std::size_t count = CharacterCount(text);
    if (limit.maxCharacters) {
        const std::size_t most = *limit.maxCharacters;
        count = std::min(count, most - std::min(most, CharacterCount(suffix)));
    }
    std::string candidate = FirstCharacters(text, count) + suffix;
    while (count > 0 && !limit.Fits(candidate)) {
        --count;
        candidate = FirstCharacters(text, count) + suffix;
    }
    return candidate;
}

std::string WithArgument(std::string text, const std::string& argument) {
    const auto at = text.find("%1");
    if (at != std::string::npos) {
        text.replace(at, 2, argument);
    }
    return text;
}

} // namespace

std::unique_ptr<host::ILayerWriteLock> LockChosenLayer(const ComponentState& state,
                                                       const util::ITextSource& texts,
                                                       const char* procedure) {
    if (!state.g_app) {
        throw Error(error_number::kObjectRequired, procedure,
                    "Object required: no host application");
    }
    try {
        return state.g_app->LockLayerForWriting(state.g_layer_path, state.g_layer_name);
    } catch (const Error& refused) {
        std::int16_t text = 0;
        switch (refused.Number()) {
        case error_number::kHostLayerLocked:
            text = kTextLayerBusy;
            break;
        case error_number::kHostLayerReadOnly:
            text = kTextLayerReadOnly;
            break;
        case error_number::kHostLayerDamaged:
            text = kTextLayerDamaged;
            break;
        default:
            throw;
        }
        const std::string layer = fzy::JoinFolder(state.g_layer_path, state.g_layer_name);
        throw Error(refused.Number(), refused.Source(),
                    WithArgument(texts.ResourceString(text), layer) + "\r\n" +
                        refused.Description());
    }
}

std::shared_ptr<host::IFeatureLayer> ChosenFeatureLayer(const ComponentState& state,
                                                        const char* procedure) {
    if (!state.g_app) {
        throw Error(error_number::kObjectRequired, procedure,
                    "Object required: no host application");
    }
    auto layer = std::dynamic_pointer_cast<host::IFeatureLayer>(
        state.g_app->Document()->FocusMap()->Layer(state.g_layer_index));
    if (!layer) {
        throw Error(error_number::kTypeMismatch, procedure,
                    "Type mismatch: the layer at position " + std::to_string(state.g_layer_index) +
                        " is not a feature layer");
    }
    return layer;
}

std::shared_ptr<host::IEditor> HostEditor(const ComponentState& state, const char* procedure) {
    auto editor = std::dynamic_pointer_cast<host::IEditor>(
        state.g_app->FindExtensionByCLSID(host::UID{host::kEditorExtensionId}));
    if (!editor) {
        throw Error(error_number::kObjectRequired, procedure,
                    "Object required: the host has no editor extension");
    }
    return editor;
}

// Before anything is written: the layer's data locked for this run alone, found writable and
// whole, and its metadata file writable; then what killed runs left beside the metadata file
// goes. A refusal says so, and that nothing was changed, with the host's detail after it.
std::unique_ptr<host::ILayerWriteLock> CriterionRun::LockLayerForRun() {
    std::unique_ptr<host::ILayerWriteLock> lock = LockChosenLayer(m_state, m_texts, kProcedureName);
    if (m_records) {
        return lock;
    }
    const std::string metadata = fzy::MetadataFilePath(m_state.g_layer_path, m_state.g_layer_name);
    if (!fzy::MetadataFileWritable(metadata)) {
        throw Error(error_number::kPermissionDenied, kProcedureName,
                    WithArgument(m_texts.ResourceString(kTextMetadataReadOnly), metadata));
    }
    util::RemoveStaleReplacements(metadata);
    return lock;
}

FieldNameLimit FieldNameLimit::Of(const host::IFeatureClass& table) {
    return {table.FieldNameByteLimit(), table.FieldNameCharacterLimit(),
            [&table](const std::string& name) { return table.FieldNameByteLength(name); }};
}

bool FieldNameLimit::Fits(const std::string& name) const {
    if (maxCharacters && CharacterCount(name) > *maxCharacters) {
        return false;
    }
    return !maxBytes || (byteLength ? byteLength(name) : name.size()) <= *maxBytes;
}

std::string MakeUniqueFieldName(const std::string& typed, const host::IFields& fields,
                                const FieldNameLimit& limit) {
    const std::string cut = FittingBeginning(typed, "", limit);
    std::string candidate = cut;
    int counter = 0;
    while (TableHasField(fields, candidate)) {
        ++counter;
        candidate = FittingBeginning(cut, std::to_string(counter), limit);
    }
    return candidate;
}

std::string MakeOutputFieldName(const std::string& typed, const host::IFields& fields,
                                const FieldNameLimit& limit) {
    if (limit.Fits(typed)) {
        return typed;
    }
    return MakeUniqueFieldName(typed, fields, limit);
}

// The host objects a run holds, released in turn at its end.
struct CriterionRun::HostObjects {
    std::shared_ptr<host::IFeatureLayer> layer;
    std::shared_ptr<host::IFeatureClass> featureClass;
    std::shared_ptr<host::IEditor> editor;
    std::shared_ptr<host::IFields> fields;
    std::shared_ptr<host::IFieldEdit> newField;
    std::shared_ptr<host::ICalculator> calculator;
    std::shared_ptr<host::ICursor> cursor;
    std::shared_ptr<host::IStatusBar> statusBar;
    std::string sourceName;
    std::string outputName;
    // Set once the output field is in the table: it stays there whatever fails after.
    std::optional<std::string> keptField;
};

RunOutcome CriterionRun::RunCriterion() {
    m_step = 1;
    if (m_dialog.FieldListIndex() == -1) {
        m_ui.MessageBox(m_texts.ResourceString(kTextNoFieldSelected), util::MessageIcon::Critical);
        return RunOutcome::Refused;
    }
    const std::optional<RunParameters> parameters = ReadParameters();
    if (!parameters) {
        return RunOutcome::Refused;
    }

    std::optional<std::string> refusal;
    std::optional<Error> failure;
    {
        // The normal pointer, the closed metadata file and the layer let go, however the run
        // ends, before it says how it ended.
        const util::ScopeGuard tidyUp([this] { TidyUp(); });
        HostObjects host;
        try {
            OpenMetadata();
            refusal = TakeLayer(host);
            if (!refusal) {
                refusal = ChooseOutputName(host);
            }
            if (refusal && m_writeLock) {
                m_writeLock->Commit(); // nothing written but the validation, which stays
            }
            if (!refusal) {
                AddOutputField(host);
                Calculate(host, *parameters);
                RecordCriterion(host, *parameters);
                RefillFieldList(host);
                ReleaseHostObjects(host);
            }
        } catch (const std::exception& caught) {
            failure = ReportedError(caught, host.keptField);
        }
    }
    if (refusal) {
        m_ui.MessageBox(*refusal, util::MessageIcon::Critical);
        return RunOutcome::Refused;
    }
    if (failure) {
        m_log.ReportError(*failure, kFormName, kProcedureName, true, 0,
                          "Debug=" + std::to_string(m_step), true);
        return RunOutcome::Failed;
    }
    m_ui.MessageBox(m_texts.ResourceString(kTextRunDone), util::MessageIcon::None);
    // Nothing is pending here: the report shows nothing.
    m_log.ReportError(Error(0, "", ""), kFormName, kProcedureName, true, 0,
                      "Debug=" + std::to_string(m_step), true);
    return RunOutcome::Done;
}

// The boxes' values completed for the kind; nullopt, the message shown, when out of order.
std::optional<CriterionRun::RunParameters> CriterionRun::ReadParameters() {
    RunParameters p;
    p.kind = m_state.kind;
    p.a = ParseNumberText(m_dialog.ParameterText(0), kDefaultA);
    p.b = ParseNumberText(m_dialog.ParameterText(1), kDefaultBCD);
    p.c = ParseNumberText(m_dialog.ParameterText(2), kDefaultBCD);
    p.d = ParseNumberText(m_dialog.ParameterText(3), kDefaultBCD);
    CompleteParameters(p.kind, p.a, p.b, p.c, p.d);
    if (!CheckParameterOrder(p.a, p.b, p.c, p.d)) {
        m_ui.MessageBox(ParameterOrderMessage(m_texts, p.a, p.b, p.c, p.d),
                        util::MessageIcon::Critical);
        return std::nullopt;
    }
    return p;
}

// The busy pointer, the layer locked, the metadata file (or the source's own records) opened
// and validated.
void CriterionRun::OpenMetadata() {
    m_ui.SetBusy(true);
    m_busy = true;
    m_step = 101;
    m_records = ChosenLayerRecords();
    m_writeLock = LockLayerForRun();
    if (m_records) {
        m_records->RemoveRecordsOfMissingColumns();
        return;
    }
    m_fzy.fzy_io_open(m_state.g_layer_path, m_state.g_layer_name);
    m_metadataOpen = true;
    m_fzy.fzy_io_valid(m_state.g_layer_name, m_state.g_layer_path);
}

// The records of the layer at the chosen position, when its source keeps them. A layer that
// cannot be taken here has none: taking it again later reports why, as for a shapefile.
std::shared_ptr<host::ICriterionRecords> CriterionRun::ChosenLayerRecords() const noexcept {
    try {
        const auto document = m_state.g_app ? m_state.g_app->Document() : nullptr;
        const auto map = document ? document->FocusMap() : nullptr;
        if (!map || m_state.g_layer_index < 0 || m_state.g_layer_index >= map->LayerCount()) {
            return nullptr;
        }
        const auto layer =
            std::dynamic_pointer_cast<host::IFeatureLayer>(map->Layer(m_state.g_layer_index));
        return layer ? std::dynamic_pointer_cast<host::ICriterionRecords>(layer->FeatureClass())
                     : nullptr;
    } catch (...) {
        return nullptr;
    }
}

// The chosen layer and its feature class; a refusal while the host's editor is editing.
std::optional<std::string> CriterionRun::TakeLayer(HostObjects& host) {
    host.layer = ChosenFeatureLayer(m_state, kProcedureName);
    m_step = 102;
    host.featureClass = host.layer->FeatureClass();
    m_step = 2;
    host.editor = HostEditor(m_state, kProcedureName);
    if (host.editor->EditState() == host::kEditStateEditing) {
        return m_texts.ResourceString(kTextEditing);
    }
    m_step = 4; // markers 3 and 4 both: the editing check has passed
    return std::nullopt;
}

// The source field's name and the output name; a refusal when the output name cannot be used.
std::optional<std::string> CriterionRun::ChooseOutputName(HostObjects& host) {
    host.fields = host.featureClass->Fields();
    const std::string selected = m_dialog.FieldListText();
    const std::int32_t sourceIndex = host.featureClass->FindField(selected);
    m_step = 41;
    if (sourceIndex < 0) {
        throw Error(error_number::kHostFailure, kProcedureName, "Field not found: " + selected);
    }
    host.sourceName = host.fields->Field(sourceIndex)->Name();
    m_step = 42;
    const std::string typed = m_dialog.NewNameText();
    const FieldNameLimit limit = FieldNameLimit::Of(*host.featureClass);
    // The proposal is cut to fit, as a long name is; a short name the user typed is used as
    // typed, so it has to fit.
    const bool proposed = typed == kProposedNamePrefix + selected;
    const bool shortEnough = !limit.maxCharacters || CharacterCount(typed) <= *limit.maxCharacters;
    if (!proposed && shortEnough && !limit.Fits(typed)) {
        return m_texts.ResourceString(kTextNameTooManyBytes) + " " + typed + " (" +
               std::to_string(limit.byteLength(typed)) + " > " +
               std::to_string(limit.maxBytes.value_or(0)) + ")";
    }
    host.outputName = MakeOutputFieldName(typed, *host.fields, limit);
    if (m_records) {
        return std::nullopt; // the source's own records hold any name its table holds
    }
    // The metadata file keeps its code page, for the files' exchange with Windows: a name it
    // cannot hold would be recorded as another.
    if (!fzy::CodePageHolds(host.outputName)) {
        return m_texts.ResourceString(kTextNameOutsideCodePage) + " " + host.outputName;
    }
    // Once the field is added the description must follow: know now that it will fit.
    if (!m_fzy.NumberEntryFits(host.outputName, host.outputName, m_state.g_layer_path,
                               m_state.g_layer_name)) {
        return m_texts.ResourceString(kTextMetadataFull) + " " + m_fzy.OpenFilePath();
    }
    return std::nullopt;
}

void CriterionRun::AddOutputField(HostObjects& host) {
    host.newField = m_state.g_app->Factory().NewField();
    host.newField->SetName(host.outputName);
    host.newField->SetType(host::kFieldTypeDouble);
    host.newField->SetAliasName(host.outputName);
    host.featureClass->AddField(*host.newField);
    host.keptField = host.outputName;
    m_step = 7; // markers 6 and 7 both: the field is added
}

// The host's calculator fills the output field, the status bar saying so meanwhile.
void CriterionRun::Calculate(HostObjects& host, const RunParameters& p) {
    host.calculator = m_state.g_app->Factory().NewCalculator();
    m_step = 71;
    host.cursor = host.featureClass->Search(true);
    m_step = 8;
    host.statusBar = m_state.g_app->StatusBar();
    host.statusBar->Message(0, m_texts.ResourceString(kTextComputing));
    host.calculator->SetCursor(host.cursor);
    if (const auto script = BuildPreExpression(p.kind, host.sourceName, p.a, p.b, p.c, p.d)) {
        host.calculator->SetPreExpression(*script);
    }
    host.calculator->SetExpression(kCalculatorExpression);
    // A calculator that computes in its database takes the same degrees as one SQL expression.
    if (auto* sql = dynamic_cast<host::ISqlCalculator*>(host.calculator.get())) {
        if (const std::string dialect = sql->SqlDialect(); !dialect.empty()) {
            sql->SetSqlExpression(
                SqlExpression(dialect, p.kind, host.sourceName, p.a, p.b, p.c, p.d));
        }
    }
    host.calculator->SetField(host.outputName);
    host.calculator->Calculate();
    host.statusBar->Message(0, "");
}

// The criterion's description, then everything written under the lock made durable at once.
void CriterionRun::RecordCriterion(const HostObjects& host, const RunParameters& p) {
    if (m_records) {
        host::CriterionRecord record;
        record.table = host.featureClass->AliasName();
        record.column = host.outputName;
        record.sourceField = host.sourceName;
        record.kind = static_cast<std::int16_t>(p.kind);
        record.a = p.a;
        record.b = p.b;
        record.c = p.c;
        record.d = p.d;
        record.created = util::IsoDateTime(std::time(nullptr));
        record.version = errors::ComponentVersionText();
        record.description = fzy::FormatNumberDescription(m_texts, m_fzy.DecimalMark(), record,
                                                          m_state.g_layer_path);
        m_records->WriteRecord(record);
    } else {
        m_fzy.fzy_io_writenumber(host.outputName, host.outputName,
                                 static_cast<std::int16_t>(p.kind), p.a, p.b, p.c, p.d,
                                 m_state.g_layer_path, m_state.g_layer_name);
        m_metadataOpen = false;
        m_fzy.fzy_io_close();
    }
    if (m_writeLock) {
        m_writeLock->Commit();
    }
}

void CriterionRun::RefillFieldList(HostObjects& host) {
    m_dialog.ClearFieldList();
    host.fields = host.featureClass->Fields();
    for (std::int32_t i = 0; i < host.fields->FieldCount(); ++i) {
        m_step = 10;
        const auto field = host.fields->Field(i);
        if (field->Type() < host::kFieldTypeString) {
            m_dialog.AddFieldListItem(field->Name());
        }
    }
}

// Let go of the host objects in turn, as the component released its references.
void CriterionRun::ReleaseHostObjects(HostObjects& host) {
    int step = 11;
    auto release = [&](auto& object) {
        m_step = step++;
        object.reset();
    };
    release(host.cursor);
    release(host.calculator);
    release(host.newField);
    release(host.fields);
    release(host.editor);
    release(host.featureClass);
    release(host.layer);
    release(host.statusBar);
}

void CriterionRun::TidyUp() noexcept {
    if (m_metadataOpen) {
        m_metadataOpen = false;
        try {
            m_fzy.fzy_io_close();
        } catch (...) {
            // closing is best effort; the error being reported matters more
        }
    }
    m_writeLock.reset();
    if (m_busy) {
        m_busy = false;
        m_ui.SetBusy(false);
    }
}

// The error to report: the project's own as it is, any other as a host failure, and the kept
// output field named after it.
Error CriterionRun::ReportedError(const std::exception& caught,
                                  const std::optional<std::string>& keptField) const {
    const auto* error = dynamic_cast<const Error*>(&caught);
    Error reported =
        error ? *error : Error(error_number::kHostFailure, kProcedureName, caught.what());
    // A source whose writes are one transaction undoes the field with the rest.
    if (keptField && !(m_writeLock && m_writeLock->UndoesUncommittedWrites())) {
        reported = Error(reported.Number(), reported.Source(),
                         reported.Description() + "\r\n" + m_texts.ResourceString(kTextFieldKept) +
                             " " + *keptField);
    }
    return reported;
}

} // namespace quorel::criterion
