#pragma once

/// @file
/// DLList is an intrusive doubly-linked list: the links live in the records themselves (DLListRec), so
/// appending and unlinking never allocate and a record can take itself out in constant time. The list does
/// not own its records: destroying a list only unlinks what it still holds, and a record that is destroyed
/// while linked takes itself out first. A record sits in at most one list at a time.
///
/// Neither class locks anything; the owner of a list serialises access to it (a notifier holds its critical
/// section, a message queue belongs to one thread). Appending a record that is already linked somewhere, or
/// removing one through a list it is not in, prints the assertion line and changes nothing.

#include <ole/platform/Assert.h>

#include <cstddef>

class DLList;

/// A record that can be linked into one DLList; derive from it to make a class listable.
class DLListRec {
public:
    DLListRec() noexcept = default;
    /// A copy of a record is a new, unlinked record: links belong to the list, not to the value.
    DLListRec(const DLListRec&) noexcept {}
    DLListRec& operator=(const DLListRec&) noexcept { return *this; }
    virtual ~DLListRec();

    DLListRec* next() const noexcept { return next_; }
    DLListRec* prev() const noexcept { return prev_; }
    DLList* list() const noexcept { return list_; }
    bool isLinked() const noexcept { return list_ != nullptr; }

private:
    friend class DLList;
    DLListRec* prev_ = nullptr;
    DLListRec* next_ = nullptr;
    DLList* list_ = nullptr;
};

/// An intrusive doubly-linked list of DLListRec records it does not own.
class DLList {
public:
    DLList() noexcept = default;
    DLList(const DLList&) = delete;
    DLList& operator=(const DLList&) = delete;
    ~DLList() { unlinkAll(); }

    DLListRec* first() const noexcept { return first_; }
    DLListRec* last() const noexcept { return last_; }
    std::size_t count() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }

    void append(DLListRec* rec) noexcept {
        if (!QV_ASSERT_AT(!rec->isLinked(), "ole/Qv/DLList", 51)) return;
        rec->list_ = this;
        rec->prev_ = last_;
        rec->next_ = nullptr;
        if (last_)
            last_->next_ = rec;
        else
            first_ = rec;
        last_ = rec;
        ++count_;
    }

    void remove(DLListRec* rec) noexcept {
        if (!QV_ASSERT_AT(rec->list_ == this, "ole/Qv/DLList", 64)) return;
        (rec->prev_ ? rec->prev_->next_ : first_) = rec->next_;
        (rec->next_ ? rec->next_->prev_ : last_) = rec->prev_;
        rec->prev_ = rec->next_ = nullptr;
        rec->list_ = nullptr;
        --count_;
    }

    /// Unlinks and returns the first record, or null when the list is empty.
    DLListRec* popFront() noexcept {
        DLListRec* rec = first_;
        if (rec) remove(rec);
        return rec;
    }

    /// Unlinks every record, leaving the records themselves alone.
    void unlinkAll() noexcept {
        while (first_) remove(first_);
    }

private:
    DLListRec* first_ = nullptr;
    DLListRec* last_ = nullptr;
    std::size_t count_ = 0;
};

inline DLListRec::~DLListRec() {
    if (list_) list_->remove(this);
}
