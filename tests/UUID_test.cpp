#include <ole/platform/UUID.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

std::string text(const Qv::UUID& id) {
    std::string buffer(40, 'x');
    id.asString(buffer.data());
    EXPECT_EQ(buffer[37], 'x') << "36 characters and a terminator, nothing more";
    return buffer.c_str();
}
const auto wide = [](const std::string& s) -> std::wstring { return std::wstring(s.begin(), s.end()); };

TEST(UUID, GeneratedValuesAreDistinctTextRoundTripsAndOrderFollowsTheBytes) {
    EXPECT_TRUE(!Qv::UUID().valid() && text(Qv::UUID()) == "00000000-0000-0000-0000-000000000000");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i)
        if (const Qv::UUID id = Qv::UUID::generate(); id.valid()) seen.insert(text(id));
    EXPECT_EQ(seen.size(), 1000u) << "every generated value is valid and new";

    const Qv::UUID known("00112233-4455-6677-8899-aabbccddeeff");
    for (int i = 0; i < 16; ++i) EXPECT_EQ(known.bytes()[i], uint8_t(i * 0x11)) << i;
    EXPECT_EQ(text(known), "00112233-4455-6677-8899-AABBCCDDEEFF");

    const Qv::UUID id = Qv::UUID::generate();
    const std::string narrow = text(id);
    wchar_t wideText[37];
    id.asWString(wideText);
    EXPECT_TRUE(std::wstring(wideText) == wide(narrow) && Qv::UUID(wideText) == id &&
                Qv::UUID(narrow.c_str()) == id);
    EXPECT_TRUE(Qv::UUID((narrow + ",more").c_str()) == id && Qv::UUID(wide(narrow + ",more").c_str()) == id)
        << "text after 36 characters is ignored";

    // Text that is not a UUID gives nil.
    for (const char* bad : {"", "00112233-4455-6677-8899-AABBCCDDEEF", "00112233-4455-6677-8899-AABBCCDDEEFG",
                            "00112233+4455-6677-8899-AABBCCDDEEFF", "{00112233-4455-6677-8899-AABBCCDDEEFF}"})
        EXPECT_FALSE(Qv::UUID(bad).valid() || Qv::UUID(wide(bad).c_str()).valid()) << bad;
    EXPECT_FALSE(Qv::UUID(static_cast<const char*>(nullptr)).valid() ||
                 Qv::UUID(static_cast<const wchar_t*>(nullptr)).valid());

    // Wide characters beyond ASCII (negative ones too: wchar_t is signed) must not alias a hex digit.
    for (const uint32_t alias : {0x10030u, 0x80000030u, 0xFFFFFF30u})
        EXPECT_FALSE(
            Qv::UUID((wchar_t(alias) + std::wstring(L"0112233-4455-6677-8899-AABBCCDDEEFF")).c_str()).valid())
            << std::hex << alias;

    std::vector<Qv::UUID> ids(3);
    ids[1].bytes()[15] = 0xFF, ids[2].bytes()[0] = 0x01;  // the first byte outweighs all later ones
    for (int i = 0; i < 100; ++i) ids.push_back(Qv::UUID::generate());
    std::sort(ids.begin(), ids.end());
    for (std::size_t i = 1; i < ids.size(); ++i)  // and text order is byte order
        EXPECT_TRUE(std::memcmp(ids[i - 1].bytes(), ids[i].bytes(), 16) < 0 && !(ids[i] < ids[i - 1]) &&
                    text(ids[i - 1]) < text(ids[i]))
            << i;
}

}  // namespace
