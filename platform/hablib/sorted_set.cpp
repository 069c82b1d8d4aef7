#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "hablib.h"

struct sorted_set {
    sortedSet_compare compare;
    std::vector<void*> entries;

    // Returns the position of `probe`, or where it would be inserted.
    std::vector<void*>::const_iterator place(const void* probe) const {
        return std::lower_bound(entries.begin(), entries.end(), probe,
                                [this](const void* entry, const void* wanted) { return compare(entry, wanted) < 0; });
    }
    bool holds(std::vector<void*>::const_iterator place, const void* probe) const {
        return place != entries.end() && compare(*place, probe) == 0;
    }
};

sortedSet* sortedSet_init(size_t capacity, sortedSet_compare compare) {
    if (compare == nullptr) {
        return nullptr;
    }
    try {
        auto set = std::make_unique<sorted_set>();
        set->compare = compare;
        set->entries.reserve(capacity);
        return set.release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

int sortedSet_add(sortedSet* set, void* entry) {
    if (set == nullptr || entry == nullptr) {
        return 1;
    }
    try {
        const auto place = set->place(entry);
        if (set->holds(place, entry)) {
            return 1;
        }
        set->entries.insert(place, entry);
        return 0;
    } catch (const std::bad_alloc&) {
        return 1;
    }
}

void* sortedSet_find(const sortedSet* set, const void* probe) {
    if (set == nullptr || probe == nullptr) {
        return nullptr;
    }
    const auto place = set->place(probe);
    return set->holds(place, probe) ? *place : nullptr;
}

void* sortedSet_first(const sortedSet* set) {
    return set == nullptr || set->entries.empty() ? nullptr : set->entries.front();
}

int sortedSet_rem(sortedSet* set, const void* entry) {
    if (set == nullptr || entry == nullptr) {
        return 1;
    }
    const auto place = set->place(entry);
    if (!set->holds(place, entry)) {
        return 1;
    }
    set->entries.erase(place);
    return 0;
}

size_t sortedSet_len(const sortedSet* set) {
    return set == nullptr ? 0 : set->entries.size();
}

void sortedSet_destroy(sortedSet* set) {
    const std::unique_ptr<sorted_set> owned(set);
}
