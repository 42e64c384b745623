#pragma once

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

namespace quorel::util {

// Puts items in the ascending order of their keys (one per item), equal keys keeping their order;
// then sorts the keys too. What was read row by row from a source that gives rows in no set
// order (a database table, in the order its rows lie on disk) is put in the order of their ids.
template <typename T, typename Key> void SortByKeys(std::vector<T>& items, std::vector<Key>& keys) {
    if (std::is_sorted(keys.begin(), keys.end())) {
        return;
    }
    std::vector<std::size_t> order(keys.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&keys](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    std::vector<T> sorted;
    sorted.reserve(items.size());
    for (const std::size_t i : order) {
        sorted.push_back(std::move(items[i]));
    }
    items = std::move(sorted);
    std::stable_sort(keys.begin(), keys.end());
}

} // namespace quorel::util
