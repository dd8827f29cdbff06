#pragma once
/// @file
/// Containers of the foundation. HashTable and HashSet enumerate in insertion
/// order; removal keeps the order of the rest; look-ups are O(1).

#include <cstddef>
#include <functional>
#include <list>
#include <stdexcept>
#include <unordered_map>
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

template <typename K, typename V, typename Hash = std::hash<K>, typename Eq = std::equal_to<K>>
class HashTable {
public:
    using Entry = std::pair<const K, V>;
    using iterator = typename std::list<Entry>::iterator;
    using const_iterator = typename std::list<Entry>::const_iterator;

    HashTable() = default;
    HashTable(const HashTable& other) {
        for (const auto& e : other) Add(e.first, e.second);
    }
    HashTable& operator=(const HashTable& other) {
        if (this != &other) {
            Clear();
            for (const auto& e : other) Add(e.first, e.second);
        }
        return *this;
    }
    HashTable(HashTable&&) noexcept = default;
    HashTable& operator=(HashTable&&) noexcept = default;

    /// Keeps an existing key and answers false.
    bool Add(const K& key, const V& value) {
        if (mIndex.count(key)) return false;
        mEntries.emplace_back(key, value);
        mIndex.emplace(key, std::prev(mEntries.end()));
        return true;
    }
    void Set(const K& key, const V& value) {
        auto it = mIndex.find(key);
        if (it != mIndex.end())
            it->second->second = value;
        else
            Add(key, value);
    }
    bool Remove(const K& key) {
        auto it = mIndex.find(key);
        if (it == mIndex.end()) return false;
        mEntries.erase(it->second);
        mIndex.erase(it);
        return true;
    }
    bool Contains(const K& key) const { return mIndex.count(key) != 0; }
    V* Find(const K& key) {
        auto it = mIndex.find(key);
        return it == mIndex.end() ? nullptr : &it->second->second;
    }
    const V* Find(const K& key) const {
        auto it = mIndex.find(key);
        return it == mIndex.end() ? nullptr : &it->second->second;
    }
    std::size_t GetSize() const { return mEntries.size(); }
    bool IsEmpty() const { return mEntries.empty(); }
    void Clear() {
        mIndex.clear();
        mEntries.clear();
    }

    iterator begin() { return mEntries.begin(); }
    iterator end() { return mEntries.end(); }
    const_iterator begin() const { return mEntries.begin(); }
    const_iterator end() const { return mEntries.end(); }

private:
    std::list<Entry> mEntries;
    std::unordered_map<K, iterator, Hash, Eq> mIndex;
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
        for (const auto& k : other) Add(k);
    }
    HashSet& operator=(const HashSet& other) {
        if (this != &other) {
            Clear();
            for (const auto& k : other) Add(k);
        }
        return *this;
    }
    HashSet(HashSet&&) noexcept = default;
    HashSet& operator=(HashSet&&) noexcept = default;

    bool Add(const K& key) {
        if (mIndex.count(key)) return false;
        mItems.push_back(key);
        mIndex.emplace(key, std::prev(mItems.end()));
        return true;
    }
    bool Remove(const K& key) {
        auto it = mIndex.find(key);
        if (it == mIndex.end()) return false;
        mItems.erase(it->second);
        mIndex.erase(it);
        return true;
    }
    bool Contains(const K& key) const { return mIndex.count(key) != 0; }
    std::size_t GetSize() const { return mItems.size(); }
    bool IsEmpty() const { return mItems.empty(); }
    void Clear() {
        mIndex.clear();
        mItems.clear();
    }

    const_iterator begin() const { return mItems.begin(); }
    const_iterator end() const { return mItems.end(); }

private:
    std::list<K> mItems;
    std::unordered_map<K, typename std::list<K>::iterator, Hash, Eq> mIndex;
};

}  // namespace ZR
