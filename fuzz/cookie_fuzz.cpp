// Cookie and IdStamp text on arbitrary bytes: parsing narrow and wide text and the well-formedness check
// must never crash, and whatever parses must print back to a text that parses to the same value.

#include <ole/misc/Cookie.h>
#include <ole/misc/IdStamp.h>
#include <ole/platform/Exception.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data),
                           size);  // stops at the first NUL for the parsers

    Cookie::isValid(text.c_str());
    for (bool withVersion : {false, true}) {
        const Cookie cookie(text.c_str(), withVersion);
        // A three-digit version of the UUID form runs into the UUID text and does not read back.
        if (cookie.valid() && (!cookie.isUUID() || cookie.getVersion() < 100)) {
            const LightweightString<char> printed = cookie.asString(true);
            if (Cookie(printed.c_str(), true) != cookie) std::abort();
            if (Cookie(cookie.asWString(), true) != cookie) std::abort();
        }
    }

    std::wstring wide;
    for (size_t i = 0; i < size && data[i]; ++i) wide.push_back(wchar_t(data[i]));
    const Cookie fromWide(LightweightString<wchar_t>(wide.c_str()), true);
    (void)fromWide.asString(true);
    (void)fromWide.asWString();

    if (size >= 2) {
        try {
            const unsigned code = Cookie::base52Map36ToInt(char(data[0]), char(data[1]));
            if (code > 2703) std::abort();
            const std::pair<char, char> pair = Cookie::get2DigitBase52Map36Code(code);
            if (Cookie::base52Map36ToInt(pair.first, pair.second) != code) std::abort();
        } catch (const Qv::Exception::RuntimeError&) {
        }
    }

    const IdStamp stamp(text.c_str());
    if (stamp.valid() && IdStamp(stamp.asString().c_str()) != stamp) std::abort();
    return 0;
}
