#pragma once

/// @file
/// Symbols of libole are hidden by default; OLE_API marks the exported interface.
/// On ELF the same attribute serves both the library and its users.
#define OLE_API __attribute__((visibility("default")))
