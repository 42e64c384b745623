#pragma once

#include "lang/Module1.h"
#include "util/TextSource.h"

namespace quorel::dialog {

// The texts of the current language, wherever gResource stands now: every load of the
// definition dialog makes a new one. Empty texts while there is none.
class CurrentTexts final : public util::ITextSource {
public:
    explicit CurrentTexts(const lang::Module1& module1) : m_module1(module1) {}

    std::string ResourceString(std::int16_t id) const override {
        const lang::clsResourceMDB* resource = m_module1.gResource();
        return resource == nullptr ? std::string() : resource->ResourceString(id);
    }

private:
    const lang::Module1& m_module1;
};

} // namespace quorel::dialog
