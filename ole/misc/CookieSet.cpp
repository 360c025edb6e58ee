#include <ole/misc/CookieSet.h>

#include <ole/misc/GrowString.h>
#include <ole/misc/strmable.h>
#include <ole/runtime/Strings.h>

#include <algorithm>

namespace {

// Writes the count and the cookies' short texts without versions.
template <class Each>
int packCookies(PStream& stream, unsigned count, Each each) {
    stream.setUnsignedLong(count);
    char text[Cookie::kUUIDTextLength + 1];
    for (unsigned i = 0; i < count; ++i) {
        each(i).writeText(text, false);
        stream.writeBinary(text, 0, false, false);
    }
    return stream.error() ? STRM_FAILED : STRM_OK;
}

// Reads what packCookies wrote, handing each cookie to `take`; stops early on a truncated stream.
template <class Take>
int unpackCookies(PStream& stream, Take take) {
    const uint32_t count = stream.getUnsignedLong();
    for (uint32_t i = 0; i < count && !stream.error(); ++i) {
        const char* text = stream.file()->viewString();
        if (!text) break;
        take(Cookie(text, false));
    }
    return stream.error() ? STRM_FAILED : STRM_OK;
}

void printCookie(GrowString& out, const Cookie& cookie) {
    char text[Cookie::kUUIDTextLength + 1];
    out.append(text, cookie.writeText(text, true));
}

}  // namespace

// --- CookieVec --------------------------------------------------------------------------------------------

CookieVec::CookieVec(const LightweightString<char>& text) {
    if (text.empty()) return;
    for (const LightweightString<char>& piece : Qv::splitIf(text, ',')) {
        const Cookie cookie(piece.c_str(), false);
        if (cookie.valid()) push_back(cookie);
    }
}

void CookieVec::remove(const Cookie& cookie) {
    erase(std::remove(begin(), end(), cookie), end());
}

CookieVec& CookieVec::operator+=(const CookieVec& other) {
    LightweightVector<Cookie>::operator+=(other);
    return *this;
}

LightweightString<char> CookieVec::asString() const {
    GrowString out;
    printOn(out);
    return LightweightString<char>(out.c_str(), unsigned(out.length()));
}

void CookieVec::printOn(GrowString& out) const {
    for (unsigned i = 0; i < size(); ++i) {
        if (i) out.append(',');
        printCookie(out, (*this)[i]);
    }
}

int CookieVec::pack(PStream& stream) const {
    return packCookies(stream, size(), [this](unsigned i) -> const Cookie& { return (*this)[i]; });
}

int CookieVec::unpack(PStream& stream, unsigned char) {
    clear();
    return unpackCookies(stream, [this](const Cookie& cookie) { push_back(cookie); });
}

// --- CookieSetRec and CookieSetRep ------------------------------------------------------------------------

int CookieSetRec::compare(const ArrayRec& other) const {
    return cookie_.compare(static_cast<const CookieSetRec&>(other).cookie_);
}

void CookieSetRec::printOn(GrowString& out) const {
    printCookie(out, cookie_);
}

void CookieSetRep::add(const Cookie& cookie) {
    records_.intern(std::make_unique<CookieSetRec>(cookie));
    lastAdded_ = cookie;
}

Cookie CookieSetRep::operator[](int i) const {
    const ArrayRec* record = i >= 0 ? records_[unsigned(i)] : nullptr;
    return record ? static_cast<const CookieSetRec*>(record)->cookie() : invalid_cookie;
}

Qv::Ptr<CookieSetRep> CookieSetRep::copy() const {
    Qv::Ptr<CookieSetRep> rep = Qv::makePtr<CookieSetRep>();
    rep->records_ = records_;
    rep->lastAdded_.setValue(lastAdded_.getValue(), kValueReplaced, false);
    return rep;
}

void CookieSetRep::printOn(GrowString& out) const {
    for (unsigned i = 0; i < records_.size(); ++i) {
        if (i) out.append(',');
        records_[i]->printOn(out);
    }
}

// --- CookieSet --------------------------------------------------------------------------------------------

CookieSet::CookieSet() : rep_(Qv::makePtr<CookieSetRep>()) {}

CookieSet& CookieSet::operator+=(const CookieSet& other) {
    if (other.empty()) return *this;
    const Qv::Ptr<CookieSetRep> source = other.rep_;  // stays alive and unchanged while this set copies
    unshare();
    for (unsigned i = 0; i < source->size(); ++i) rep_->add((*source)[int(i)]);
    return *this;
}

void CookieSet::add(const Cookie& cookie) {
    unshare();
    rep_->add(cookie);
}

bool CookieSet::remove(const Cookie& cookie) {
    if (!rep_->contains(cookie)) return false;
    unshare();
    return rep_->remove(cookie);
}

void CookieSet::purge() {
    if (rep_.refCount() > 1)
        rep_ = Qv::makePtr<CookieSetRep>();
    else
        rep_->init();
}

void CookieSet::unshare() {
    if (rep_.refCount() > 1) rep_ = rep_->copy();
}

int CookieSet::pack(PStream& stream) const {
    return packCookies(stream, rep_->size(), [this](unsigned i) { return (*rep_)[int(i)]; });
}

int CookieSet::unpack(PStream& stream, unsigned char) {
    purge();
    return unpackCookies(stream, [this](const Cookie& cookie) {
        unshare();
        rep_->add(cookie);
    });
}
