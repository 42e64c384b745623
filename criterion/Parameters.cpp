#include "criterion/Parameters.h"

#include "criterion/FuzzyKind.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"
#include "util/TextSource.h"

namespace quorel::criterion {

double ParseNumberText(std::string_view text, double defaultValue) {
    try {
        const std::string trimmed = util::LocalizeDecimal(std::string(text));
        if (trimmed.empty()) {
            return defaultValue;
        }
        return util::ParseDecimal(trimmed, util::DecimalSeparator()).value_or(defaultValue);
    } catch (...) {
        return defaultValue;
    }
}

void CompleteParameters(int kind, double& a, double& b, double& c, double& d) {
    switch (kind) {
    case Singleton:
        b = 1e14;
        c = 1e15;
        d = 1e16;
        break;
    case Triangle:
        d = 1e15;
        break;
    case RisingRamp:
        c = 1e14;
        d = 1e15;
        break;
    case FallingRamp:
        d = b;
        c = a;
        a = -1e16;
        b = -1e15;
        break;
    default:
        break;
    }
}

bool CheckParameterOrder(double a, double b, double c, double d) {
    return b >= a && c >= b && d >= c;
}

std::string ParameterOrderMessage(const util::ITextSource& texts, double a, double b, double c,
                                  double d) {
    const char mark = util::DecimalSeparator();
    std::string message = texts.ResourceString(kTextParametersOutOfOrder);
    for (const double value : {a, b, c, d}) {
        message += ':';
        message += util::FormatNumber(value, mark);
    }
    return message;
}

} // namespace quorel::criterion
