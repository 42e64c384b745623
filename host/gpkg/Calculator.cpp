#include "host/gpkg/GeoPackage.h"

#include "host/gpkg/Sqlite.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"

#include <cmath>
#include <optional>

namespace quorel::host::gpkg {
namespace {

constexpr const char* kSource = "Calculator";
constexpr const char* kFunctionName = "quorel_calculated_value";

// What the registered function works with while the UPDATE runs: the script engine, one input
// column per field the script reads, one row at a time.
struct Evaluation {
    explicit Evaluation(const script::Program& program)
        : evaluator(program), inputs(program.FieldNames().size()) {
        for (script::Column& input : inputs) {
            input.resize(1);
            pointers.push_back(&input);
        }
    }
    script::Evaluator evaluator;
    std::vector<script::Column> inputs;
    std::vector<const script::Column*> pointers;
    script::Column output;
    std::optional<Error> failure;
    std::size_t done = 0;
    std::size_t total = 0;
    std::size_t nextReport = 0;
    IStatusBar* statusBar = nullptr;
};

void CalculatedValue(sqlite3_context* context, int count, sqlite3_value** arguments) {
    auto& evaluation = *static_cast<Evaluation*>(sqlite3_user_data(context));
    try {
        for (int k = 0; k < count; ++k) {
            script::Column& input = evaluation.inputs[static_cast<std::size_t>(k)];
            // A number, or a text that reads as one, as SQLite's numeric affinity does; else Null.
            const int type = sqlite3_value_numeric_type(arguments[k]);
            const bool isNumber = type == SQLITE_INTEGER || type == SQLITE_FLOAT;
            input.isNull[0] = isNumber ? 0 : 1;
            input.values[0] = isNumber ? sqlite3_value_double(arguments[k]) : 0.0;
        }
        evaluation.output.resize(1);
        evaluation.evaluator.Evaluate(evaluation.pointers, evaluation.output);
        if (evaluation.output.isNull[0] != 0 || std::isnan(evaluation.output.values[0])) {
            sqlite3_result_null(context);
        } else {
            sqlite3_result_double(context, evaluation.output.values[0]);
        }
        if (++evaluation.done >= evaluation.nextReport && evaluation.statusBar &&
            evaluation.total > 0) {
            evaluation.statusBar->Progress(static_cast<double>(evaluation.done) /
                                           static_cast<double>(evaluation.total));
            evaluation.nextReport += evaluation.total / 100 + 1;
        }
    } catch (const Error& error) {
        evaluation.failure = error;
        sqlite3_result_error(context, error.Description().c_str(), -1);
    } catch (const std::exception& error) {
        evaluation.failure = Error(error_number::kHostFailure, kSource, error.what());
        sqlite3_result_error(context, error.what(), -1);
    }
}

// Takes the function off the connection however the calculation ends: it points at the
// calculation's own storage.
class RegisteredFunction {
public:
    RegisteredFunction(sqlite3* db, int arguments, Evaluation& evaluation)
        : m_db(db), m_arguments(arguments) {
        if (sqlite3_create_function_v2(db, kFunctionName, arguments, SQLITE_UTF8, &evaluation,
                                       CalculatedValue, nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw Error(error_number::kHostFailure, kSource, sqlite3_errmsg(db));
        }
    }
    ~RegisteredFunction() {
        sqlite3_create_function_v2(m_db, kFunctionName, m_arguments, SQLITE_UTF8, nullptr, nullptr,
                                   nullptr, nullptr, nullptr);
    }
    RegisteredFunction(const RegisteredFunction&) = delete;
    RegisteredFunction& operator=(const RegisteredFunction&) = delete;

private:
    sqlite3* m_db;
    int m_arguments;
};

const TableColumn* ColumnNamed(const std::vector<TableColumn>& columns, const std::string& name) {
    for (const TableColumn& column : columns) {
        if (column.name == name) {
            return &column;
        }
    }
    return nullptr;
}

bool IsNumeric(const TableColumn& column) {
    return !column.geometry && (column.primaryKey || column.type < kFieldTypeString);
}

} // namespace

void Calculator::Calculate() {
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "The calculator has no cursor");
    }
    auto* cursor = dynamic_cast<GeoPackageCursor*>(m_cursor.get());
    if (!cursor) {
        throw Error(error_number::kHostFailure, kSource,
                    "The calculator works on the cursors of GeoPackages only");
    }
    GeoPackageFeatureClass& featureClass = cursor->FeatureClass();
    const std::vector<TableColumn> columns = featureClass.Columns();
    const TableColumn* output = ColumnNamed(columns, m_field);
    if (!output) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + m_field);
    }
    if (!IsNumeric(*output) || output->primaryKey) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "Type mismatch: the field " + m_field + " is not numeric");
    }
    const script::Program program = script::Program::Compile(m_preExpression, m_expression);
    const std::string key = QuoteIdentifier(featureClass.PrimaryKey());
    std::string arguments;
    for (const std::string& name : program.FieldNames()) {
        const TableColumn* column = ColumnNamed(columns, name);
        std::string argument;
        if (column && IsNumeric(*column)) {
            argument = QuoteIdentifier(name);
        } else if (!column && name == "FID") {
            argument = key; // the feature's number, as a shapefile's FID is
        } else if (column) {
            throw Error(error_number::kTypeMismatch, kSource,
                        "Type mismatch: the field " + name + " is not numeric");
        } else {
            throw Error(error_number::kHostFailure, kSource, "Field not found: " + name);
        }
        arguments += (arguments.empty() ? "" : ", ") + argument;
    }
    if (cursor->AtEnd()) {
        return;
    }
    std::string where;
    if (const auto last = cursor->LastKey()) {
        where = " WHERE " + key + " > " + std::to_string(*last);
    }
    cursor->MoveToEnd();

    Database& database = featureClass.Db();
    Evaluation evaluation(program);
    const ProgressHiddenOnExit progressHidden(m_statusBar.get());
    evaluation.statusBar = m_statusBar.get();
    {
        Statement count(database.Handle(),
                        "SELECT count(*) FROM " + QuoteIdentifier(featureClass.Table()) + where);
        count.Step();
        evaluation.total = static_cast<std::size_t>(count.Integer(0));
    }
    const RegisteredFunction function(database.Handle(),
                                      static_cast<int>(program.FieldNames().size()), evaluation);
    Statement update(database.Handle(), "UPDATE " + QuoteIdentifier(featureClass.Table()) +
                                            " SET " + QuoteIdentifier(m_field) + " = " +
                                            kFunctionName + "(" + arguments + ")" + where);
    try {
        update.Step();
    } catch (const Error&) {
        if (evaluation.failure) {
            throw *evaluation.failure; // the script's own error (division by zero...)
        }
        throw;
    }
}

} // namespace quorel::host::gpkg
