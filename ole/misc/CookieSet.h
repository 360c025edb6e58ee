#pragma once

/// @file
/// Collections of cookies: CookieVec keeps cookies in insertion order, CookieSet holds each distinct
/// cookie once, in Cookie::compare order. Both pack into streams as a count followed by the cookies'
/// short texts; versions are not kept there (a cookie reads back with its type's default version).
///
/// Sharing: CookieVec is a LightweightVector, so copies share one vector and every change shows in all of
/// them. CookieSet is a handle on a shared CookieSetRep and copies on write: changing one handle first
/// gives it its own rep, so other handles keep the old contents. The rep's value server announces each
/// cookie added to that rep (a listener follows one rep: it hears nothing from a handle that has moved on
/// to a private copy).
///
/// Bad input: text pieces that are not cookies are skipped; stream texts that do not parse become invalid
/// cookies; a truncated stream stops the reading with STRM_FAILED. Not thread-safe: a collection belongs to
/// one thread at a time.

#include <ole/platform/export.h>
#include <ole/misc/Array.h>
#include <ole/misc/Cookie.h>
#include <ole/misc/ValServer.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>
#include <ole/Qv/Vector.h>

class GrowString;
class PStream;

/// Cookies in insertion order; copies share one vector.
class OLE_API CookieVec : public LightweightVector<Cookie> {
public:
    CookieVec() = default;
    /// The valid cookies of a comma-separated text (as asString() makes it), in order.
    explicit CookieVec(const LightweightString<char>& text);

    void add(const Cookie& cookie) { push_back(cookie); }
    /// Removes every element equal to `cookie`.
    void remove(const Cookie& cookie);
    using LightweightVector<Cookie>::remove;
    CookieVec& operator+=(const CookieVec& other);

    /// The cookies' texts with their versions, joined with "," ("" when empty).
    LightweightString<char> asString() const;
    void printOn(GrowString& out) const;
    int pack(PStream& stream) const;
    /// Replaces the contents with the cookies read.
    int unpack(PStream& stream, unsigned char version);
};

/// One cookie of a CookieSetRep.
class OLE_API CookieSetRec : public ArrayRec {
public:
    explicit CookieSetRec(const Cookie& cookie) : cookie_(cookie) {}
    const Cookie& cookie() const { return cookie_; }

    /// By Cookie::compare; `other` must be a CookieSetRec.
    int compare(const ArrayRec& other) const override;
    void printOn(GrowString& out) const override;
    ArrayRec* clone() const override { return new CookieSetRec(cookie_); }

private:
    Cookie cookie_;
};

/// The shared body of CookieSet: the records and the server of the last cookie added.
class OLE_API CookieSetRep : public iObject {
public:
    CookieSetRep() = default;
    CookieSetRep(const CookieSetRep&) = delete;
    CookieSetRep& operator=(const CookieSetRep&) = delete;

    /// Empties the set.
    void init() { records_.clear(); }
    /// Interns the cookie and assigns it to the server (which tells its clients).
    void add(const Cookie& cookie);
    bool remove(const Cookie& cookie) { return records_.remove(CookieSetRec(cookie)); }
    bool contains(const Cookie& cookie) const { return records_.find(CookieSetRec(cookie)) != nullptr; }
    unsigned size() const { return records_.size(); }
    /// The i-th cookie in order; the invalid cookie out of range.
    Cookie operator[](int i) const;
    /// A new rep with the same cookies; its server holds the same value and has no clients.
    Qv::Ptr<CookieSetRep> copy() const;
    void printOn(GrowString& out) const;

    ValServer<Cookie>& lastAdded() { return lastAdded_; }

private:
    Array records_;
    ValServer<Cookie> lastAdded_;
};

/// Distinct cookies in Cookie::compare order; copies share the contents until one of them changes.
class OLE_API CookieSet {
public:
    CookieSet();
    CookieSet(const CookieSet& other) = default;
    /// Shares the other set's rep.
    CookieSet& operator=(const CookieSet& other) = default;
    CookieSet& operator+=(const CookieSet& other);

    void add(const Cookie& cookie);
    bool remove(const Cookie& cookie);
    bool contains(const Cookie& cookie) const { return rep_->contains(cookie); }
    unsigned size() const { return rep_->size(); }
    bool empty() const { return rep_->size() == 0; }
    Cookie operator[](int i) const { return (*rep_)[i]; }

    /// Empties this set (other handles keep their contents).
    void purge();
    /// Gives this handle its own rep if it shares one.
    void unshare();
    bool sharesWith(const CookieSet& other) const { return rep_.get() == other.rep_.get(); }
    CookieSetRep& rep() { return *rep_; }
    const CookieSetRep& rep() const { return *rep_; }

    int pack(PStream& stream) const;
    /// Replaces the contents with the cookies read.
    int unpack(PStream& stream, unsigned char version);

private:
    Qv::Ptr<CookieSetRep> rep_;
};
