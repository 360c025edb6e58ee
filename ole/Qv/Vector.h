#pragma once

/// @file
/// LightweightVector<T> is a vector shared by reference. Copies of it refer to one std::vector, and every
/// change (push_back, copyFrom, clear, remove, ...) is seen by all holders: there is no copy-on-write. It is
/// an iObject itself, so it can also be held through Qv::Ptr. Like the strings it carries no lock; holders
/// on several threads must not change it concurrently.

#include <ole/Qv/Ptr.h>

#include <algorithm>
#include <vector>

/// A plain owned vector, as used in the library's interfaces.
template <class T>
using Vector = std::vector<T>;

/// A vector shared by reference: every holder sees every change.
template <class T>
class LightweightVector : public iObject {
public:
    using Storage = std::vector<T>;
    using iterator = typename Storage::iterator;
    using const_iterator = typename Storage::const_iterator;

    LightweightVector() : rep_(new Storage) {}
    explicit LightweightVector(unsigned long reserve) : rep_(new Storage) { rep_->reserve(reserve); }
    LightweightVector(const LightweightVector& other) : Qv::InternalRefCount(), iObject(), rep_(other.rep_) {}
    LightweightVector& operator=(const LightweightVector& other) {
        rep_ = other.rep_;
        return *this;
    }

    void push_back(const T& value) { rep_->push_back(value); }
    LightweightVector& operator+=(const LightweightVector& other) {
        if (other.rep_ == rep_) {
            const Storage copy(*other.rep_);  // appending a vector to itself
            rep_->insert(rep_->end(), copy.begin(), copy.end());
        } else {
            rep_->insert(rep_->end(), other.rep_->begin(), other.rep_->end());
        }
        return *this;
    }
    /// Out-of-range indices are ignored.
    void remove(unsigned int index) {
        if (index < rep_->size()) rep_->erase(rep_->begin() + index);
    }
    iterator erase(iterator pos) { return rep_->erase(pos); }
    iterator erase(iterator first, iterator last) { return rep_->erase(first, last); }
    void clear() { rep_->clear(); }
    void swap(LightweightVector& other) noexcept { rep_.swap(other.rep_); }
    /// Replaces this vector's elements with copies of the other's (the storage itself is not shared).
    void copyFrom(const LightweightVector& other) {
        if (other.rep_ != rep_) *rep_ = *other.rep_;
    }

    bool empty() const { return rep_->empty(); }
    unsigned size() const { return unsigned(rep_->size()); }
    T& front() { return rep_->front(); }
    const T& front() const { return rep_->front(); }
    T& back() { return rep_->back(); }
    const T& back() const { return rep_->back(); }
    T& operator[](unsigned int i) { return (*rep_)[i]; }
    const T& operator[](unsigned int i) const { return (*rep_)[i]; }
    iterator begin() { return rep_->begin(); }
    iterator end() { return rep_->end(); }
    const_iterator begin() const { return rep_->begin(); }
    const_iterator end() const { return rep_->end(); }
    bool contains(const T& value) const {
        return std::find(rep_->begin(), rep_->end(), value) != rep_->end();
    }
    /// True when both refer to one storage.
    bool sharesWith(const LightweightVector& other) const { return rep_ == other.rep_; }

    friend bool operator==(const LightweightVector& a, const LightweightVector& b) {
        return *a.rep_ == *b.rep_;
    }
    friend bool operator!=(const LightweightVector& a, const LightweightVector& b) { return !(a == b); }

private:
    Qv::Ptr<Storage, Qv::DtorTraits, Qv::ExternalRefCountTraits> rep_;
};
