#include "host/gdal/Calculator.h"

#include "host/gdal/DbfTable.h"
#include "host/gdal/Shapefile.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <memory>
#include <optional>
#include <vector>

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

const DbfField& NumericColumn(const DbfHeader& header, const std::string& name) {
    const auto found = header.Find(name);
    if (!found) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + name);
    }
    const DbfField& field = header.fields[*found];
    if (!field.IsNumeric()) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "Type mismatch: the field " + name + " is not numeric");
    }
    return field;
}

// Fills the output column of a batch of records with the script's value per record.
class ScriptFiller final : public DbfColumnFiller {
public:
    ScriptFiller(const script::Program& program, const DbfHeader& layout, std::string output)
        : m_program(program), m_output(NumericColumn(layout, output)),
          m_outputName(std::move(output)), m_recordLength(layout.recordLength) {
        // Each referenced name is a numeric column, or FID, the record's number.
        for (const std::string& name : program.FieldNames()) {
            if (name == "FID" && !layout.Find(name)) {
                m_inputs.emplace_back(std::nullopt);
            } else {
                m_inputs.emplace_back(NumericColumn(layout, name));
            }
        }
    }

    // The columns and the evaluator of one thread.
    struct Work final : Scratch {
        explicit Work(const script::Program& program, std::size_t inputCount)
            : evaluator(program), inputs(inputCount) {
            for (const script::Column& input : inputs) {
                inputPointers.push_back(&input);
            }
        }
        script::Evaluator evaluator;
        std::vector<script::Column> inputs;
        std::vector<const script::Column*> inputPointers;
        script::Column output;
    };

    std::unique_ptr<Scratch> NewScratch() const override {
        return std::make_unique<Work>(m_program, m_inputs.size());
    }

    void Fill(std::size_t firstRecord, std::size_t count, char* records,
              Scratch* scratch) const override {
        std::unique_ptr<Scratch> own;
        if (scratch == nullptr) {
            own = NewScratch();
            scratch = own.get();
        }
        Work& work = static_cast<Work&>(*scratch);
        for (std::size_t k = 0; k < m_inputs.size(); ++k) {
            script::Column& input = work.inputs[k];
            input.resize(count);
            if (m_inputs[k]) {
                m_inputs[k]->Read(records, m_recordLength, count, input.values.data(),
                                  input.isNull.data());
                continue;
            }
            for (std::size_t r = 0; r < count; ++r) {
                input.isNull[r] = 0;
                input.values[r] = static_cast<double>(firstRecord + r);
            }
        }
        script::Column& output = work.output;
        output.resize(count);
        work.evaluator.Evaluate(work.inputPointers, output);
        for (std::size_t r = 0; r < count; ++r) {
            char* record = Record(records, r);
            if (DbfBatchFile::IsDeleted(record)) {
                continue;
            }
            char* destination = record + m_output.offset;
            if (output.isNull[r] != 0) {
                FormatDbfNumber(std::nullopt, m_output, destination);
            } else if (!FormatDbfNumber(output.values[r], m_output, destination)) {
                throw Error(error_number::kOverflow, kSource,
                            "Overflow: " + util::FormatNumber(output.values[r]) +
                                " does not fit the field " + m_outputName + " (" +
                                std::to_string(m_output.length) + " characters)");
            }
        }
    }

private:
    char* Record(char* records, std::size_t index) const {
        return records + index * m_recordLength;
    }

    const script::Program& m_program;
    std::vector<std::optional<DbfNumberReader>> m_inputs; // none: FID
    DbfField m_output;
    std::string m_outputName;
    std::size_t m_recordLength;
};

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
    const ProgressGuard progressGuard(m_statusBar.get());
    ShapefileFeatureClass& featureClass = cursor->FeatureClass();

    if (cursor->AtStart() && featureClass.IsFieldPending(m_field)) {
        // A field just added: written once, with its values.
        std::size_t total = 0;
        featureClass.WritePendingField(
            [&](const DbfHeader& layout) {
                total = layout.recordCount;
                return std::make_unique<ScriptFiller>(program, layout, m_field);
            },
            [&](std::size_t done) { ShowProgress(done, total); }, m_sharing);
        cursor->MoveToEnd();
        return;
    }

    featureClass.WritePendingField();
    DbfBatchFile table(featureClass.DbfPath(), true, cursor->Position(), m_sharing.batchBytes);
    const DbfHeader& header = table.Header();
    const ScriptFiller filler(program, header, m_field);
    const std::unique_ptr<DbfColumnFiller::Scratch> scratch = filler.NewScratch();
    const std::size_t first = cursor->Position();
    const std::size_t total = header.recordCount > first ? header.recordCount - first : 0;
    std::size_t done = 0;
    while (table.Next()) {
        filler.Fill(table.BatchFirstRecord(), table.BatchSize(), table.Record(0), scratch.get());
        table.Write();
        done += table.BatchSize();
        ShowProgress(done, total);
    }
    cursor->MoveToEnd();
}

void Calculator::ShowProgress(std::size_t done, std::size_t total) {
    if (m_statusBar && total > 0) {
        m_statusBar->Progress(static_cast<double>(done) / static_cast<double>(total));
    }
}

} // namespace quorel::host::gdal
