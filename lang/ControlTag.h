#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorel::lang {

// What a control's Tag asks for: the text id of its caption (0: none), a suffix appended to the
// caption (" :" when the Tag holds a colon), and the text id of its tooltip (0: none).
//   "12"     -> text 12
//   "12:"    -> text 12 followed by " :"
//   "tt=7"   -> tooltip 7 only
//   "tt=7,9" -> tooltip 7, and no caption: the rest of the Tag is not a number
struct ControlTag {
    std::int16_t textId = 0;
    std::string suffix;
    std::int16_t toolTipId = 0;

    bool operator==(const ControlTag&) const = default;
};

ControlTag ParseControlTag(std::string_view tag);

// A Tag (or a part of one) read as a text id: a number, blanks around it allowed, rounded to a
// whole number within the 16-bit range; nothing otherwise.
std::optional<std::int16_t> TagTextId(std::string_view text);

} // namespace quorel::lang
