#include "lang/ControlTag.h"

#include "util/StringFunctions.h"

#include <cmath>

namespace quorel::lang {

std::optional<std::int16_t> TagTextId(std::string_view text) {
    const auto number = util::ParseDecimal(text, util::DecimalSeparator());
    if (!number) {
        return std::nullopt;
    }
    const double rounded = std::nearbyint(*number);
    if (!(rounded >= -32768.0 && rounded <= 32767.0)) {
        return std::nullopt;
    }
    return static_cast<std::int16_t>(rounded);
}

ControlTag ParseControlTag(std::string_view tag) {
    ControlTag result;
    if (tag.empty()) {
        return result;
    }
    if (tag.find("tt=") != std::string_view::npos) {
        const std::string value = util::ValueAfterKey(tag, "tt=", ",", true);
        result.toolTipId = TagTextId(value).value_or(0);
    }
    std::string rest(tag);
    if (rest.find(':') != std::string::npos) {
        result.suffix = " :";
        std::erase(rest, ':');
    }
    result.textId = TagTextId(rest).value_or(0);
    return result;
}

} // namespace quorel::lang
