#pragma once

// The field calculator's script engine: the subset of VBScript that the generated criterion
// scripts and simple user scripts need. A script is parsed once, then evaluated over columns of
// field values, many features per call, so that a run is not one tree walk per feature.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quorel::host::script {

// Values of one field (or of the result) for a batch of features. isNull[i] != 0 means the
// feature's value is Null (values[i] is then meaningless).
struct Column {
    std::vector<double> values;
    std::vector<std::uint8_t> isNull;

    std::size_t size() const { return values.size(); }
    void resize(std::size_t n) {
        values.resize(n);
        isNull.resize(n);
    }
};

class Program {
public:
    // Parses the pre-expression (statements, may be empty) and the expression (e.g. "Val").
    // A syntax error throws quorel::Error (error_number::kSyntaxError) whose description names
    // the line.
    static Program Compile(const std::string& preExpression, const std::string& expression);

    Program(Program&&) noexcept;
    Program& operator=(Program&&) noexcept;
    ~Program();

    // Field names referenced as [name], in order of first appearance; Evaluate takes one input
    // column per name, in this order.
    const std::vector<std::string>& FieldNames() const;

    // Evaluates the script once per feature of the batch: inputs[k] holds the values of
    // FieldNames()[k] (all of the same size; a NaN value counts as Null); output is resized and
    // receives the expression's value per feature (Null where the value is Null or Empty).
    // Without fields, output.size() on entry gives the number of features.
    // A failing feature stops the batch with the error the first failing feature raises:
    // quorel::Error 11 "Division by zero", 6 "Overflow" (also 0/0), 5 "Invalid procedure call
    // or argument". Thread-safe: each call works in its own storage.
    void Evaluate(const std::vector<const Column*>& inputs, Column& output) const;

private:
    friend class Evaluator;
    struct Impl;
    explicit Program(std::unique_ptr<Impl> impl);
    void CheckInputs(const std::vector<const Column*>& inputs, const Column& output) const;
    std::unique_ptr<Impl> m_impl;
};

class Machine;

// Evaluates one program batch after batch on one thread, keeping its working storage from one
// batch to the next (Program::Evaluate sets it up anew each time). The program must outlive it.
class Evaluator {
public:
    explicit Evaluator(const Program& program);
    Evaluator(Evaluator&&) noexcept;
    Evaluator& operator=(Evaluator&&) noexcept;
    ~Evaluator();

    // As Program::Evaluate.
    void Evaluate(const std::vector<const Column*>& inputs, Column& output);

private:
    const Program* m_program;
    std::unique_ptr<Machine> m_machine;
};

} // namespace quorel::host::script
