#pragma once

#include "util/ListControl.h"

#include <QMetaObject>

#include <functional>

class QListWidget;

namespace quorel::dialog {

// A list box seen through the members the logic uses. The click handler runs when the user
// changes the selection and when SetListIndex makes an entry current, once per call.
class QtListControl final : public util::IListControl {
public:
    explicit QtListControl(QListWidget& list);
    ~QtListControl() override;
    QtListControl(const QtListControl&) = delete;
    QtListControl& operator=(const QtListControl&) = delete;

    // The list box's click event; none by default.
    void SetClickHandler(std::function<void()> handler);

    int ListCount() const override;
    std::string List(int index) const override;
    int ListIndex() const override;
    void SetListIndex(int index) override;
    void AddItem(const std::string& text) override;
    void Clear() override;

    // The text of the selected entry, empty when none is.
    std::string Text() const { return List(ListIndex()); }

    QListWidget& Widget() const { return m_list; }

private:
    QListWidget& m_list;
    std::function<void()> m_onClick;
    bool m_settingIndex = false;
    QMetaObject::Connection m_connection;
};

} // namespace quorel::dialog
