#pragma once

/// @file
/// Qv::Ptr is the library's shared-ownership pointer: two words, a pointer to the reference count and a
/// pointer to the object, in that order. The count is changed only through the operating-system layer's
/// interlocked service, so copies and releases of one object may happen on different threads; a single
/// Ptr object must not be written by two threads at once.
///
/// RefCountTraits decide where the count lives: inside the object (InternalRefCountTraits, objects derive
/// from Qv::InternalRefCount) or in a separate integer that the pointer owns (ExternalRefCountTraits).
/// DtorTraits decide how the object goes when the count reaches zero (virtual delete for Qv::DtorTraits).

#include <ole/platform/export.h>
#include <ole/platform/OS.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Qv {

/// Base of objects that carry their own reference count. The destructor is virtual so that DtorTraits can
/// delete through any base. Copying an object never copies its count: the copy starts unowned.
class OLE_API InternalRefCount {
public:
    InternalRefCount() noexcept : refCount_(0) {}
    InternalRefCount(const InternalRefCount&) noexcept : refCount_(0) {}
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }
    virtual ~InternalRefCount();

    int32_t* refCountPtr() const noexcept { return &refCount_; }
    int32_t refCount() const noexcept { return RefCountService::value(&refCount_); }

private:
    mutable int32_t refCount_;
};

/// The count lives in the object, reached through its refCountPtr().
struct InternalRefCountTraits {
    template <class T>
    static int32_t* countFor(T* object) noexcept {
        return object ? object->refCountPtr() : nullptr;
    }
    static void releaseCount(int32_t*) noexcept {}
};

/// The count is a separate integer, made with plain new starting at 0, owned beside the object.
struct ExternalRefCountTraits {
    template <class T>
    static int32_t* countFor(T* object) {
        return object ? new int32_t(0) : nullptr;
    }
    static void releaseCount(int32_t* count) noexcept { delete count; }
};

/// Destroys the object with delete through its (virtual) destructor.
struct DtorTraits {
    template <class T>
    static void destroy(T* object) noexcept {
        delete object;
    }
};

/// A shared-ownership pointer whose count lives where `RefCountTraits` says.
template <class T, class Dtor = DtorTraits, class RefCountTraits = InternalRefCountTraits>
class Ptr {
public:
    using element_type = T;

    Ptr() noexcept : count_(nullptr), object_(nullptr) {}
    Ptr(std::nullptr_t) noexcept : count_(nullptr), object_(nullptr) {}
    /// Takes shared ownership of a new object (or of one already owned elsewhere, for internal counts).
    explicit Ptr(T* object) : count_(RefCountTraits::countFor(object)), object_(object) { incRef(); }
    /// Adopts an object together with its count word; for code that manages counts itself.
    Ptr(T* object, int32_t* count) noexcept : count_(count), object_(object) { incRef(); }

    Ptr(const Ptr& other) noexcept : count_(other.count_), object_(other.object_) { incRef(); }
    Ptr(Ptr&& other) noexcept : count_(other.count_), object_(other.object_) {
        other.count_ = nullptr;
        other.object_ = nullptr;
    }
    /// Converting copy from a pointer to a derived class: the count word does not depend on the type.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(const Ptr<U, Dtor, RefCountTraits>& other) noexcept : count_(other.countPtr()), object_(other.get()) {
        incRef();
    }

    ~Ptr() { decRef(); }

    /// The incoming count is raised before the old value is released, so assigning from an alias of
    /// this pointer (or from a pointer that the old object owns) is safe.
    Ptr& operator=(const Ptr& other) noexcept {
        if (this != &other) {
            other.incRef();
            Ptr old;
            old.count_ = count_;
            old.object_ = object_;
            count_ = other.count_;
            object_ = other.object_;
        }
        return *this;
    }
    Ptr& operator=(Ptr&& other) noexcept {
        if (this != &other) {
            Ptr old(std::move(*this));
            count_ = other.count_;
            object_ = other.object_;
            other.count_ = nullptr;
            other.object_ = nullptr;
        }
        return *this;
    }

    void incRef() const noexcept {
        if (object_) OS()->refCounter()->increment(count_);
    }
    /// Releases one reference. When it was the last, the object is destroyed and both words become zero;
    /// otherwise the pointer is left as it is. Returns the new count (0 for a null pointer).
    int32_t decRef() noexcept {
        if (!object_) return 0;
        const int32_t left = OS()->refCounter()->decrement(count_);
        if (left == 0) {
            Dtor::destroy(object_);
            RefCountTraits::releaseCount(count_);
            count_ = nullptr;
            object_ = nullptr;
        }
        return left;
    }

    /// Drops this pointer's reference and becomes null.
    void reset() noexcept { Ptr old(std::move(*this)); }
    void swap(Ptr& other) noexcept {
        std::swap(count_, other.count_);
        std::swap(object_, other.object_);
    }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    int32_t* countPtr() const noexcept { return count_; }
    int32_t refCount() const noexcept { return count_ ? RefCountService::value(count_) : 0; }

    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator!=(const Ptr& a, const Ptr& b) noexcept { return a.object_ != b.object_; }
    friend bool operator<(const Ptr& a, const Ptr& b) noexcept { return a.object_ < b.object_; }
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }
    friend bool operator!=(const Ptr& a, std::nullptr_t) noexcept { return a.object_ != nullptr; }

private:
    int32_t* count_;
    T* object_;
};

/// Makes a new object owned by a Ptr.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
    return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Qv

/// The common interface base of shared objects in the library.
class OLE_API iObject : public virtual Qv::InternalRefCount {
public:
    ~iObject() override;
};
