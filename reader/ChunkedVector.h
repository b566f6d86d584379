// A growable table of plain records kept in fixed-size chunks: appending never moves a record.
#pragma once

#include "reader/LargeBlocks.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace ubrof {

/// Like a vector of T for appending and indexing, but a table of millions of records grows
/// without the copy (and the moment of twice the memory) of a vector's reallocation, and its
/// memory follows its size: the first records go into small chunks, so that a small table
/// stays small, and the rest into large blocks (LargeBlocks.h).
template <typename T>
class ChunkedVector {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                  "chunks are released without running destructors");
    static constexpr size_t kSmallBits = 10;
    static constexpr size_t kSmallSize = size_t(1) << kSmallBits;
    static constexpr size_t kSmallChunks = 8;
    static constexpr size_t kSmallTotal = kSmallSize * kSmallChunks;
    static constexpr size_t kLargeSize = kLargeBlockSize / sizeof(T);

public:
    class const_iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        const_iterator() = default;
        const_iterator(const ChunkedVector* table, size_t index) : table_(table), index_(index) {}
        reference operator*() const { return (*table_)[index_]; }
        pointer operator->() const { return &(*table_)[index_]; }
        reference operator[](difference_type n) const { return (*table_)[size_t(difference_type(index_) + n)]; }
        const_iterator& operator++() { ++index_; return *this; }
        const_iterator operator++(int) { const_iterator old = *this; ++index_; return old; }
        const_iterator& operator--() { --index_; return *this; }
        const_iterator operator--(int) { const_iterator old = *this; --index_; return old; }
        const_iterator& operator+=(difference_type n) { index_ = size_t(difference_type(index_) + n); return *this; }
        const_iterator& operator-=(difference_type n) { return *this += -n; }
        friend const_iterator operator+(const_iterator it, difference_type n) { return it += n; }
        friend const_iterator operator+(difference_type n, const_iterator it) { return it += n; }
        friend const_iterator operator-(const_iterator it, difference_type n) { return it -= n; }
        friend difference_type operator-(const const_iterator& a, const const_iterator& b)
        {
            return difference_type(a.index_) - difference_type(b.index_);
        }
        friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.index_ == b.index_; }
        friend bool operator!=(const const_iterator& a, const const_iterator& b) { return a.index_ != b.index_; }
        friend bool operator<(const const_iterator& a, const const_iterator& b) { return a.index_ < b.index_; }
        friend bool operator>(const const_iterator& a, const const_iterator& b) { return a.index_ > b.index_; }
        friend bool operator<=(const const_iterator& a, const const_iterator& b) { return a.index_ <= b.index_; }
        friend bool operator>=(const const_iterator& a, const const_iterator& b) { return a.index_ >= b.index_; }

    private:
        const ChunkedVector* table_ = nullptr;
        size_t index_ = 0;
    };

    ChunkedVector() = default;

    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](size_t index) { return *slot(index); }
    const T& operator[](size_t index) const { return *slot(index); }
    const T& at(size_t index) const
    {
        if (index >= size_)
            throw std::out_of_range("ChunkedVector::at");
        return (*this)[index];
    }
    T& back() { return (*this)[size_ - 1]; }
    const T& back() const { return (*this)[size_ - 1]; }
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, size_); }

    void push_back(const T& value) { emplace_back(value); }
    template <typename... Args>
    T& emplace_back(Args&&... args)
    {
        if (tail_ == tailEnd_)
            grow();
        T* at = tail_++;
        ::new (static_cast<void*>(at)) T{std::forward<Args>(args)...};
        ++size_;
        return *at;
    }
    /// Drops the last record; its chunk stays for the next one.
    void pop_back()
    {
        --size_;
        reposition();
    }
    void clear()
    {
        release();
        size_ = capacity_ = 0;
        tail_ = tailEnd_ = nullptr;
    }
    ~ChunkedVector() { release(); }
    ChunkedVector(const ChunkedVector&) = delete;
    ChunkedVector& operator=(const ChunkedVector&) = delete;

private:
    T* slot(size_t index) const
    {
        if (index < kSmallTotal)
            return chunks_[index >> kSmallBits] + (index & (kSmallSize - 1));
        const size_t large = index - kSmallTotal;
        return chunks_[kSmallChunks + large / kLargeSize] + large % kLargeSize;
    }
    /// The first slot of the chunk that holds index.
    T* chunkOf(size_t index) const
    {
        return index < kSmallTotal ? chunks_[index >> kSmallBits]
                                   : chunks_[kSmallChunks + (index - kSmallTotal) / kLargeSize];
    }
    /// Points tail_ at slot size_ and tailEnd_ at the end of its chunk, when that chunk exists.
    void reposition()
    {
        if (size_ >= capacity_)
            return;
        tail_ = slot(size_);
        tailEnd_ = chunkOf(size_) + (size_ < kSmallTotal ? kSmallSize : kLargeSize);
    }
    void grow()
    {
        if (size_ == capacity_) {
            const bool small = chunks_.size() < kSmallChunks;
            if (chunks_.size() == chunks_.capacity())
                chunks_.reserve(2 * chunks_.size() + kSmallChunks);
            chunks_.push_back(static_cast<T*>(small ? ::operator new(sizeof(T) * kSmallSize) : allocateLargeBlock()));
            capacity_ += small ? kSmallSize : kLargeSize;
        }
        reposition();
    }
    void release()
    {
        for (size_t i = 0; i < chunks_.size(); ++i) {
            if (i < kSmallChunks)
                ::operator delete(chunks_[i]);
            else
                releaseLargeBlock(chunks_[i]);
        }
        chunks_.clear();
    }

    std::vector<T*> chunks_;
    size_t size_ = 0;
    size_t capacity_ = 0;
    T* tail_ = nullptr;    ///< where the next record goes, within its chunk
    T* tailEnd_ = nullptr; ///< the end of that chunk
};

} // namespace ubrof
