#pragma once

#include <optional>
#include <string>

namespace quorel::util {

enum class MessageIcon { None, Critical, Exclamation, Information, Question };

// Everything the component shows or sounds goes through this: a modal box with one OK button,
// the system beep, and the busy pointer. Qt and console implementations exist (tests record).
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

} // namespace quorel::util
