#pragma once

// The aggregation run: what the aggregation window's "Calculer" and `quorel aggregate` do. Like
// the criterion run it adds a double field to the chosen layer's table through the host and has
// the host's field calculator fill it (so the table is rewritten as safely, with the same
// progress, lock and editing check), here with the combined degree of the input fields; then it
// records the aggregation.

#include "criterion/Aggregation.h"
#include "criterion/RunCriterion.h"
#include "fzy/AggregationRecords.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorel::criterion {

// The output name proposed, numbered like a criterion's default name when the table has it.
inline constexpr const char* kDefaultAggregationName = "FZY_AGG";

struct AggregationChoice {
    std::vector<std::string> inputs; // field names, in the operator's order
    Aggregation aggregation;
    std::string outputName; // empty or kDefaultAggregationName: the default, numbered
};

// Where the chosen layer's aggregation records go. The default keeps them where the layer's
// criterion records go: beside a shapefile (fzy::AggregationSidecar), in a database's own data
// (a feature class that is a host::ICriterionRecords). Tests pass their own.
using AggregationRecordsFactory =
    std::function<std::unique_ptr<fzy::IAggregationRecords>(const ComponentState& state)>;
std::unique_ptr<fzy::IAggregationRecords> LayerAggregationRecords(const ComponentState& state);

class AggregationRun {
public:
    AggregationRun(ComponentState& state, util::IMessageUi& ui, const util::ITextSource& texts,
                   errors::ErrorLog& log,
                   AggregationRecordsFactory records = LayerAggregationRecords)
        : m_state(state), m_ui(ui), m_texts(texts), m_log(log), m_records(std::move(records)) {}

    // Reports its own failures (ReportError) and refusals (a message box); nothing of the table
    // changes on a refusal.
    RunOutcome Run(const AggregationChoice& choice);

    // The field the last run added (empty when it added none).
    const std::string& OutputName() const { return m_outputName; }

private:
    struct HostObjects;
    std::optional<std::string> Prepare(HostObjects& host, const AggregationChoice& choice);
    std::optional<std::string> ChooseOutputName(HostObjects& host, const std::string& typed);
    std::optional<std::string> Calculate(HostObjects& host, const AggregationChoice& choice);
    void Record(const AggregationChoice& choice);

    ComponentState& m_state;
    util::IMessageUi& m_ui;
    const util::ITextSource& m_texts;
    errors::ErrorLog& m_log;
    AggregationRecordsFactory m_records;
    std::unique_ptr<fzy::IAggregationRecords> m_openRecords;
    std::string m_outputName;
};

} // namespace quorel::criterion
