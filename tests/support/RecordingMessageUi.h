#pragma once

#include "util/MessageUi.h"

#include <optional>
#include <string>
#include <vector>

namespace quorel::util {

// Keeps every box, beep and pointer change for the tests to examine.
class RecordingMessageUi final : public IMessageUi {
public:
    struct Box {
        std::string text;
        MessageIcon icon;
        std::optional<std::string> title;
    };

    void MessageBox(const std::string& text, MessageIcon icon,
                    const std::optional<std::string>& title = std::nullopt) override {
        boxes.push_back({text, icon, title});
    }
    void Beep() override { ++beeps; }
    void SetBusy(bool on) override {
        busy = on;
        busyChanges.push_back(on);
    }

    std::vector<Box> boxes;
    int beeps = 0;
    bool busy = false;
    std::vector<bool> busyChanges;
};

} // namespace quorel::util
