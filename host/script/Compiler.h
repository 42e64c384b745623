#pragma once

#include "host/script/Code.h"

#include <string>

namespace quorel::host::script {

// Parses the statements and the expression in one pass and emits column code directly, without
// a syntax tree, so that neither long expressions nor deep nesting can exhaust the stack. Throws
// quorel::Error (kSyntaxError) naming the line of the first error.
CompiledScript CompileScript(const std::string& preExpression, const std::string& expression);

} // namespace quorel::host::script
