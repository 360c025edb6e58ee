#pragma once

/// @file
/// Array: an ordered set of records. Each record is an ArrayRec that knows how to compare itself with
/// another of its kind; the array keeps its records sorted by that comparison and holds each distinct
/// record once (intern). It owns its records and deletes them; copying an Array copies the records.
///
/// Not thread-safe: one array belongs to one thread at a time. Comparing records of different kinds is a
/// programming error of the record classes.

#include <ole/platform/export.h>

#include <memory>
#include <vector>

class GrowString;

/// A record of an Array: a value that can compare itself with, and copy, another of its kind.
class OLE_API ArrayRec {
public:
    virtual ~ArrayRec();
    /// Negative, zero or positive as this record sorts before, with or after `other`.
    virtual int compare(const ArrayRec& other) const = 0;
    /// Appends a description for diagnostics.
    virtual void printOn(GrowString& out) const = 0;
    /// A new record equal to this one.
    virtual ArrayRec* clone() const = 0;
};

/// An ordered set of owned records, sorted by their own comparison, each held once.
class OLE_API Array {
public:
    Array() = default;
    Array(const Array& other);
    Array& operator=(const Array& other);
    Array(Array&&) noexcept = default;
    Array& operator=(Array&&) noexcept = default;
    ~Array();

    /// Takes ownership of `record`. When an equal record is already held, `record` is deleted and the held
    /// one returned; otherwise `record` is inserted in order and returned.
    ArrayRec* intern(std::unique_ptr<ArrayRec> record);
    /// The held record equal to `key`, or null.
    const ArrayRec* find(const ArrayRec& key) const;
    /// Deletes the held record equal to `key`; false when there is none.
    bool remove(const ArrayRec& key);
    void clear() { records_.clear(); }

    unsigned size() const { return unsigned(records_.size()); }
    bool empty() const { return records_.empty(); }
    /// The records in order; null past the end.
    const ArrayRec* operator[](unsigned i) const { return i < records_.size() ? records_[i].get() : nullptr; }

private:
    /// The first position whose record does not sort before `key`.
    std::size_t lowerBound(const ArrayRec& key) const;

    std::vector<std::unique_ptr<ArrayRec>> records_;
};
