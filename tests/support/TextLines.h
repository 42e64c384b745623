#pragma once

#include <string>
#include <vector>

namespace quorel::test {

// The lines of a text whose lines end with CR LF; the piece after the last CR LF is a line too.
inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (;;) {
        const auto end = text.find("\r\n", start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start));
            return lines;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
}

} // namespace quorel::test
