#include <ole/misc/CookieSet.h>

#include <ole/misc/GrowString.h>
#include <ole/misc/strmable.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

// Cookies in failure messages as their text.
void PrintTo(const Cookie& c, std::ostream* os) {
    *os << c.asString(true).c_str();
}

namespace {

const Cookie kP('P', 100, 0, 5);   // P00B002S
const Cookie kO('O', 7, 3, 5);     // O03B0007
const Cookie kS('S', 7, 5, 5);     // S05B0007
const Cookie kE('E', 1, 0, 2703);  // E~0~0001

std::vector<Cookie> elements(const CookieSet& set) {
    std::vector<Cookie> out;
    for (unsigned i = 0; i < set.size(); ++i) out.push_back(set[int(i)]);
    return out;
}

struct LastCookieClient : ValClient<Cookie> {
    using ValClient<Cookie>::ValClient;
    void valChangedNtfy() override { seen.push_back(getServerValue()); }
    std::vector<Cookie> seen;
};

}  // namespace

TEST(CookieVec, TextFormJoinsWithCommasAndSkipsBadPieces) {
    CookieVec vec;
    vec.add(kP);
    vec.add(kO);
    EXPECT_STREQ(vec.asString().c_str(), "P00B002S,O03B0007");
    const CookieVec parsed(LightweightString<char>("P00B002S,junk,,O03B0007, E~0~0001,E~0~0001"));
    EXPECT_EQ(std::vector<Cookie>(parsed.begin(), parsed.end()),
              (std::vector<Cookie>{kP, Cookie('O', 7, 0, 5), kE}));
    EXPECT_TRUE(CookieVec(LightweightString<char>(",,")).empty());

    CookieVec alias = vec;  // copies share one vector
    alias.add(kP);
    vec.remove(kP);  // every equal element
    EXPECT_EQ(std::vector<Cookie>(alias.begin(), alias.end()), (std::vector<Cookie>{kO}));
}

TEST(CookieVec, StreamsCountAndShortTextsWithoutVersions) {
    CookieVec vec;
    for (const Cookie& c : {kO, kS, Cookie()}) vec.add(c);
    PStream out;
    EXPECT_EQ(vec.pack(out), STRM_OK);
    const std::string expected =
        std::string("\x03\x00\x00\x00", 4) + "O00B0007" + '\0' + "S05B0007" + '\0' + "INVALID" + '\0';
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.file()->data()), out.file()->size()), expected);
    out.seek(0);
    CookieVec read;
    read.add(kE);  // replaced by what is read
    EXPECT_EQ(read.unpack(out, 1), STRM_OK);
    EXPECT_EQ(std::vector<Cookie>(read.begin(), read.end()),
              (std::vector<Cookie>{Cookie('O', 7, 0, 5), Cookie('S', 7, 1, 5), Cookie()}));

    StreamFile truncated;  // a count far beyond the data stops at the end
    truncated.writeValue(uint32_t(0xFFFFFFFF));
    truncated.writeBinary("P00B002S", 0, false, false);
    truncated.seek(0);
    PStream in(&truncated);
    EXPECT_EQ(read.unpack(in, 1), STRM_FAILED);
    EXPECT_EQ(read.size(), 1u);
}

TEST(CookieSet, OrderedDistinctAndCopiedOnWrite) {
    CookieSet a;
    for (const Cookie& c : {kE, kP, kO, Cookie('P', 100, 0, 5)}) a.add(c);
    EXPECT_EQ(elements(a), (std::vector<Cookie>{kP, kO, kE}));  // types in descending order
    EXPECT_FALSE(a[3].valid());
    CookieSet b = a;
    EXPECT_TRUE(b.sharesWith(a));
    b.remove(kO);
    b.add(kS);
    EXPECT_EQ(elements(a), (std::vector<Cookie>{kP, kO, kE}));
    EXPECT_EQ(elements(b), (std::vector<Cookie>{kS, kP, kE}));
    a += b;
    EXPECT_EQ(a.size(), 4u);
    CookieSet c = a;
    c.purge();
    EXPECT_TRUE(c.empty() && a.size() == 4);

    GrowString out;
    b.rep().printOn(out);
    EXPECT_STREQ(out.c_str(), "S05B0007,P00B002S,E~0~0001");
}

TEST(CookieSet, ListenersHearEachCookieAddedAndStreamsRoundTrip) {
    CookieSet set;
    LastCookieClient client(&set.rep().lastAdded());
    for (const Cookie& c : {kP, kS, kP}) set.add(c);
    EXPECT_EQ(client.seen, (std::vector<Cookie>{kP, kS, kP}));  // held already, still announced

    PStream out;
    EXPECT_EQ(set.pack(out), STRM_OK);
    out.seek(0);
    CookieSet read;
    read.add(kO);
    const CookieSet other = read;
    EXPECT_EQ(read.unpack(out, 1), STRM_OK);
    EXPECT_EQ(elements(read), (std::vector<Cookie>{Cookie('S', 7, 1, 5), kP}));  // S with its default version
    EXPECT_EQ(elements(other), (std::vector<Cookie>{kO}));  // the other handle keeps the old contents
}
