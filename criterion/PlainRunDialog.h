#pragma once

#include "criterion/RunCriterion.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace quorel::criterion {

// The run's controls held as plain values: for the command line and for tests.
class PlainRunDialog final : public IRunDialog {
public:
    std::int32_t FieldListIndex() const override { return selected; }
    std::string FieldListText() const override {
        return selected >= 0 && static_cast<std::size_t>(selected) < fieldList.size()
                   ? fieldList[static_cast<std::size_t>(selected)]
                   : std::string();
    }
    void ClearFieldList() override {
        fieldList.clear();
        selected = -1;
    }
    void AddFieldListItem(const std::string& name) override { fieldList.push_back(name); }
    std::string ParameterText(int box) const override {
        return boxes.at(static_cast<std::size_t>(box));
    }
    std::string NewNameText() const override { return newName; }

    // Selects the first entry of that text; false when there is none.
    bool Select(const std::string& name) {
        const auto found = std::find(fieldList.begin(), fieldList.end(), name);
        selected =
            found == fieldList.end() ? -1 : static_cast<std::int32_t>(found - fieldList.begin());
        return selected >= 0;
    }

    std::vector<std::string> fieldList;
    std::int32_t selected = -1;
    std::array<std::string, 4> boxes;
    std::string newName;
};

} // namespace quorel::criterion
