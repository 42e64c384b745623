#include "host/gdal/Calculator.h"

#include "host/gdal/DbfTable.h"
#include "host/gdal/Shapefile.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"
#include "util/NumberText.h"

namespace quorel::host::gdal {
namespace {

constexpr const char* kSource = "Calculator";

// Hides the progress however the calculation ends.
class ProgressGuard {
public:
    explicit ProgressGuard(IStatusBar* statusBar) : m_statusBar(statusBar) {}
    ~ProgressGuard() {
        if (m_statusBar) {
            try {
                m_statusBar->Progress(-1);
            } catch (...) {
                // a status bar that fails must not hide the calculation's own outcome
            }
        }
    }
    ProgressGuard(const ProgressGuard&) = delete;
    ProgressGuard& operator=(const ProgressGuard&) = delete;

private:
    IStatusBar* m_statusBar;
};

const DbfField& NumericColumn(const DbfHeader& header, const std::string& name,
                              std::size_t& column) {
    const auto found = header.Find(name);
    if (!found) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + name);
    }
    const DbfField& field = header.fields[*found];
    if (!field.IsNumeric()) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "Type mismatch: the field " + name + " is not numeric");
    }
    column = *found;
    return field;
}

} // namespace

void Calculator::Calculate() {
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "The calculator has no cursor");
    }
    auto* cursor = dynamic_cast<ShapefileCursor*>(m_cursor.get());
    if (!cursor) {
        throw Error(error_number::kHostFailure, kSource,
                    "The calculator works on the cursors of shapefiles only");
    }
    const script::Program program = script::Program::Compile(m_preExpression, m_expression);

    DbfBatchFile table(cursor->FeatureClass().DbfPath(), true, cursor->Position(), m_batchBytes);
    const DbfHeader& header = table.Header();
    std::size_t outputColumn = 0;
    const DbfField outputField = NumericColumn(header, m_field, outputColumn);

    // Each referenced name is a numeric column, or FID, the record's number.
    const std::vector<std::string>& names = program.FieldNames();
    std::vector<std::optional<DbfField>> inputFields;
    for (const std::string& name : names) {
        std::size_t column = 0;
        if (name == "FID" && !header.Find(name)) {
            inputFields.emplace_back(std::nullopt);
        } else {
            inputFields.emplace_back(NumericColumn(header, name, column));
        }
    }
    std::vector<script::Column> inputs(names.size());
    std::vector<const script::Column*> inputPointers;
    for (const auto& input : inputs) {
        inputPointers.push_back(&input);
    }
    script::Column output;

    const ProgressGuard progressGuard(m_statusBar.get());
    const std::size_t first = cursor->Position();
    const std::size_t total = header.recordCount > first ? header.recordCount - first : 0;
    std::size_t done = 0;
    while (table.Next()) {
        const std::size_t size = table.BatchSize();
        for (std::size_t k = 0; k < inputs.size(); ++k) {
            inputs[k].resize(size);
            for (std::size_t r = 0; r < size; ++r) {
                std::optional<double> value;
                if (inputFields[k]) {
                    value = ParseDbfNumber(FieldBytes(table.Record(r), *inputFields[k]));
                } else {
                    value = static_cast<double>(table.BatchFirstRecord() + r);
                }
                inputs[k].isNull[r] = value ? 0 : 1;
                inputs[k].values[r] = value.value_or(0.0);
            }
        }
        output.resize(size);
        program.Evaluate(inputPointers, output);
        for (std::size_t r = 0; r < size; ++r) {
            char* record = table.Record(r);
            if (DbfBatchFile::IsDeleted(record)) {
                continue;
            }
            const std::optional<double> value =
                output.isNull[r] ? std::nullopt : std::optional<double>(output.values[r]);
            if (!FormatDbfNumber(value, outputField, record + outputField.offset)) {
                throw Error(error_number::kOverflow, kSource,
                            "Overflow: " + util::FormatNumber(*value) + " does not fit the field " +
                                m_field + " (" + std::to_string(outputField.length) +
                                " characters)");
            }
        }
        table.Write();
        done += size;
        if (m_statusBar && total > 0) {
            m_statusBar->Progress(static_cast<double>(done) / static_cast<double>(total));
        }
    }
    cursor->MoveToEnd();
}

} // namespace quorel::host::gdal
