#pragma once

#include "host/api/Host.h"
#include "host/shapefile/DbfTable.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::shapefile {

struct DbfRangeCheck {
    std::vector<std::string> fields;
    double low = 0.0;
    double high = 0.0;
};

// The field calculator over a shapefile: compiles the pre-expression and the expression once,
// then works through the table in batches of records, reading the referenced columns straight
// from the .dbf and evaluating the whole batch at once. A field just added and not yet written
// (see ShapefileFeatureClass) is written with its values, the batches shared among the cores;
// an existing field is filled in place (a fixed-width column, so the table stays whole and
// readable whenever the work stops). Reports the fraction done to the status bar as it goes.
class Calculator final : public ICalculator, public IRangeCheckingCalculator {
public:
    explicit Calculator(std::shared_ptr<IStatusBar> statusBar)
        : m_statusBar(std::move(statusBar)) {}

    void SetCursor(std::shared_ptr<ICursor> cursor) override { m_cursor = std::move(cursor); }
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }
    // Computes the field for every feature from the cursor's position to the end. A failure
    // of the script (division by zero...) stops the work: a field just added stays, Null; in
    // an existing field the batches done so far stay written.
    void Calculate() override;

    // The values of a field just added are checked as they are read, the table left as it was
    // when some are out; an existing field's are checked in a pass of their own before.
    bool ChecksRangeOf(const IFeatureClass& table) const override;
    void SetRangeCheck(const std::vector<std::string>& fields, double low, double high) override {
        m_rangeCheck = DbfRangeCheck{fields, low, high};
    }

    // Records per batch are about this many bytes' worth (tests use small batches).
    void SetBatchBytes(std::size_t bytes) { m_sharing.batchBytes = bytes; }
    // Threads that share the work of a field just added (0, the default: one per core).
    void SetThreads(std::size_t threads) { m_sharing.threads = threads; }

private:
    void ShowProgress(std::size_t done, std::size_t total);

    std::shared_ptr<IStatusBar> m_statusBar;
    std::shared_ptr<ICursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
    std::optional<DbfRangeCheck> m_rangeCheck;
    DbfWorkSharing m_sharing;
};

} // namespace quorel::host::shapefile
