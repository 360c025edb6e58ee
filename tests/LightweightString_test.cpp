#include <ole/Qv/LightweightString.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

static_assert(sizeof(LightweightString<char>) == 2 * sizeof(void*) && sizeof(wchar_t) == 4);

template <class C>
class StringTest : public ::testing::Test {
protected:
    using S = LightweightString<C>;
    using Std = std::basic_string<C>;
    using Op = std::pair<const char*, std::function<void(S&)>>;

    // The ASCII text as a C string of this character type, alive for the whole test.
    const C* t(const char* ascii) { return texts_.emplace_back(ascii, ascii + std::strlen(ascii)).c_str(); }
    S s(const char* ascii) { return S(t(ascii)); }
    Std lit(const char* ascii) { return Std(t(ascii)); }
    static Std str(const S& s) { return Std(s.c_str(), s.size()); }

    static void expectNullEmpty(const S& s) {  // every empty string is the null block, yet reads as ""
        EXPECT_TRUE(s.isNull() && s.size() == 0 && s.c_str() != nullptr && s.c_str()[0] == C(0));
    }

private:
    std::deque<Std> texts_;
};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(StringTest, CharTypes);

TYPED_TEST(StringTest, ConstructionFitsExactlyAppendsDoubleAndEmptyIsTheNullBlock) {
    using S = typename TestFixture::S;
    EXPECT_EQ(this->s("hello").capacity(), 6u);
    const TypeParam x = TypeParam('x');
    const std::vector<typename TestFixture::Op> appenders = {{"push_back", [&](S& s) { s.push_back(x); }},
                                                             {"append", [&](S& s) { s.append(&x, 1); }},
                                                             {"+= text", [&](S& s) { s += this->t("x"); }},
                                                             {"+= string", [&](S& s) { s += this->s("x"); }}};
    for (const auto& [name, append] : appenders) {
        SCOPED_TRACE(name);
        S s = this->s("abc");
        append(s);  // length 4 is not below capacity 4
        EXPECT_EQ(s.capacity(), 8u);
        const TypeParam* block = s.c_str();
        for (int i = 0; i < 3; ++i) append(s);
        EXPECT_EQ(s.c_str(), block) << "lengths 5 to 7 are written in place";
        append(s);
        EXPECT_TRUE(s.capacity() == 16u && this->str(s) == this->lit("abcxxxxx"));

        S fromEmpty;
        append(fromEmpty);
        EXPECT_EQ(fromEmpty.capacity(), 2u);
    }
    S seven = this->s("abcdefg");  // an exact fit moves on its first append, even at 7 + 1
    seven.push_back(x);
    EXPECT_EQ(seven.capacity(), 16u);

    S empty;  // appending nothing, or NUL, changes nothing: no block for it, no unsharing
    empty.append(nullptr, 0), empty += static_cast<const TypeParam*>(nullptr), empty.push_back(TypeParam(0));
    this->expectNullEmpty(empty);
    S ab = this->s("ab");
    const S sharer = ab;
    ab.push_back(TypeParam(0)), ab.append(this->t("z"), 0);
    EXPECT_TRUE(this->str(ab) == this->lit("ab") && ab.refCount() == 2);

    const std::vector<typename TestFixture::Op> emptiers = {
        {"resizeFor(0)", [](S& s) { s.resizeFor(0); }},
        {"resize(0)", [](S& s) { s.resize(0); }},
        {"assign(\"\")", [&](S& s) { s.assign(this->t("")); }},
        {"assign(null)", [](S& s) { s.assign(nullptr); }},
        {"assign(p, 0)", [&](S& s) { s.assign(this->t("abc"), 0); }},
        {"clear", [](S& s) { s.clear(); }},
        {"join of empties", [](S& s) { s = S::join(nullptr, 0, nullptr, 0); }},
        {"substr past end", [](S& s) { s = s.substr(s.size()); }}};
    for (const auto& [name, emptier] : emptiers) {
        SCOPED_TRACE(name);
        S s = this->s("hello");
        const S sharer = s;
        emptier(s), this->expectNullEmpty(s);
        EXPECT_TRUE(this->str(sharer) == this->lit("hello") && sharer.refCount() == 1)
            << "the other holder keeps it";
    }
    for (const S& e : {this->s(""), S(nullptr)}) this->expectNullEmpty(e);
}

TYPED_TEST(StringTest, WritesAndResizesCopyOnlyAChangedSharedBlock) {
    using S = typename TestFixture::S;
    S a = this->s("hello"), b = a;
    const TypeParam* block = a.c_str();
    b[0] = TypeParam('h');  // the character already there
    EXPECT_TRUE(TypeParam(b[1]) == TypeParam('e') && a.refCount() == 2);

    b[0] = TypeParam('j');
    EXPECT_EQ(this->str(b) + this->str(a), this->lit("jellohello"));
    EXPECT_TRUE(a.c_str() == block && a.refCount() == 1 && b.capacity() == 8u);  // b's copy: a power of two

    const TypeParam* own = b.c_str();
    b[1] = b[4];  // unshared: in place
    EXPECT_TRUE(b.c_str() == own && this->str(b) == this->lit("jollo"));

    S c = b;
    c.unshare();
    const TypeParam* cBlock = c.c_str();
    c.unshare();
    EXPECT_TRUE(cBlock != b.c_str() && c.c_str() == cBlock) << "copied once, then kept";

    S s = this->s("abcdef");  // capacity 7: resizing reuses it while unshared
    const TypeParam* sBlock = s.c_str();
    s.resizeFor(3);
    EXPECT_TRUE(s.c_str() == sBlock && this->str(s) == this->lit("abc"));
    s.resizeFor(6);
    EXPECT_TRUE(s.c_str() == sBlock && s.c_str()[6] == TypeParam(0));
    s.resizeFor(7);  // no room left for the terminator
    EXPECT_EQ(std::make_pair(s.capacity(), s.size()), std::make_pair(8u, 7u));

    S shared = this->s("abcdef");
    const S sharer = shared;
    shared.resizeFor(2);  // would fit, but the block is shared
    EXPECT_TRUE(shared.capacity() == 4u && this->str(sharer) == this->lit("abcdef"));

    S kept = this->s("hello");
    kept.resize(3);
    EXPECT_EQ(this->str(kept), this->lit("hel"));
    { const S dirt = this->s("xxxxxxxxxxxxxxx"); }  // frees a block of the size resize takes next
    kept.resize(10);
    EXPECT_TRUE(kept.capacity() == 16u && kept.size() == 10u &&
                this->str(kept.substr(0, 3)) == this->lit("hel") &&
                std::all_of(kept.c_str() + 3, kept.c_str() + 10, [](TypeParam c) { return c == 0; }));
    S sharesKept = kept;
    kept.resize(2);
    EXPECT_EQ(this->str(kept) + this->str(sharesKept.substr(0, 3)), this->lit("hehel"));
}

TYPED_TEST(StringTest, JoinOwnBufferAsSourceAndCompare) {
    using S = typename TestFixture::S;
    const S joined = S::join(this->t("ab"), 2, this->t("cde"), 3);
    EXPECT_TRUE(this->str(joined) == this->lit("abcde") && joined.capacity() == 8u);
    EXPECT_EQ(this->str(S::join(nullptr, 0, this->t("xy"), 2)), this->lit("xy"));
    EXPECT_EQ(this->str(this->s("left") + this->s("right")), this->lit("leftright"));

    S s = this->s("abc");  // full, so the append reads the old block while moving to a new one
    s.append(s.c_str(), s.size());
    EXPECT_EQ(this->str(s), this->lit("abcabc"));
    s.append(s.c_str() + 1, 1);  // in place
    s += s;
    EXPECT_EQ(this->str(s), this->lit("abcabcbabcabcb"));

    S text = this->s("hello world");
    text.assign(text.c_str() + 6, 5);
    EXPECT_EQ(this->str(text), this->lit("world"));
    text.assign(text.c_str() + 1);
    EXPECT_EQ(this->str(text), this->lit("orld"));
    const S sharer = text;
    text.assign(text.c_str() + 2, 2);
    EXPECT_EQ(this->str(text) + this->str(sharer), this->lit("ldorld"));

    // {left, right, sign of compare}: null and empty compare equal.
    const std::tuple<const char*, const char*, int> cases[] = {
        {nullptr, "a", -1}, {"a", nullptr, 1}, {nullptr, "", 0}, {"", nullptr, 0},
        {"ab", "abc", -1},  {"abd", "abc", 1}, {"abc", "abc", 0}};
    for (const auto& [l, r, sign] : cases) {
        const TypeParam* left = l ? this->t(l) : nullptr;
        const TypeParam* right = r ? this->t(r) : nullptr;
        const int got = S::compare(left, right);
        EXPECT_EQ((got > 0) - (got < 0), sign) << (l ? l : "null") << " vs " << (r ? r : "null");
        EXPECT_EQ(std::make_tuple(S(left) == S(right), S(left) != right, S(left) < S(right)),
                  std::make_tuple(sign == 0, sign != 0, sign < 0));
    }
    const TypeParam* const none = nullptr;
    EXPECT_EQ(std::make_pair(S::compare(none, this->t("a")), S::compare(this->t("a"), none)),
              std::make_pair(-1, 1));

    std::map<S, int> byName{{this->s("pear"), 1}, {S(), 2}, {this->s("Zebra"), 3}};
    byName[this->s("")] = 4;
    typename TestFixture::Std keys;
    for (const auto& entry : byName) keys += this->str(entry.first) + this->lit(",");
    EXPECT_EQ(keys, this->lit(",Zebra,pear,"));
    EXPECT_EQ(byName[S()], 4);
}

TYPED_TEST(StringTest, ThreadsShareOneBlockSafely) {
    using S = typename TestFixture::S;
    const S shared = this->s("the quick brown fox");
    const auto expected = this->str(shared);
    std::atomic<int> faults{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) {
                const S copy = shared;
                S changed = copy;
                changed[0] = TypeParam('T');            // unshares
                changed.push_back(TypeParam('a' + t));  // grows its own block
                changed += copy;                        // reads the shared block
                S(copy).resizeFor(0);
                faults += this->str(copy) != expected;
                faults += changed.size() != 2 * expected.size() + 1 || changed[0] != TypeParam('T');
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(faults.load() == 0 && shared.refCount() == 1);
}

TEST(CaseInsensitiveCompare, MapKeysIgnoreCase) {
    std::map<LightweightString<char>, int, Qv::caseInsensitiveCompare> values{{"Width", 1}, {"height", 3}};
    values["WIDTH"] = 2, values[LightweightString<char>()] = 4, values[""] = 5;
    std::string order;
    for (const auto& entry : values) order += std::string(entry.first.c_str()) + ",";
    EXPECT_EQ(order, ",height,Width,");
    EXPECT_TRUE(values["width"] == 2 && values[""] == 5);
}

}  // namespace

// The short-run move must do what memmove does at every length it handles itself (and a little beyond),
// with the ranges overlapping either way.
TEST(StringBlocks, MoveBytesMatchesMemmoveAtEveryShortLength) {
    for (std::size_t n = 0; n <= 40; ++n)
        for (const int shift : {-3, -1, 0, 1, 5}) {
            char expected[64], got[64];
            for (int i = 0; i < 64; ++i) expected[i] = got[i] = char('a' + i % 26);
            std::memmove(expected + 8 + shift, expected + 8, n);
            Qv::StringBlocks::moveBytes(got + 8 + shift, got + 8, n);
            ASSERT_EQ(std::memcmp(expected, got, sizeof got), 0) << n << " bytes, shift " << shift;
        }
}
