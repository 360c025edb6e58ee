#pragma once

/// @file
/// strp_field: a persistent field whose value can be written as one line of text (its persistable string)
/// and read back from it, so that records such as configb can store it without knowing its type. The base
/// holds plain text; fields with a richer value (a time, a rate) override the two conversions. A field owns
/// its value; it is not thread-safe. Text a derived field cannot parse leaves its value unchanged and
/// makes setPersistableString() return false.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>

/// A persistent field whose value reads from and writes to one line of text.
class OLE_API strp_field : public iObject {
public:
    strp_field() = default;
    explicit strp_field(const LightweightString<char>& text) : text_(text) {}
    /// A copy starts with no owners of its own (the reference count is never copied).
    strp_field(const strp_field&) = default;
    strp_field& operator=(const strp_field&) = default;
    ~strp_field() override;

    virtual LightweightString<char> getPersistableString() const;
    virtual bool setPersistableString(const LightweightString<char>& text);

private:
    LightweightString<char> text_;
};
