#include "criterion/AggregationRun.h"

#include "criterion/Preview.h"

#include "errors/Component.h"
#include "errors/ErrorLog.h"
#include "fzy/AggregationRecords.h"
#include "fzy/IO_fzyext.h"
#include "util/AutomationDate.h"
#include "util/Error.h"
#include "util/MessageUi.h"
#include "util/ScopeGuard.h"
#include "util/TextSource.h"

#include <ctime>

namespace quorel::criterion {
namespace {

constexpr const char* kFormName = "FrmAggregation";
constexpr const char* kProcedureName = "cmd_go_Click";
// The table already has an attribute of this name.
constexpr std::int16_t kTextNameInUse = 157;

} // namespace

std::unique_ptr<fzy::IAggregationRecords> LayerAggregationRecords(const ComponentState& state) {
    const auto layer = ChosenFeatureLayer(state, kProcedureName);
    return fzy::OpenAggregationRecords(layer->FeatureClass(), state.g_layer_path,
                                       state.g_layer_name);
}

struct AggregationRun::HostObjects {
    std::unique_ptr<host::ILayerWriteLock> lock;
    std::shared_ptr<host::IFeatureLayer> layer;
    std::shared_ptr<host::IFeatureClass> featureClass;
    std::shared_ptr<host::IStatusBar> statusBar;
    std::optional<std::string> keptField;
};

RunOutcome AggregationRun::Run(const AggregationChoice& choice) {
    m_outputName.clear();
    if (const auto refusal = CheckAggregation(choice.aggregation, choice.inputs.size(), m_texts)) {
        m_ui.MessageBox(*refusal, util::MessageIcon::Critical);
        return RunOutcome::Refused;
    }
    std::optional<std::string> refusal;
    std::optional<Error> failure;
    {
        m_ui.SetBusy(true);
        HostObjects host;
        // The layer let go and the normal pointer back however the run ends.
        const util::ScopeGuard tidyUp([this, &host]() noexcept {
            m_openRecords.reset();
            host.lock.reset();
            m_ui.SetBusy(false);
        });
        try {
            refusal = Prepare(host, choice);
            if (!refusal) {
                refusal = ChooseOutputName(host, choice.outputName);
            }
            if (!refusal) {
                refusal = Calculate(host, choice);
            }
            if (!refusal) {
                Record(choice);
            }
            if (host.lock) {
                host.lock->Commit(); // after a refusal, only the validation was written
            }
        } catch (const std::exception& caught) {
            const auto* error = dynamic_cast<const Error*>(&caught);
            Error reported =
                error ? *error : Error(error_number::kHostFailure, kProcedureName, caught.what());
            // A source whose writes are one transaction undoes the field with the rest.
            if (host.keptField && !(host.lock && host.lock->UndoesUncommittedWrites())) {
                reported =
                    Error(reported.Number(), reported.Source(),
                          reported.Description() + "\r\n" + m_texts.ResourceString(kTextFieldKept) +
                              " " + *host.keptField);
            }
            failure = reported;
        }
    }
    if (refusal) {
        m_outputName.clear();
        m_ui.MessageBox(*refusal, util::MessageIcon::Critical);
        return RunOutcome::Refused;
    }
    if (failure) {
        m_log.ReportError(*failure, kFormName, kProcedureName, true, 0, "", true);
        return RunOutcome::Failed;
    }
    m_ui.MessageBox(m_texts.ResourceString(kTextAggregationDone) + " " + m_outputName,
                    util::MessageIcon::None);
    return RunOutcome::Done;
}

// The layer locked and taken, its records validated, the editing check, the inputs checked:
// fields of the table, numeric (their values are checked when the field is calculated).
std::optional<std::string> AggregationRun::Prepare(HostObjects& host,
                                                   const AggregationChoice& choice) {
    host.lock = LockChosenLayer(m_state, m_texts, kProcedureName);
    m_openRecords = m_records(m_state);
    if (!m_openRecords->Writable()) {
        throw Error(error_number::kPermissionDenied, kProcedureName,
                    FillPlaceholders(m_texts.ResourceString(kTextMetadataReadOnly),
                                     {m_openRecords->Location()}));
    }
    host.layer = ChosenFeatureLayer(m_state, kProcedureName);
    host.featureClass = host.layer->FeatureClass();
    const auto fields = host.featureClass->Fields();
    m_openRecords->Validate(
        [&fields](const std::string& name) { return fields->FindField(name) >= 0; });
    if (HostEditor(m_state, kProcedureName)->EditState() == host::kEditStateEditing) {
        return m_texts.ResourceString(kTextEditing);
    }
    return CheckInputFieldsExist(*host.featureClass, choice.inputs, m_texts);
}

std::optional<std::string> AggregationRun::ChooseOutputName(HostObjects& host,
                                                            const std::string& typed) {
    const auto fields = host.featureClass->Fields();
    const FieldNameLimit limit = FieldNameLimit::Of(*host.featureClass);
    if (typed.empty() || typed == kDefaultAggregationName) {
        m_outputName = MakeUniqueFieldName(kDefaultAggregationName, *fields, limit);
        return std::nullopt;
    }
    const std::string name = MakeOutputFieldName(typed, *fields, limit);
    if (!limit.Fits(name)) {
        return m_texts.ResourceString(kTextNameTooManyBytes) + " " + typed;
    }
    if (fields->FindField(name) >= 0) {
        return m_texts.ResourceString(kTextNameInUse) + " " + name;
    }
    m_outputName = name;
    return std::nullopt;
}

// Every input value in [0, 1], the output field added, then filled by the host's calculator,
// the status bar saying so. A calculator that checks the values as it reads them spares the
// table a read of its own, and drops the field when it refuses.
std::optional<std::string> AggregationRun::Calculate(HostObjects& host,
                                                     const AggregationChoice& choice) {
    const auto calculator = m_state.g_app->Factory().NewCalculator();
    auto* checking = dynamic_cast<host::IRangeCheckingCalculator*>(calculator.get());
    if (checking && checking->ChecksRangeOf(*host.featureClass)) {
        checking->SetRangeCheck(choice.inputs, 0, 1);
    } else if (auto refusal =
                   CheckInputRange(*host.featureClass->Search(true), choice.inputs, m_texts)) {
        return refusal;
    }

    const auto field = m_state.g_app->Factory().NewField();
    field->SetName(m_outputName);
    field->SetType(host::kFieldTypeDouble);
    field->SetAliasName(m_outputName);
    host.featureClass->AddField(*field);
    host.keptField = m_outputName;

    host.statusBar = m_state.g_app->StatusBar();
    host.statusBar->Message(0, m_texts.ResourceString(kTextAggregating));
    calculator->SetCursor(host.featureClass->Search(true));
    calculator->SetPreExpression(AggregationScript(choice.aggregation, choice.inputs));
    calculator->SetExpression("Val");
    calculator->SetField(m_outputName);
    try {
        calculator->Calculate();
    } catch (const host::ValuesOutsideRange& refused) {
        host.keptField.reset();
        host.statusBar->Message(0, "");
        return InputRangeRefusal(refused.Outside(), choice.inputs, m_texts);
    }
    host.statusBar->Message(0, "");
    return std::nullopt;
}

void AggregationRun::Record(const AggregationChoice& choice) {
    fzy::AggregationRecord record;
    record.field = m_outputName;
    record.inputs = choice.inputs;
    record.op = AggregationOperatorName(choice.aggregation.op);
    if (TakesGamma(choice.aggregation.op)) {
        record.gamma = choice.aggregation.gamma;
    }
    if (TakesWeights(choice.aggregation.op)) {
        record.weights = choice.aggregation.weights;
    }
    record.created = util::IsoDateTime(std::time(nullptr));
    record.version = errors::ComponentVersionText();
    record.description = fzy::DescribeAggregationRecord(record, m_texts);
    m_openRecords->Append(record);
}

} // namespace quorel::criterion
