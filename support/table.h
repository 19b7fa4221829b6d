#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace MUtils {

// A growable array. When it runs full, its capacity becomes the next multiple of `Step`. It owns its
// elements, not what they point to. Indices are 0-based and not checked in release builds.
template <class T, int Step>
class Table {
    static_assert(Step > 0, "the growth step is a number of elements");

  public:
    Table() = default;
    Table(Table&& other) noexcept
        : items_(std::move(other.items_)),
          count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    Table& operator=(Table&& other) noexcept {
        items_ = std::move(other.items_);
        count_ = std::exchange(other.count_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }

    int Count() const { return count_; }
    int Capacity() const { return capacity_; }
    T* GetBuf() { return items_.get(); }
    const T* GetBuf() const { return items_.get(); }
    T& operator[](int index) { return items_[static_cast<std::size_t>(index)]; }
    const T& operator[](int index) const { return items_[static_cast<std::size_t>(index)]; }
    T* begin() { return items_.get(); }
    T* end() { return items_.get() + count_; }
    const T* begin() const { return items_.get(); }
    const T* end() const { return items_.get() + count_; }

    void Add(T item) {
        makeRoom(count_ + 1);
        items_[static_cast<std::size_t>(count_++)] = std::move(item);
    }

    // Sets the number of elements; new ones are value-initialised (null, 0, empty), dropped ones are reset
    // likewise.
    void setCount(int count) {
        makeRoom(count);
        for (int i = count; i < count_; ++i)
            (*this)[i] = T{};
        count_ = count;
    }

    // Destroys every element and releases the storage.
    void freeData() {
        for (int i = count_; i-- > 0;)
            (*this)[i] = T{};
        items_.reset();
        count_ = capacity_ = 0;
    }

  private:
    void makeRoom(int count) {
        if (count <= capacity_) return;
        const int capacity = std::max((count + Step - 1) / Step * Step, Step);
        std::unique_ptr<T[]> larger(new T[static_cast<std::size_t>(capacity)]());
        for (int i = 0; i < count_; ++i)
            larger[static_cast<std::size_t>(i)] = std::move((*this)[i]);
        items_ = std::move(larger);
        capacity_ = capacity;
    }

    std::unique_ptr<T[]> items_;
    int count_ = 0;
    int capacity_ = 0;
};

// The body of a shared array: it carries the number of handles that refer to it. A thread may drop its handle
// while another copies its own.
template <class T>
class RefCounter {
  public:
    // `count` zeroed items, for freeMem() of this or any other body.
    T* allocMem(int count) { return new T[static_cast<std::size_t>(count)](); }
    void freeMem(T* items) { delete[] items; }
    void deleteThis() { delete this; }

    std::atomic<int> references{1};
    T* memory = nullptr;
};

// A handle on a shared, never resized array. Copies share the array; the last one frees it.
template <class T>
class PtrArray {
  public:
    PtrArray() = default;
    explicit PtrArray(int count) : body_(new RefCounter<T>) {
        std::unique_ptr<RefCounter<T>> guard(body_);
        body_->memory = body_->allocMem(count);
        guard.release();
    }
    PtrArray(const PtrArray& other) : body_(other.body_) {
        if (body_ != nullptr) ++body_->references;
    }
    PtrArray(PtrArray&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
    PtrArray& operator=(PtrArray other) noexcept {
        std::swap(body_, other.body_);
        return *this;
    }
    ~PtrArray() {
        if (body_ != nullptr && --body_->references < 1) {
            body_->freeMem(body_->memory);
            body_->deleteThis();
        }
    }

    // Null when the handle is empty.
    T* get() const { return body_ != nullptr ? body_->memory : nullptr; }

  private:
    RefCounter<T>* body_ = nullptr;
};

// A growable array of plain records. When an entry is appended to a full list, the capacity becomes the count
// plus the growth step (not the next multiple, as Table has it). The storage behind the capacity grows by a
// quarter, so that a list of a million entries costs no quadratic copying and at most 60 bytes beyond each
// 48-byte entry while it moves.
template <class T>
class PList {
    static_assert(std::is_trivially_copyable_v<T>, "entries are moved as bytes");

  public:
    explicit PList(int step = 100) : growStep(step) {}
    PList(const PList&) = delete;
    PList& operator=(const PList&) = delete;

    int Count() const { return count_; }
    int Capacity() const { return capacity_; }
    T* GetBuf() { return items_.get(); }
    const T* GetBuf() const { return items_.get(); }

    void Append(const T& item) {
        const T copy = item;
        makeRoom();
        new (items_.get() + count_++) T(copy);
    }

    // Makes sure that the next Append() succeeds; false when there is no memory for it.
    bool PrepareAppend() noexcept {
        try {
            makeRoom();
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    // Moves the entries to an array of `capacity` entries; never below the present count.
    void Realloc(int capacity) {
        store(std::max(capacity, count_));
        capacity_ = stored_;
    }

    // Forgets the last entry; there is one.
    void DropLast() { --count_; }

    // Forgets the entries and keeps the storage.
    void SetEmpty() { count_ = 0; }

    // Forgets the entries and frees the storage.
    void Free() {
        items_.reset();
        count_ = capacity_ = stored_ = 0;
    }

    // Entries added to the capacity each time the list runs full.
    const int growStep;

  private:
    void makeRoom() {
        if (count_ < capacity_) return;
        const int capacity = count_ + growStep;
        if (capacity > stored_) store(std::max(capacity, count_ + count_ / 4));
        capacity_ = capacity;
    }

    struct Release {
        void operator()(T* items) const { ::operator delete(items); }
    };

    // What is not in use yet is not touched: a large table would be written twice.
    void store(int entries) {
        const std::size_t bytes = static_cast<std::size_t>(entries) * sizeof(T);
        std::unique_ptr<T, Release> moved(entries > 0 ? static_cast<T*>(::operator new(bytes)) : nullptr);
        std::uninitialized_copy(items_.get(), items_.get() + count_, moved.get());
        items_ = std::move(moved);
        stored_ = entries;
    }

    std::unique_ptr<T, Release> items_;
    int count_ = 0;
    int capacity_ = 0;
    int stored_ = 0;
};

}  // namespace MUtils

using MUtils::PList;
