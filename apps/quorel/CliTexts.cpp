#include "apps/quorel/CliTexts.h"

namespace quorel::cli {
namespace {

// Until a text database is loaded, every text is empty.
class NoTexts final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t /*id*/) const override { return {}; }
};

} // namespace

const util::ITextSource& CliTexts() {
    static const NoTexts texts;
    return texts;
}

} // namespace quorel::cli
