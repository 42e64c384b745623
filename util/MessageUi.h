#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorel::util {

enum class MessageIcon { None, Critical, Exclamation, Information, Question };

// Everything the component shows or sounds goes through this: a modal box with one OK button,
// the system beep, and the busy pointer. Qt, console and recording implementations exist.
class IMessageUi {
public:
    virtual ~IMessageUi() = default;
    // No title means the component's default title.
    virtual void MessageBox(const std::string& text, MessageIcon icon,
                            const std::optional<std::string>& title = std::nullopt) = 0;
    virtual void Beep() = 0;
    virtual void SetBusy(bool busy) = 0;
};

// The default title of the component's boxes.
inline constexpr const char* kDefaultTitle = "Quorel";

// Prints each box to standard error, its title on the first line when it has one.
class ConsoleMessageUi final : public IMessageUi {
public:
    void MessageBox(const std::string& text, MessageIcon icon,
                    const std::optional<std::string>& title = std::nullopt) override;
    void Beep() override;
    void SetBusy(bool busy) override;
};

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
