#pragma once
/// @file
/// Containers of the foundation. HashTable and HashSet enumerate in insertion
/// order; removal keeps the order of the rest; look-ups are O(1).

#include <cstddef>
#include <functional>
#include <list>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace ZR {

template <typename T>
class Array {
public:
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    Array() = default;
    Array(std::initializer_list<T> items) : mItems(items) {}

    std::size_t GetSize() const { return mItems.size(); }
    bool IsEmpty() const { return mItems.empty(); }
    T& operator[](std::size_t i) { return mItems.at(i); }
    const T& operator[](std::size_t i) const { return mItems.at(i); }
    T& GetLast() { return mItems.back(); }
    const T& GetLast() const { return mItems.back(); }

    void Add(const T& item) { mItems.push_back(item); }
    void Add(T&& item) { mItems.push_back(std::move(item)); }
    template <typename... A>
    T& Emplace(A&&... args) {
        return mItems.emplace_back(std::forward<A>(args)...);
    }
    void Insert(std::size_t at, const T& item) {
        mItems.insert(mItems.begin() + static_cast<std::ptrdiff_t>(at), item);
    }
    /// Removes one element; the others keep their order.
    void Remove(std::size_t at) { mItems.erase(mItems.begin() + static_cast<std::ptrdiff_t>(at)); }
    void Clear() { mItems.clear(); }
    void EnsureCapacity(std::size_t n) { mItems.reserve(n); }

    iterator begin() { return mItems.begin(); }
    iterator end() { return mItems.end(); }
    const_iterator begin() const { return mItems.begin(); }
    const_iterator end() const { return mItems.end(); }

    std::vector<T>& Std() { return mItems; }
    const std::vector<T>& Std() const { return mItems; }
    bool operator==(const Array& other) const = default;

private:
    std::vector<T> mItems;
};

/// The paged form differs only in allocation strategy, which callers never see.
template <typename T, int PageBits = 8>
class PagedArray : public Array<T> {
public:
    using Array<T>::Array;
};

namespace Internal {

// The index of an insertion-ordered table holds only list positions and finds
// them by the key stored in the list, so each key is kept once.
template <typename It, typename K, typename KeyOf, typename Hash, typename Eq>
struct PositionIndex {
    struct Hasher {
        using is_transparent = void;
        [[no_unique_address]] Hash hash;
        std::size_t operator()(const It& it) const { return hash(KeyOf()(*it)); }
        std::size_t operator()(const K& key) const { return hash(key); }
    };
    struct Equal {
        using is_transparent = void;
        [[no_unique_address]] Eq eq;
        bool operator()(const It& a, const It& b) const { return eq(KeyOf()(*a), KeyOf()(*b)); }
        bool operator()(const K& a, const It& b) const { return eq(a, KeyOf()(*b)); }
        bool operator()(const It& a, const K& b) const { return eq(KeyOf()(*a), b); }
    };
    using Set = std::unordered_set<It, Hasher, Equal>;
};

struct FirstOf {
    template <typename P>
    const auto& operator()(const P& pair) const {
        return pair.first;
    }
};
struct Itself {
    template <typename T>
    const T& operator()(const T& item) const {
        return item;
    }
};

}  // namespace Internal

template <typename K, typename V, typename Hash = std::hash<K>, typename Eq = std::equal_to<K>>
class HashTable {
public:
    using Entry = std::pair<const K, V>;
    using iterator = typename std::list<Entry>::iterator;
    using const_iterator = typename std::list<Entry>::const_iterator;

    HashTable() = default;
    HashTable(const HashTable& other) {
        Reserve(other.GetSize());
        for (const auto& e : other) Add(e.first, e.second);
    }
    HashTable& operator=(const HashTable& other) {
        if (this != &other) {
            Clear();
            Reserve(other.GetSize());
            for (const auto& e : other) Add(e.first, e.second);
        }
        return *this;
    }
    HashTable(HashTable&&) noexcept = default;
    HashTable& operator=(HashTable&&) noexcept = default;

    /// Keeps an existing key and answers false.
    bool Add(const K& key, const V& value) {
        if (mIndex.find(key) != mIndex.end()) return false;
        mEntries.emplace_back(key, value);
        Insert(std::prev(mEntries.end()));
        return true;
    }
    void Set(const K& key, const V& value) {
        auto it = mIndex.find(key);
        if (it != mIndex.end())
            (*it)->second = value;
        else
            Add(key, value);
    }
    bool Remove(const K& key) {
        auto it = mIndex.find(key);
        if (it == mIndex.end()) return false;
        const iterator entry = *it;
        mIndex.erase(it);
        mEntries.erase(entry);
        return true;
    }
    bool Contains(const K& key) const { return mIndex.find(key) != mIndex.end(); }
    V* Find(const K& key) {
        auto it = mIndex.find(key);
        return it == mIndex.end() ? nullptr : &(*it)->second;
    }
    const V* Find(const K& key) const {
        auto it = mIndex.find(key);
        return it == mIndex.end() ? nullptr : &(*it)->second;
    }
    std::size_t GetSize() const { return mEntries.size(); }
    bool IsEmpty() const { return mEntries.empty(); }
    /// Makes room for n entries, so that filling the table rehashes once.
    void Reserve(std::size_t n) { mIndex.reserve(n); }
    void Clear() {
        mIndex.clear();
        mEntries.clear();
    }

    iterator begin() { return mEntries.begin(); }
    iterator end() { return mEntries.end(); }
    const_iterator begin() const { return mEntries.begin(); }
    const_iterator end() const { return mEntries.end(); }

private:
    void Insert(iterator entry) {
        try {
            mIndex.insert(entry);
        } catch (...) {
            mEntries.erase(entry);
            throw;
        }
    }

    std::list<Entry> mEntries;
    typename Internal::PositionIndex<iterator, K, Internal::FirstOf, Hash, Eq>::Set mIndex;
};

template <typename K, typename Hash = std::hash<K>, typename Eq = std::equal_to<K>>
class HashSet {
public:
    using const_iterator = typename std::list<K>::const_iterator;

    HashSet() = default;
    HashSet(std::initializer_list<K> items) {
        for (const auto& k : items) Add(k);
    }
    HashSet(const HashSet& other) {
        Reserve(other.GetSize());
        for (const auto& k : other) Add(k);
    }
    HashSet& operator=(const HashSet& other) {
        if (this != &other) {
            Clear();
            Reserve(other.GetSize());
            for (const auto& k : other) Add(k);
        }
        return *this;
    }
    HashSet(HashSet&&) noexcept = default;
    HashSet& operator=(HashSet&&) noexcept = default;

    bool Add(const K& key) {
        if (mIndex.find(key) != mIndex.end()) return false;
        mItems.push_back(key);
        try {
            mIndex.insert(std::prev(mItems.end()));
        } catch (...) {
            mItems.pop_back();
            throw;
        }
        return true;
    }
    bool Remove(const K& key) {
        auto it = mIndex.find(key);
        if (it == mIndex.end()) return false;
        const auto item = *it;
        mIndex.erase(it);
        mItems.erase(item);
        return true;
    }
    bool Contains(const K& key) const { return mIndex.find(key) != mIndex.end(); }
    std::size_t GetSize() const { return mItems.size(); }
    bool IsEmpty() const { return mItems.empty(); }
    /// Makes room for n keys, so that filling the set rehashes once.
    void Reserve(std::size_t n) { mIndex.reserve(n); }
    void Clear() {
        mIndex.clear();
        mItems.clear();
    }

    const_iterator begin() const { return mItems.begin(); }
    const_iterator end() const { return mItems.end(); }

private:
    using Position = typename std::list<K>::iterator;
    std::list<K> mItems;
    typename Internal::PositionIndex<Position, K, Internal::Itself, Hash, Eq>::Set mIndex;
};

}  // namespace ZR
