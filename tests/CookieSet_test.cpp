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
const Qv::UUID kId("6BA7B810-9DAD-11D1-80B4-00C04FD430C8");

std::string bytesOf(const PStream& s) {
    return std::string(reinterpret_cast<const char*>(s.file()->data()), s.file()->size());
}

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
    EXPECT_EQ(std::string(vec.asString().c_str()), "P00B002S,O03B0007");
    EXPECT_EQ(std::string(CookieVec().asString().c_str()), "");

    const CookieVec parsed(LightweightString<char>("P00B002S,junk,,O03B0007, E~0~0001,E~0~0001"));
    ASSERT_EQ(parsed.size(), 3u);
    EXPECT_EQ(parsed[0], kP);
    EXPECT_EQ(parsed[1], Cookie('O', 7, 0, 5));  // read without versions
    EXPECT_EQ(parsed[2], kE);
    EXPECT_TRUE(CookieVec(LightweightString<char>(",,")).empty());
    EXPECT_TRUE(CookieVec(LightweightString<char>("")).empty());

    GrowString out("vec: ");
    vec.printOn(out);
    EXPECT_STREQ(out.c_str(), "vec: P00B002S,O03B0007");
}

TEST(CookieVec, EditingIsSharedByCopies) {
    CookieVec vec;
    vec.add(kP);
    vec.add(kE);
    vec.add(kP);
    CookieVec alias = vec;
    alias.remove(kP);  // every equal element
    ASSERT_EQ(vec.size(), 1u);
    EXPECT_EQ(vec[0], kE);
    vec += vec;
    EXPECT_EQ(alias.size(), 2u);
    vec.remove(0u);
    EXPECT_EQ(alias.size(), 1u);
}

TEST(CookieVec, StreamsCountAndShortTextsWithoutVersions) {
    CookieVec vec;
    for (const Cookie& c : {kP, kO, kS, Cookie(), Cookie('P', kId, 4)}) vec.add(c);
    PStream out;
    EXPECT_EQ(vec.pack(out), STRM_OK);
    const std::string expected = std::string("\x05\x00\x00\x00", 4) + "P00B002S" + '\0' + "O00B0007" + '\0' +
                                 "S05B0007" + '\0' + "INVALID" + '\0' +
                                 "P00-6BA7B810-9DAD-11D1-80B4-00C04FD430C8" + '\0';
    EXPECT_EQ(bytesOf(out), expected);

    out.seek(0);
    CookieVec read;
    read.add(kE);  // replaced by what is read
    EXPECT_EQ(read.unpack(out, 1), STRM_OK);
    ASSERT_EQ(read.size(), 5u);
    EXPECT_EQ(read[0], kP);
    EXPECT_EQ(read[1], Cookie('O', 7, 0, 5));
    EXPECT_EQ(read[2], Cookie('S', 7, 1, 5));  // written with its version, read with the default
    EXPECT_FALSE(read[3].valid());
    EXPECT_EQ(read[4], Cookie('P', kId, 0));
}

TEST(CookieVec, TruncatedStreamFailsWithoutRunningOn) {
    StreamFile file;
    file.writeValue(uint32_t(0xFFFFFFFF));
    file.writeBinary("P00B002S", 0, false, false);
    file.seek(0);
    PStream in(&file);
    CookieVec read;
    EXPECT_EQ(read.unpack(in, 1), STRM_FAILED);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0], kP);
}

TEST(CookieSet, HoldsEachCookieOnceInCompareOrder) {
    CookieSet set;
    for (const Cookie& c : {kP, kE, kO, kP, Cookie('P', 100, 0, 5)}) set.add(c);
    EXPECT_EQ(elements(set), (std::vector<Cookie>{kP, kO, kE}));  // types in descending order
    EXPECT_TRUE(set.contains(kO));
    EXPECT_FALSE(set[3].valid());
    EXPECT_FALSE(set[-1].valid());
    EXPECT_TRUE(set.remove(kO));
    EXPECT_FALSE(set.remove(kO));
    EXPECT_EQ(set.size(), 2u);

    GrowString out;
    set.rep().printOn(out);
    EXPECT_STREQ(out.c_str(), "P00B002S,E~0~0001");
}

TEST(CookieSet, CopiesShareUntilOneChanges) {
    CookieSet a;
    a.add(kP);
    CookieSet b = a;
    EXPECT_TRUE(b.sharesWith(a));
    b.add(kE);
    EXPECT_FALSE(b.sharesWith(a));
    EXPECT_EQ(elements(a), (std::vector<Cookie>{kP}));
    EXPECT_EQ(elements(b), (std::vector<Cookie>{kP, kE}));

    CookieSet c = b;
    c.purge();
    EXPECT_TRUE(c.empty());
    EXPECT_EQ(b.size(), 2u);

    a += b;
    EXPECT_EQ(elements(a), (std::vector<Cookie>{kP, kE}));
    a += a;
    EXPECT_EQ(a.size(), 2u);
    b.remove(kP);
    EXPECT_EQ(a.size(), 2u);
}

TEST(CookieSet, ListenersHearEachCookieAdded) {
    CookieSet set;
    LastCookieClient client(&set.rep().lastAdded());
    set.add(kP);
    set.add(kE);
    set.add(kP);  // already held, still announced
    EXPECT_EQ(client.seen, (std::vector<Cookie>{kP, kE, kP}));
    EXPECT_EQ(set.rep().lastAdded().getValue(), kP);
}

TEST(CookieSet, StreamRoundTripReplacesTheContents) {
    CookieSet set;
    for (const Cookie& c : {kP, kS, kE}) set.add(c);
    PStream out;
    EXPECT_EQ(set.pack(out), STRM_OK);
    EXPECT_EQ(bytesOf(out).substr(0, 4), std::string("\x03\x00\x00\x00", 4));

    out.seek(0);
    CookieSet read;
    read.add(kO);
    const CookieSet other = read;
    EXPECT_EQ(read.unpack(out, 1), STRM_OK);
    EXPECT_EQ(elements(read), (std::vector<Cookie>{Cookie('S', 7, 1, 5), kP, kE}));  // S with its default
    EXPECT_EQ(elements(other), (std::vector<Cookie>{kO}));  // the other handle keeps the old contents
}
