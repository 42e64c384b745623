#include "host/script/ScriptEngine.h"

#include "host/script/Code.h"
#include "host/script/Compiler.h"
#include "host/script/Machine.h"
#include "util/Error.h"

namespace quorel::host::script {

struct Program::Impl {
    CompiledScript script;
};

Program::Program(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
Program::Program(Program&&) noexcept = default;
Program& Program::operator=(Program&&) noexcept = default;
Program::~Program() = default;

Program Program::Compile(const std::string& preExpression, const std::string& expression) {
    auto impl = std::make_unique<Impl>();
    impl->script = CompileScript(preExpression, expression);
    return Program(std::move(impl));
}

const std::vector<std::string>& Program::FieldNames() const {
    return m_impl->script.fieldNames;
}

void Program::Evaluate(const std::vector<const Column*>& inputs, Column& output) const {
    Evaluator(*this).Evaluate(inputs, output);
}

void Program::CheckInputs(const std::vector<const Column*>& inputs, const Column& output) const {
    const std::vector<std::string>& names = m_impl->script.fieldNames;
    if (inputs.size() != names.size()) {
        throw Error(error_number::kInvalidArgument, "Field calculator script",
                    "The script reads " + std::to_string(names.size()) + " fields but " +
                        std::to_string(inputs.size()) + " columns were given");
    }
    const std::size_t count = inputs.empty() ? output.size() : inputs.front()->size();
    for (std::size_t k = 0; k < inputs.size(); ++k) {
        if (inputs[k] == nullptr || inputs[k]->values.size() != count ||
            inputs[k]->isNull.size() != count) {
            throw Error(error_number::kInvalidArgument, "Field calculator script",
                        "The column of field " + names[k] + " does not have " +
                            std::to_string(count) + " values");
        }
    }
}

Evaluator::Evaluator(const Program& program)
    : m_program(&program), m_machine(std::make_unique<Machine>(program.m_impl->script)) {}
Evaluator::Evaluator(Evaluator&&) noexcept = default;
Evaluator& Evaluator::operator=(Evaluator&&) noexcept = default;
Evaluator::~Evaluator() = default;

void Evaluator::Evaluate(const std::vector<const Column*>& inputs, Column& output) {
    m_program->CheckInputs(inputs, output);
    // Without fields the caller says how many features by the size of the output.
    const std::size_t count = inputs.empty() ? output.size() : inputs.front()->size();
    m_machine->Evaluate(inputs, count, output);
}

} // namespace quorel::host::script
