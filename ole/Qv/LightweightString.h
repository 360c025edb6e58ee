#pragma once

/// @file
/// LightweightString<CharT> is the library's shared, copy-on-write string of char (UTF-8 or bytes) or
/// wchar_t (UTF-32). A copy shares the one heap block and bumps its count; a block is written in place only
/// while exactly one string refers to it, otherwise the writer takes a private copy first.
///
/// The block is a header followed by the characters in one allocation: data pointer, length, capacity
/// (terminator slot included), reference count, then `capacity` characters, NUL-terminated at `length`.
/// The empty string is a null block and costs nothing; every reader treats it as "" (c_str() is never
/// null). Growth doubles to the smallest power of two strictly above the needed length; a block built from
/// a NUL-terminated text fits it exactly. The string can never hold an embedded NUL: push_back(0) is
/// ignored.
///
/// Thread safety: several threads may copy, read and release strings that share a block. One string object
/// must not be changed by two threads at once.

#include <ole/platform/export.h>
#include <ole/Qv/Ptr.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <type_traits>

namespace Qv {
namespace StringBlocks {
/// The smallest power of two strictly greater than `need`, searching from 2 and doubling.
OLE_API uint32_t powerOfTwoAbove(uint32_t need) noexcept;
/// A raw block of `headerBytes` plus `capacity` characters of `charBytes` each, from the OS allocator.
OLE_API void* allocate(std::size_t headerBytes, std::size_t charBytes, uint32_t capacity);
OLE_API void release(void* block) noexcept;

inline int compareText(const char* a, const char* b) noexcept {
    return std::strcmp(a, b);
}
inline int compareText(const wchar_t* a, const wchar_t* b) noexcept {
    return std::wcscmp(a, b);
}
inline std::size_t textLength(const char* s) noexcept {
    return std::strlen(s);
}
inline std::size_t textLength(const wchar_t* s) noexcept {
    return std::wcslen(s);
}

/// Copies n bytes (sizeof(Word) <= n <= 2 * sizeof(Word)) as two words, possibly overlapping. Both are
/// loaded before either is stored, so the ranges may overlap.
template <class Word>
inline void moveEnds(char* out, const char* in, std::size_t n) noexcept {
    Word head, tail;
    std::memcpy(&head, in, sizeof head);
    std::memcpy(&tail, in + n - sizeof tail, sizeof tail);
    std::memcpy(out, &head, sizeof head);
    std::memcpy(out + n - sizeof tail, &tail, sizeof tail);
}
/// Sixteen bytes moved as one unit.
struct Bytes16 {
    uint64_t half[2];
};
/// memmove without a library call for the runs of up to 32 bytes that most names, labels, values and
/// headers are.
inline void moveBytes(void* to, const void* from, std::size_t n) noexcept {
    char* out = static_cast<char*>(to);
    const char* in = static_cast<const char*>(from);
    if (n > 16 && n <= 32)
        moveEnds<Bytes16>(out, in, n);
    else if (n >= 8 && n <= 16)
        moveEnds<uint64_t>(out, in, n);
    else if (n >= 4 && n < 8)
        moveEnds<uint32_t>(out, in, n);
    else if (n && n < 4) {  // first, middle and last byte, all read before any is written
        const char a = in[0], b = in[n / 2], c = in[n - 1];
        out[0] = a, out[n / 2] = b, out[n - 1] = c;
    } else if (n)
        std::memmove(out, in, n);
}
}  // namespace StringBlocks
}  // namespace Qv

/// A shared, copy-on-write string of `CharT` (char or wchar_t).
template <class CharT>
class LightweightString {
public:
    static constexpr unsigned npos = ~0u;

    /// One heap block: header and characters together.
    class Impl {
    public:
        CharT* data;
        uint32_t length;
        uint32_t capacity;
        mutable int32_t refCount;

        int32_t* refCountPtr() const noexcept { return &refCount; }

        /// Returns blocks to the OS allocator; they were never constructed with new.
        struct DtorTraits {
            static void destroy(Impl* impl) noexcept { Qv::StringBlocks::release(impl); }
        };

        /// A fresh block with room for `capacity` characters (terminator included), holding "".
        static Impl* make(uint32_t capacity) {
            void* raw = Qv::StringBlocks::allocate(sizeof(Impl), sizeof(CharT), capacity);
            Impl* impl = static_cast<Impl*>(raw);
            impl->data = reinterpret_cast<CharT*>(static_cast<char*>(raw) + sizeof(Impl));
            impl->length = 0;
            impl->capacity = capacity;
            impl->refCount = 0;
            impl->data[0] = CharT(0);
            return impl;
        }
    };
    using ImplPtr = Qv::Ptr<Impl, typename Impl::DtorTraits, Qv::InternalRefCountTraits>;

    /// Writes one character through operator[] with copy-on-write; writing the character that is already
    /// there changes nothing and copies nothing.
    class StringChar {
    public:
        StringChar(LightweightString& s, unsigned index) noexcept : s_(s), index_(index) {}
        StringChar& operator=(CharT c) {
            s_.setChar(index_, c);
            return *this;
        }
        StringChar& operator=(const StringChar& other) { return *this = CharT(other); }
        operator CharT() const noexcept { return s_.at(index_); }

    private:
        LightweightString& s_;
        unsigned index_;
    };

    LightweightString() noexcept = default;
    LightweightString(const CharT* text) { assign(text); }
    LightweightString(const CharT* text, unsigned len) { assign(text, len); }
    LightweightString(const LightweightString&) noexcept = default;
    LightweightString(LightweightString&&) noexcept = default;
    LightweightString& operator=(const LightweightString&) noexcept = default;
    LightweightString& operator=(LightweightString&&) noexcept = default;
    LightweightString& operator=(const CharT* text) {
        assign(text);
        return *this;
    }

    /// A fresh, unshared block for `n` characters holding "" (null for n == 0): capacity n + 1, or the
    /// power of two strictly above n with roundUp.
    static ImplPtr createImpl(unsigned n, bool roundUp) {
        if (n == 0) return ImplPtr();
        return ImplPtr(Impl::make(roundUp ? Qv::StringBlocks::powerOfTwoAbove(n) : n + 1));
    }

    // --- reading -------------------------------------------------------------------------------------
    const CharT* c_str() const noexcept { return impl_ ? impl_->data : emptyText(); }
    const CharT* data() const noexcept { return c_str(); }
    unsigned size() const noexcept { return impl_ ? impl_->length : 0; }
    unsigned length() const noexcept { return size(); }
    bool empty() const noexcept { return size() == 0; }
    bool isNull() const noexcept { return !impl_; }
    unsigned capacity() const noexcept { return impl_ ? impl_->capacity : 0; }
    /// How many strings share this block (0 for the empty string).
    int refCount() const noexcept { return impl_.refCount(); }
    bool isShared() const noexcept { return refCount() > 1; }
    const ImplPtr& impl() const noexcept { return impl_; }

    /// Characters past the end read as NUL.
    CharT at(unsigned i) const noexcept { return i < size() ? impl_->data[i] : CharT(0); }
    CharT operator[](unsigned i) const noexcept { return at(i); }
    StringChar operator[](unsigned i) noexcept { return StringChar(*this, i); }
    const CharT* begin() const noexcept { return c_str(); }
    const CharT* end() const noexcept { return c_str() + size(); }

    unsigned find(CharT c, unsigned from = 0) const noexcept {
        for (unsigned i = from; i < size(); ++i)
            if (impl_->data[i] == c) return i;
        return npos;
    }
    LightweightString substr(unsigned pos, unsigned n = npos) const {
        if (pos >= size()) return LightweightString();
        if (n > size() - pos) n = size() - pos;
        return LightweightString(c_str() + pos, n);
    }

    // --- changing ------------------------------------------------------------------------------------
    /// Replaces the content with an exact-fit copy of the text; null or "" gives the null block.
    void assign(const CharT* text) {
        const unsigned len = text ? unsigned(Qv::StringBlocks::textLength(text)) : 0;
        ImplPtr fresh = createImpl(len, false);
        if (len) copyInto(fresh, text, len);
        impl_ = std::move(fresh);
    }
    /// Replaces the content with `len` characters of `text`, reusing the block where it may.
    void assign(const CharT* text, unsigned len) {
        if (!text || len == 0) {
            impl_.reset();
            return;
        }
        if (writableInPlace(len)) {
            moveChars(impl_->data, text, len);  // the text may lie in this block
            setLength(len);
        } else {
            ImplPtr fresh = createImpl(len, true);
            copyInto(fresh, text, len);  // the old block, which may hold the text, is still alive here
            impl_ = std::move(fresh);
        }
    }

    void append(const CharT* text, unsigned len) {
        if (len == 0) return;
        const unsigned need = size() + len;
        if (writableInPlace(need)) {
            moveChars(impl_->data + impl_->length, text, len);
            setLength(need);
        } else {
            grow(need, text, len);
        }
    }
    LightweightString& operator+=(const LightweightString& other) {
        append(other.c_str(), other.size());
        return *this;
    }
    LightweightString& operator+=(const CharT* text) {
        if (text) append(text, unsigned(Qv::StringBlocks::textLength(text)));
        return *this;
    }
    LightweightString& operator+=(CharT c) {
        push_back(c);
        return *this;
    }

    /// Appends one character; the NUL character is ignored so that no terminator can be embedded.
    /// The in-place case is kept small enough to inline into loops; the rest is out of line.
    void push_back(CharT c) {
        Impl* const impl = impl_.get();
        // The count is read first: its acquire load would otherwise make the length be read twice.
        if (impl && c != CharT(0) && Qv::RefCountService::value(impl->refCountPtr()) == 1 &&
            impl->length + 1 < impl->capacity) {
            const uint32_t n = impl->length;
            storeWithTerminator(impl->data + n, c);
            impl->length = n + 1;
        } else {
            pushBackSlow(c);
        }
    }

    /// A new string of the two pieces in a fresh power-of-two block; a piece may be null if its length is 0.
    static LightweightString join(const CharT* a, unsigned lenA, const CharT* b, unsigned lenB) {
        LightweightString result;
        result.impl_ = createImpl(lenA + lenB, true);
        if (result.impl_) {
            CharT* out = result.impl_->data;
            if (lenA) std::memcpy(out, a, lenA * sizeof(CharT));
            if (lenB) std::memcpy(out + lenA, b, lenB * sizeof(CharT));
            result.setLength(lenA + lenB);
        }
        return result;
    }

    /// Prepares the string to receive exactly `n` characters, discarding what it held: in place when the
    /// block is unshared and big enough (the old characters stay), else in a fresh power-of-two block.
    void resizeFor(unsigned n) {
        if (n == 0) {
            impl_.reset();
        } else if (writableInPlace(n)) {
            setLength(n);
        } else {
            ImplPtr fresh = createImpl(n, true);
            std::memset(fresh->data, 0, n * sizeof(CharT));
            impl_ = std::move(fresh);
            setLength(n);
        }
    }
    /// As resizeFor, but keeps the first min(old length, n) characters; new positions hold NUL until
    /// the caller writes them.
    void resize(unsigned n) {
        const unsigned keep = n < size() ? n : size();
        if (n == 0) {
            impl_.reset();
        } else if (writableInPlace(n)) {
            std::memset(impl_->data + keep, 0, (n - keep) * sizeof(CharT));
            setLength(n);
        } else {
            ImplPtr fresh = createImpl(n, true);
            std::memset(fresh->data, 0, n * sizeof(CharT));
            if (keep) std::memcpy(fresh->data, impl_->data, keep * sizeof(CharT));
            impl_ = std::move(fresh);
            setLength(n);
        }
    }
    void clear() noexcept { impl_.reset(); }

    /// Gives this string a private block if it shares one.
    void unshare() {
        if (isShared()) {
            ImplPtr fresh = createImpl(impl_->length, true);
            copyInto(fresh, impl_->data, impl_->length);
            impl_ = std::move(fresh);
        }
    }

    // --- comparing -----------------------------------------------------------------------------------
    /// Three-way comparison of two texts where a null pointer and "" are equal.
    static int compare(const CharT* a, const CharT* b) noexcept {
        if (a == b) return 0;
        if (!a) return b[0] == CharT(0) ? 0 : -1;
        if (!b) return a[0] == CharT(0) ? 0 : 1;
        return Qv::StringBlocks::compareText(a, b);
    }
    int compare(const LightweightString& other) const noexcept { return compare(c_str(), other.c_str()); }

    friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept {
        if (a.impl_.get() == b.impl_.get()) return true;
        // Equal lengths and no embedded NUL: comparing the bytes is the text comparison.
        if (a.size() != b.size()) return false;
        return std::memcmp(a.c_str(), b.c_str(), a.size() * sizeof(CharT)) == 0;
    }
    friend bool operator!=(const LightweightString& a, const LightweightString& b) noexcept {
        return !(a == b);
    }
    friend bool operator==(const LightweightString& a, const CharT* b) noexcept {
        return compare(a.c_str(), b) == 0;
    }
    friend bool operator!=(const LightweightString& a, const CharT* b) noexcept { return !(a == b); }
    friend bool operator<(const LightweightString& a, const LightweightString& b) noexcept {
        return compare(a.c_str(), b.c_str()) < 0;
    }
    friend LightweightString operator+(const LightweightString& a, const LightweightString& b) {
        return join(a.c_str(), a.size(), b.c_str(), b.size());
    }
    friend LightweightString operator+(const LightweightString& a, const CharT* b) {
        return join(a.c_str(), a.size(), b, b ? unsigned(Qv::StringBlocks::textLength(b)) : 0);
    }

private:
    static const CharT* emptyText() noexcept {
        static const CharT kEmpty[1] = {CharT(0)};
        return kEmpty;
    }
    bool writableInPlace(unsigned need) const noexcept {
        return impl_ && need < impl_->capacity && !isShared();
    }
    bool aliases(const CharT* p) const noexcept {
        return impl_ && p >= impl_->data && p < impl_->data + impl_->capacity;
    }
    void setLength(unsigned n) noexcept {
        impl_->length = n;
        impl_->data[n] = CharT(0);
    }
    static void copyInto(const ImplPtr& impl, const CharT* text, unsigned len) noexcept {
        std::memcpy(impl->data, text, len * sizeof(CharT));
        impl->length = len;
        impl->data[len] = CharT(0);
    }
    /// Moves to a fresh power-of-two block holding the old characters followed by `len` new ones; the
    /// new ones may come from the old block, which stays alive until the new one is installed.
    void grow(unsigned need, const CharT* text, unsigned len) {
        ImplPtr fresh = createImpl(need, true);
        const unsigned old = size();
        if (old) std::memcpy(fresh->data, impl_->data, old * sizeof(CharT));
        std::memcpy(fresh->data + old, text, len * sizeof(CharT));
        fresh->length = need;
        fresh->data[need] = CharT(0);
        impl_ = std::move(fresh);
    }
    /// Moves `n` characters; the ranges may overlap. Narrow texts, which are mostly short names and
    /// labels, are moved without a library call.
    static void moveChars(CharT* to, const CharT* from, unsigned n) noexcept {
        if constexpr (sizeof(CharT) == 1)
            Qv::StringBlocks::moveBytes(to, from, n);
        else
            std::memmove(to, from, n * sizeof(CharT));
    }
    /// Writes `c` and a terminator after it with one store: one store fewer per character appended.
    static void storeWithTerminator(CharT* at, CharT c) noexcept {
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the character goes in the low half");
        using Unsigned = std::conditional_t<sizeof(CharT) == 1, uint8_t, uint32_t>;
        using Pair = std::conditional_t<sizeof(CharT) == 1, uint16_t, uint64_t>;
        static_assert(sizeof(Unsigned) == sizeof(CharT) && sizeof(Pair) == 2 * sizeof(CharT),
                      "two characters");
        const Pair both = Pair(Unsigned(c));
        std::memcpy(at, &both, sizeof both);
    }
    __attribute__((noinline)) void pushBackSlow(CharT c) {
        if (c != CharT(0)) append(&c, 1);
    }
    void setChar(unsigned i, CharT c) {
        if (i >= size() || impl_->data[i] == c) return;
        if (isShared()) unshare();
        impl_->data[i] = c;
    }

    ImplPtr impl_;
};

namespace Qv {
/// Orders narrow strings by strcasecmp of their texts (a null string is ""), for case-insensitive maps.
struct OLE_API caseInsensitiveCompare {
    bool operator()(const LightweightString<char>& a, const LightweightString<char>& b) const noexcept;
};
}  // namespace Qv
using Qv::caseInsensitiveCompare;
