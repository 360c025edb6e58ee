#pragma once

/// @file
/// Dirtiable: something that owns records and must learn when one of them changes, so that it knows it has
/// unsaved changes (a document, a settings page). A record calls setDirty(true) on its owner when it becomes
/// dirty; the owner decides what "clean" means and clears the flag itself after saving. The owner is not
/// owned by its records and must outlive them. Not thread-safe.

#include <ole/platform/export.h>

/// An owner of records that is told when one of them gets unsaved changes.
class OLE_API Dirtiable {
public:
    Dirtiable() = default;
    Dirtiable(const Dirtiable&) = default;
    Dirtiable& operator=(const Dirtiable&) = default;
    virtual ~Dirtiable();

    /// Overridden by owners that react to a change (schedule a save, enable a button); call the base to
    /// keep the flag.
    virtual void setDirty(bool dirty);
    bool isDirty() const { return dirty_; }

private:
    bool dirty_ = false;
};
