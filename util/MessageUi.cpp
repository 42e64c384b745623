#include "util/MessageUi.h"

#include <iostream>

namespace quorel::util {

void ConsoleMessageUi::MessageBox(const std::string& text, MessageIcon /*icon*/,
                                  const std::optional<std::string>& title) {
    // Boxes use CR LF between lines; a terminal wants LF only.
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            continue;
        }
        shown += text[i];
    }
    if (title && !title->empty()) {
        std::cerr << *title << '\n';
    }
    std::cerr << shown << std::endl;
}

void ConsoleMessageUi::Beep() {}

void ConsoleMessageUi::SetBusy(bool /*busy*/) {}

} // namespace quorel::util
