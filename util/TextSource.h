#pragma once

#include <cstdint>
#include <string>

namespace quorel::util {

// Looks a text up by its id in the current language; the empty string when there is none.
class ITextSource {
public:
    virtual ~ITextSource() = default;
    virtual std::string ResourceString(std::int16_t id) const = 0;
};

} // namespace quorel::util
