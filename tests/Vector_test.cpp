// LightweightVector: one storage shared by every holder, no copy-on-write.

#include <ole/Qv/Vector.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

static_assert(std::is_base_of_v<iObject, LightweightVector<int>>);

using Ints = std::vector<int>;
const auto items = [](const LightweightVector<int>& v) -> Ints { return Ints(v.begin(), v.end()); };
LightweightVector<int> make(std::initializer_list<int> values) {
    LightweightVector<int> v(values.size());
    for (int value : values) v.push_back(value);
    return v;
}

TEST(LightweightVector, EveryHolderSeesEveryChangeAndRemoveIgnoresBadIndices) {
    LightweightVector<int> a = make({1}), copy(a), assigned = make({99});
    assigned = a, copy.push_back(2), assigned[0] = 10;
    EXPECT_EQ(items(a), (Ints{10, 2}));
    a.clear();
    EXPECT_TRUE(copy.empty() && assigned.empty());

    // copyFrom copies elements into this storage, which its own holders then see.
    const LightweightVector<int> source = make({1, 2, 3});
    LightweightVector<int> target = make({9});
    const LightweightVector<int> targetHolder(target);
    target.copyFrom(source);
    EXPECT_EQ(items(targetHolder), (Ints{1, 2, 3}));
    target.push_back(4);
    EXPECT_EQ(source.size(), 3u) << "the source's storage is not shared";
    target.copyFrom(targetHolder);
    EXPECT_EQ(items(target), (Ints{1, 2, 3, 4}));

    LightweightVector<int> v = make({1, 2});
    v += v, v += make({3});
    EXPECT_EQ(items(v), (Ints{1, 2, 1, 2, 3}));
    LightweightVector<std::string> words;  // elements that a move would empty
    for (const char* word : {"a", "b"}) words.push_back(word);
    words += words;
    EXPECT_TRUE(words.size() == 4 && words[2] == "a" && words[3] == "b");

    // remove ignores indices out of range; equality compares elements.
    v = make({1, 2, 3, 4});
    for (int index : {1, 3, 1000}) v.remove(index);  // 3 is one past the end by then
    EXPECT_EQ(items(v), (Ints{1, 3, 4}));
    v.erase(v.begin(), v.begin() + 2);
    EXPECT_EQ(items(v), (Ints{4}));
    for (int index : {0, 0}) v.remove(index);
    EXPECT_TRUE(v.empty());

    EXPECT_TRUE(make({}) == make({}) && make({1, 2}) == make({1, 2}));
    EXPECT_TRUE(make({1, 2}) != make({2, 1}) && make({1, 2}) != make({1, 2, 3}));
    EXPECT_TRUE(make({4, 8}).contains(8) && !make({4, 8}).contains(5) && !make({}).contains(0));
}

// Elements are released with the last holder of the storage, and only then.
struct Element : iObject {
    static inline int live = 0;
    Element() { ++live; }
    ~Element() override { --live; }
};

TEST(LightweightVector, ElementsLiveAsLongAsTheStorage) {
    {
        LightweightVector<Qv::Ptr<Element>> outer;
        {
            LightweightVector<Qv::Ptr<Element>> v;
            for (int i = 0; i < 2; ++i) v.push_back(Qv::makePtr<Element>());
            outer = v;
            LightweightVector<Qv::Ptr<Element>> copied;
            copied.copyFrom(v);
            EXPECT_EQ(v[0].refCount(), 2);
        }
        EXPECT_EQ(Element::live, 2);
        outer.remove(0);
        EXPECT_EQ(Element::live, 1);
    }
    EXPECT_EQ(Element::live, 0);
}

}  // namespace
