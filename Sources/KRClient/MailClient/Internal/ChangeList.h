#pragma once
// A list of mail ids in the order they were added, with a count per id
// beside it, so that "is it there" and "take these out" stay linear in bulk.

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRC::Internal {

class ChangeList {
public:
    using Ids = ZR::PagedArray<ZR::UniString, 8>;

    bool Contains(const ZR::UniString& id) const { return mCount.count(id) != 0; }
    bool IsEmpty() const { return mIds.IsEmpty(); }
    std::size_t GetSize() const { return mIds.GetSize(); }
    const Ids& GetIds() const { return mIds; }

    void Append(const ZR::UniString& id) {
        mIds.Add(id);
        ++mCount[id];
    }
    /// Removes the first occurrence of each of ids that stands in the list.
    template <typename Range>
    void RemoveFirstOf(const Range& ids) {
        std::unordered_map<ZR::UniString, std::size_t> doomed;
        for (const ZR::UniString& id : ids) {
            auto it = mCount.find(id);
            if (it == mCount.end()) continue;
            std::size_t& n = doomed[id];
            if (n < it->second) ++n;
        }
        if (doomed.empty()) return;
        std::vector<ZR::UniString> kept;
        kept.reserve(mIds.GetSize());
        for (const ZR::UniString& id : mIds) {
            auto it = doomed.find(id);
            if (it != doomed.end() && it->second > 0) {
                --it->second;
                if (--mCount[id] == 0) mCount.erase(id);
                continue;
            }
            kept.push_back(id);
        }
        mIds.Std() = std::move(kept);
    }
    void Clear() {
        mIds.Clear();
        mCount.clear();
    }

private:
    Ids mIds;
    std::unordered_map<ZR::UniString, std::size_t> mCount;
};

}  // namespace KRC::Internal
