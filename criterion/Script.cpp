#include "criterion/Script.h"

#include "criterion/FuzzyKind.h"
#include "util/NumberText.h"

#include <vector>

namespace quorel::criterion {

std::optional<std::string> BuildPreExpression(int kind, const std::string& field, double a,
                                              double b, double c, double d) {
    if (!IsShapeKind(kind)) {
        return std::nullopt;
    }
    const std::string A = util::FormatNumber(a);
    const std::string B = util::FormatNumber(b);
    const std::string C = util::FormatNumber(c);
    const std::string D = util::FormatNumber(d);
    const std::string F = "[" + field + "]";

    std::vector<std::string> lines;
    switch (kind) {
    case Singleton:
        lines = {"dim Val ", "if " + F + "<>" + A + " then", "Val=0", "else", " Val=1 ", "end if"};
        break;
    case Triangle:
        lines = {"dim Val ",
                 "dim Fac ",
                 "dim A ",
                 "A= (1/(" + B + " -" + A + "))",
                 "Dim B ",
                 "B= (1/(" + B + " -" + C + "))",
                 "if " + F + " < " + A + " then ",
                 "Val=0",
                 "end if",
                 "if " + F + " >= " + A + " and  " + F + " < " + B + " then",
                 "Fac =1-(" + B + "* A)",
                 "Val= (" + F + "*A)+ Fac",
                 "end if",
                 "if " + F + " = " + B + " then ",
                 " Val =1",
                 "end if",
                 "if " + F + " > " + B + " and  " + F + " <= " + C + " then ",
                 "Fac =1-(" + B + "*B)",
                 "Val= (" + F + "*B)+ Fac",
                 " end if ",
                 "if " + F + " > " + C + " then ",
                 "Val=0",
                 "end if "};
        break;
    case RisingRamp:
        lines = {"dim Val ",
                 "dim Fac ",
                 "dim A ",
                 "A= (1/(" + B + " -" + A + "))",
                 "Dim B ",
                 "B= (1/(" + B + " -" + C + "))",
                 "if " + F + " <= " + A + " then ",
                 "Val=0",
                 " end if ",
                 "if " + F + " >=" + A + " and " + F + " <=" + B + " then ",
                 "Fac =1-(" + B + "* A)",
                 "Val= (" + F + "*A)+ Fac",
                 "end if",
                 "if " + F + " >=" + B + " then ",
                 " Val =1",
                 "end if "};
        break;
    case FallingRamp:
        lines = {"dim Val ",
                 "dim Fac ",
                 "dim A ",
                 "A= (1/(" + C + " -" + D + "))",
                 "dim B ",
                 "B= (1/(" + B + " -" + C + "))",
                 "if " + F + " <= " + C + " then ",
                 "Val=1",
                 "end if ",
                 "if " + F + " >= " + C + " and " + F + " <= " + D + " then ",
                 "Fac =1-(" + C + "* A)",
                 "Val= (" + F + "*A)+ Fac",
                 "end if ",
                 "if " + F + " >= " + D + " then ",
                 " Val =0",
                 "end if "};
        break;
    case Trapezoid:
        lines = {"dim Val ",
                 "dim Fac ",
                 "dim A ",
                 "A= (1/(" + B + " -" + A + "))",
                 "dim B ",
                 "B= (1/(" + C + " -" + D + "))",
                 "if " + F + " <= " + A + " then ",
                 " Val=0",
                 " end if",
                 "if " + F + " >= " + A + " and " + F + " <= " + B + " then ",
                 "Fac =1-(" + B + "* A)",
                 "Val= (" + F + "*A)+ Fac",
                 "end if",
                 "if " + F + " >= " + B + " and " + F + " <= " + C + " then",
                 " Val =1",
                 "end if",
                 "if " + F + " >= " + C + " and " + F + " <= " + D + " then",
                 "",
                 "Fac =1-(" + C + "*B)",
                 "Val= (" + F + "*B)+ Fac",
                 "end if",
                 "if " + F + " > " + D + " then",
                 "Val=0",
                 "end if  "};
        break;
    default:
        break;
    }

    return JoinScriptLines(lines);
}

std::string JoinScriptLines(const std::vector<std::string>& lines) {
    std::string script;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) {
            script += "\r\n";
        }
        script += lines[i];
    }
    return script;
}

} // namespace quorel::criterion
