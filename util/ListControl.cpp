#include "util/ListControl.h"

namespace quorel::util {

int SelectListItem(IListControl& list, const std::string& text) {
    try {
        const int count = list.ListCount();
        for (int i = 0; i < count; ++i) {
            if (list.List(i) == text) {
                list.SetListIndex(i);
                return i;
            }
        }
    } catch (...) {
        // A failing list is left as it is.
    }
    return -1;
}

} // namespace quorel::util
