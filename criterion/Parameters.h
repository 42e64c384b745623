#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorel::util {
class ITextSource;
}

namespace quorel::criterion {

// Defaults of empty or unreadable parameter boxes.
inline constexpr double kDefaultA = 0.0;
inline constexpr double kDefaultBCD = -9999.0;

// The text id of the refusal of parameters out of order.
inline constexpr std::int16_t kTextParametersOutOfOrder = 132;

// Reads one parameter box: blanks trimmed, either decimal mark accepted, the default for an
// empty or unreadable text. Never throws.
double ParseNumberText(std::string_view text, double defaultValue);

// Sets the parameters a kind does not use to fixed values; the falling ramp moves its a and b
// to c and d. Kind 0 and unknown kinds leave them as read.
void CompleteParameters(int kind, double& a, double& b, double& c, double& d);

// True when b >= a, c >= b and d >= c.
bool CheckParameterOrder(double a, double b, double c, double d);

// Text 132 followed by ":" and the four values, printed with the user's decimal mark.
std::string ParameterOrderMessage(const util::ITextSource& texts, double a, double b, double c,
                                  double d);

} // namespace quorel::criterion
