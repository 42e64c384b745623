#pragma once

// The criterion run: what "Calculer" does. It adds a double field to the chosen layer's table,
// has the host's field calculator fill it with the degrees of the chosen criterion, records the
// criterion in the shapefile's metadata file (or, for a source that keeps its records inside its
// data, through host::ICriterionRecords) and lists the table's numeric fields again.

#include "host/api/Host.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quorel {
class Error;
}
namespace quorel::util {
class IMessageUi;
class ITextSource;
} // namespace quorel::util
namespace quorel::errors {
class ErrorLog;
}
namespace quorel::fzy {
class IO_fzyext;
}

namespace quorel::criterion {

// The component-wide state the run reads: the host application and the chosen layer (set when
// the user picks a layer), and the kind (set by the shape buttons). One object per loaded
// component; tests make their own.
struct ComponentState {
    std::shared_ptr<host::IApplication> g_app;
    std::string g_layer_name;
    std::string g_layer_path;
    std::int32_t g_layer_index = 0;
    std::int16_t kind = 0; // a FuzzyNumberKind
};

// The definition dialog's controls that the run reads and refills; the Qt dialog implements
// it, tests and the command line use plain implementations.
class IRunDialog {
public:
    virtual ~IRunDialog() = default;
    // Lst_fields: the selected entry's index (-1 for none) and text.
    virtual std::int32_t FieldListIndex() const = 0;
    virtual std::string FieldListText() const = 0;
    virtual void ClearFieldList() = 0;
    virtual void AddFieldListItem(const std::string& name) = 0;
    // Txt_val_a to Txt_val_d, box 0 to 3.
    virtual std::string ParameterText(int box) const = 0;
    // Txt_new_name.
    virtual std::string NewNameText() const = 0;
};

// Text ids of the run's messages.
inline constexpr std::int16_t kTextNoFieldSelected = 131;
inline constexpr std::int16_t kTextEditing = 133;
inline constexpr std::int16_t kTextComputing = 134;
inline constexpr std::int16_t kTextRunDone = 162;
// Refusals before anything is written: another run holds the layer, the layer or its metadata
// file cannot be written, the table is damaged. %1 is the layer's data (folder and name) or the
// metadata file.
inline constexpr std::int16_t kTextLayerBusy = 170;
inline constexpr std::int16_t kTextLayerReadOnly = 171;
inline constexpr std::int16_t kTextLayerDamaged = 172;
inline constexpr std::int16_t kTextMetadataReadOnly = 173;
inline constexpr std::int16_t kTextMetadataFull = 180;
inline constexpr std::int16_t kTextNameTooManyBytes = 181;
inline constexpr std::int16_t kTextNameOutsideCodePage = 182;
inline constexpr std::int16_t kTextFieldKept = 183;

// What the dialog proposes as output name, before the source field's name.
inline constexpr const char* kProposedNamePrefix = "FZY_";

// How a run ended: message 162 reached, refused by a check (131, 132, 133, 180 to 182), or a
// reported error.
enum class RunOutcome { Done, Refused, Failed };

// How long a field name may be: 10 characters where the table keeps that rule and, for a table
// that sets one, a number of bytes of its encoding (host::IFeatureClass::FieldNameByteLimit).
struct FieldNameLimit {
    std::optional<std::size_t> maxBytes;
    std::optional<std::size_t> maxCharacters = 10;
    std::function<std::size_t(const std::string&)> byteLength;

    static FieldNameLimit Of(const host::IFeatureClass& table);
    bool Fits(const std::string& name) const;
};

// The output field's name: a name that fits the limit as typed; any other cut between
// characters to the longest beginning that fits and, while a field of the table bears it (exact
// comparison), numbered: the beginning of the cut name with the counter after it, as much of
// it as fits with the counter (9 characters with one digit, 8 with two...).
std::string MakeOutputFieldName(const std::string& typed, const host::IFields& fields,
                                const FieldNameLimit& limit = {});

// A name no field of the table bears: the name cut to fit the limit and, while taken, numbered
// as MakeOutputFieldName numbers a long name. For default names, which are numbered even when
// short.
std::string MakeUniqueFieldName(const std::string& typed, const host::IFields& fields,
                                const FieldNameLimit& limit = {});

// What every run that writes the chosen layer's table shares, its failures thrown from
// `procedure`:
// the layer's write lock, a refusal of the host worded with texts 170 to 172 (nothing changed);
std::unique_ptr<host::ILayerWriteLock>
LockChosenLayer(const ComponentState& state, const util::ITextSource& texts, const char* procedure);
// the chosen layer of the focus map, which must be a feature layer;
std::shared_ptr<host::IFeatureLayer> ChosenFeatureLayer(const ComponentState& state,
                                                        const char* procedure);
// the host's editor, whose state 1 (editing) refuses a run.
std::shared_ptr<host::IEditor> HostEditor(const ComponentState& state, const char* procedure);

class CriterionRun {
public:
    CriterionRun(ComponentState& state, IRunDialog& dialog, util::IMessageUi& ui,
                 const util::ITextSource& texts, fzy::IO_fzyext& fzy, errors::ErrorLog& log)
        : m_state(state), m_dialog(dialog), m_ui(ui), m_texts(texts), m_fzy(fzy), m_log(log) {}

    // The click of cmd_go. Reports its own failures (ReportError, "cmd_go_Click").
    RunOutcome RunCriterion();

    // The step marker where the last run ended.
    int StepMarker() const { return m_step; }

private:
    struct HostObjects;
    struct RunParameters {
        int kind = 0;
        double a = 0, b = 0, c = 0, d = 0;
    };

    // The run's steps, in order. A step that refuses returns the message to show.
    std::optional<RunParameters> ReadParameters();
    void OpenMetadata();
    std::shared_ptr<host::ICriterionRecords> ChosenLayerRecords() const noexcept;
    std::unique_ptr<host::ILayerWriteLock> LockLayerForRun();
    std::optional<std::string> TakeLayer(HostObjects& host);
    std::optional<std::string> ChooseOutputName(HostObjects& host);
    void AddOutputField(HostObjects& host);
    void Calculate(HostObjects& host, const RunParameters& p);
    void RecordCriterion(const HostObjects& host, const RunParameters& p);
    void RefillFieldList(HostObjects& host);
    void ReleaseHostObjects(HostObjects& host);
    // However the run ends: the metadata file closed, the layer unlocked, the normal pointer.
    void TidyUp() noexcept;
    Error ReportedError(const std::exception& caught,
                        const std::optional<std::string>& keptField) const;

    ComponentState& m_state;
    IRunDialog& m_dialog;
    util::IMessageUi& m_ui;
    const util::ITextSource& m_texts;
    fzy::IO_fzyext& m_fzy;
    errors::ErrorLog& m_log;
    int m_step = 0;
    bool m_busy = false;
    bool m_metadataOpen = false;
    std::unique_ptr<host::ILayerWriteLock> m_writeLock;
    // The chosen layer's records when its source keeps them; nullptr: the metadata file.
    std::shared_ptr<host::ICriterionRecords> m_records;
};

} // namespace quorel::criterion
