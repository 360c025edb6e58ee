#include <ole/misc/CookieSet.h>

#include <ole/misc/GrowString.h>
#include <ole/misc/strmable.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

void PrintTo(const Cookie& c, std::ostream* os) {
    *os << c.asString(true).c_str();
}

namespace {

const Cookie kP('P', 100, 0, 5);   // P00B002S
const Cookie kO('O', 7, 3, 5);     // O03B0007
const Cookie kS('S', 7, 5, 5);     // S05B0007
const Cookie kE('E', 1, 0, 2703);  // E~0~0001

using Cookies = std::vector<Cookie>;
template <class Container>
Cookies elements(const Container& set) {
    Cookies out;
    for (unsigned i = 0; i < set.size(); ++i) out.push_back(set[int(i)]);
    return out;
}

struct LastCookieClient : ValClient<Cookie> {
    using ValClient<Cookie>::ValClient;
    void valChangedNtfy() override { seen.push_back(getServerValue()); }
    Cookies seen;
};

}  // namespace

TEST(CookieVec, TextFormSkipsBadPiecesAndStreamsShortTexts) {
    CookieVec vec;
    for (const Cookie& c : {kP, kO}) vec.add(c);
    EXPECT_STREQ(vec.asString().c_str(), "P00B002S,O03B0007");
    const CookieVec parsed(LightweightString<char>("P00B002S,junk,,O03B0007, E~0~0001,E~0~0001"));
    EXPECT_EQ(elements(parsed), (Cookies{kP, Cookie('O', 7, 0, 5), kE}));
    EXPECT_TRUE(CookieVec(LightweightString<char>(",,")).empty());

    CookieVec alias = vec;          // copies share one vector
    alias.add(kP), vec.remove(kP);  // removes every equal element
    EXPECT_EQ(elements(alias), (Cookies{kO}));

    // Streams hold the count and the short texts, without versions.
    CookieVec packed;
    for (const Cookie& c : {kO, kS, Cookie()}) packed.add(c);
    PStream out;
    EXPECT_EQ(packed.pack(out), STRM_OK);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.file()->data()), out.file()->size()),
              std::string("\x03\x00\x00\x00O00B0007\0S05B0007\0INVALID", 4 + 8 + 1 + 8 + 1 + 7 + 1));
    CookieVec read;
    out.seek(0), read.add(kE);  // replaced by what is read
    EXPECT_EQ(read.unpack(out, 1), STRM_OK);
    EXPECT_EQ(elements(read), (Cookies{Cookie('O', 7, 0, 5), Cookie('S', 7, 1, 5), Cookie()}));

    StreamFile truncated;  // a count far beyond the data stops at the end
    truncated.writeValue(uint32_t(0xFFFFFFFF));
    truncated.writeBinary("P00B002S", 0, false, false), truncated.seek(0);
    PStream in(&truncated);
    EXPECT_TRUE(read.unpack(in, 1) == STRM_FAILED && read.size() == 1);
}

TEST(CookieSet, OrderedDistinctAndCopiedOnWrite) {
    CookieSet a;
    for (const Cookie& c : {kE, kP, kO, Cookie('P', 100, 0, 5)}) a.add(c);
    EXPECT_EQ(elements(a), (Cookies{kP, kO, kE}));  // types in descending order
    CookieSet b = a;
    EXPECT_TRUE(!a[3].valid() && b.sharesWith(a));
    b.remove(kO), b.add(kS);
    EXPECT_TRUE(elements(a) == (Cookies{kP, kO, kE}) && elements(b) == (Cookies{kS, kP, kE}));
    a += b;
    CookieSet c = a;
    c.purge();
    EXPECT_TRUE(c.empty() && a.size() == 4);

    GrowString text;
    b.rep().printOn(text);
    EXPECT_STREQ(text.c_str(), "S05B0007,P00B002S,E~0~0001");
    text.appendf("%300s|", "");  // longer than the stack buffer: formatted a second time at its size
    EXPECT_EQ(std::string(text.c_str()), "S05B0007,P00B002S,E~0~0001" + std::string(300, ' ') + "|");

    // Listeners hear each cookie added; streams round-trip.
    CookieSet set;
    LastCookieClient client(&set.rep().lastAdded());
    for (const Cookie& c : {kP, kS, kP}) set.add(c);
    EXPECT_EQ(client.seen, (Cookies{kP, kS, kP}));  // held already, still announced

    PStream out;
    EXPECT_EQ(set.pack(out), STRM_OK);
    out.seek(0);
    CookieSet read;
    read.add(kO);
    const CookieSet other = read;
    ASSERT_EQ(read.unpack(out, 1), STRM_OK);
    EXPECT_EQ(elements(read), (Cookies{Cookie('S', 7, 1, 5), kP}));  // S with its default version
    EXPECT_EQ(elements(other), (Cookies{kO}));  // the other handle keeps the old contents
}
