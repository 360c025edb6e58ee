#pragma once

/// @file
/// zlib compression of byte buffers (the zlib stream format: header, deflate data, Adler-32 check).
///
/// Both calls report failure through their result and leave `out` empty; they never throw and never crash
/// on bad input. Decompression never holds more than `maxUncompressedSize` + 1 bytes of output, so a small
/// hostile stream that would expand without end is refused as TooLarge rather than filling memory. A stream
/// followed by extra bytes is refused as CorruptData. Thread-safe: no shared state.

#include <ole/platform/export.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QvDataCompression {

enum Result {
    Ok = 0,
    InvalidArgument,  ///< null data with a size, or a compression level outside -1..9
    CorruptData,      ///< not a zlib stream, a failed check, or bytes after the end of the stream
    TruncatedData,    ///< the input ends before the stream does
    TooLarge,         ///< the output would exceed the caller's limit
    OutOfMemory
};

/// A short English text for a result ("ok", "corrupt data", ...).
OLE_API const char* resultText(Result result);

/// Compresses `size` bytes at `data` into `out` (replacing its content). `level` is zlib's: -1 for the
/// default, 0 (store) to 9 (smallest).
OLE_API Result zlibCompress(const void* data, std::size_t size, std::vector<uint8_t>& out, int level = -1);

/// Decompresses one whole zlib stream of `size` bytes into `out` (replacing its content). More than
/// `maxUncompressedSize` bytes of output is TooLarge. `expectedSize`, when known (e.g. stored beside the
/// data), sizes the output at once instead of growing it; a wrong value only costs time.
OLE_API Result zlibUncompress(const void* data, std::size_t size, std::vector<uint8_t>& out,
                              std::size_t maxUncompressedSize, std::size_t expectedSize = 0);

}  // namespace QvDataCompression
