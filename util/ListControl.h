#pragma once

#include <string>

namespace quorel::util {

// The few members of a list box that the logic uses; the Qt list box implements it in the
// dialogs, tests use a plain implementation.
class IListControl {
public:
    virtual ~IListControl() = default;
    virtual int ListCount() const = 0;
    virtual std::string List(int index) const = 0;
    // -1 when no entry is current.
    virtual int ListIndex() const = 0;
    // Makes an entry current and raises the list's selection event, as a click by the user would.
    virtual void SetListIndex(int index) = 0;
    virtual void AddItem(const std::string& text) = 0;
    virtual void Clear() = 0;
};

// Selects the first entry equal to text (exact comparison) and returns its position, or -1 and
// leaves the list as it was.
int SelectListItem(IListControl& list, const std::string& text);

} // namespace quorel::util
