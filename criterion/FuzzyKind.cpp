#include "criterion/FuzzyKind.h"

#include "util/Error.h"

#include <string>

namespace quorel::criterion {

const KindInfo& InfoOfKind(int kind) {
    static const std::array<KindInfo, 5> kKinds = {{
        {{true, false, false, false}, 101, 106, 135},
        {{true, true, true, false}, 102, 107, 136},
        {{true, true, false, false}, 103, 108, 137},
        {{true, true, false, false}, 104, 109, 138},
        {{true, true, true, true}, 105, 110, 139},
    }};
    if (!IsShapeKind(kind)) {
        throw Error(error_number::kSubscriptOutOfRange, "InfoOfKind",
                    "No fuzzy number kind " + std::to_string(kind));
    }
    return kKinds[static_cast<std::size_t>(kind - 1)];
}

} // namespace quorel::criterion
