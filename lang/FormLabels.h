#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorel::lang {

// The members of a control that the labelling of forms touches. A setter returns false when the
// control has no such property; the labeller then goes on with the next step.
class ILabelledControl {
public:
    virtual ~ILabelledControl() = default;
    virtual std::string Name() const = 0;
    virtual std::string Tag() const = 0;
    virtual std::optional<std::string> Caption() const = 0;
    virtual bool SetCaption(const std::string& caption) = 0;
    virtual bool SetText(const std::string& text) = 0;
    virtual bool SetToolTipText(const std::string& text) = 0;
    // Gives the control its form's font.
    virtual bool UseFormFont() = 0;
    // Gives the control a new font of that name, its other attributes at their defaults.
    virtual bool SetFontName(const std::string& fontName) = 0;
};

// A form: its own Tag and caption (the window title) and its controls in the form's order.
class ILabelledForm {
public:
    virtual ~ILabelledForm() = default;
    virtual std::string Name() const = 0;
    virtual std::string Tag() const = 0;
    virtual void SetCaption(const std::string& caption) = 0;
    virtual std::vector<ILabelledControl*> Controls() = 0;
};

// A control held in memory, for tests and for the command line. Properties the control lacks
// are nullopt; setting them fails.
struct PlainControl final : ILabelledControl {
    std::string name;
    std::string tag;
    std::optional<std::string> caption;
    std::optional<std::string> text;
    std::optional<std::string> toolTipText;
    std::optional<std::string> fontName; // "(form)" once given the form's font

    std::string Name() const override { return name; }
    std::string Tag() const override { return tag; }
    std::optional<std::string> Caption() const override { return caption; }
    bool SetCaption(const std::string& value) override { return Set(caption, value); }
    bool SetText(const std::string& value) override { return Set(text, value); }
    bool SetToolTipText(const std::string& value) override { return Set(toolTipText, value); }
    bool UseFormFont() override { return Set(fontName, "(form)"); }
    bool SetFontName(const std::string& value) override { return Set(fontName, value); }

private:
    static bool Set(std::optional<std::string>& property, const std::string& value) {
        if (!property) {
            return false;
        }
        *property = value;
        return true;
    }
};

struct PlainForm final : ILabelledForm {
    std::string name;
    std::string tag;
    std::string caption;
    std::vector<PlainControl> controls;

    std::string Name() const override { return name; }
    std::string Tag() const override { return tag; }
    void SetCaption(const std::string& value) override { caption = value; }
    std::vector<ILabelledControl*> Controls() override {
        std::vector<ILabelledControl*> result;
        for (PlainControl& control : controls) {
            result.push_back(&control);
        }
        return result;
    }
    PlainControl* Find(const std::string& controlName) {
        for (PlainControl& control : controls) {
            if (control.name == controlName) {
                return &control;
            }
        }
        return nullptr;
    }
};

} // namespace quorel::lang
