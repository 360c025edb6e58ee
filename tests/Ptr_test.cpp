#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

struct Tracked : iObject {  // counts live objects: a leak or a double delete shows as a wrong number
    static inline int live = 0, destroyed = 0;
    int value;
    explicit Tracked(int v = 0) : value(v) { ++live; }
    ~Tracked() override { --live, ++destroyed; }
};
struct TrackedChild : Tracked {
    static inline int childDestroyed = 0;
    using Tracked::Tracked;
    ~TrackedChild() override { ++childDestroyed; }
};
template <class Traits>
struct Node : Tracked {
    using Tracked::Tracked;
    Qv::Ptr<Node, Qv::DtorTraits, Traits> next;
};
// Reached through two interfaces; iObject's count base is virtual, so there is one count.
struct FaceA : iObject {};
struct FaceB : iObject {};
struct BothFaces : FaceA, FaceB, Tracked {};

static_assert(sizeof(Qv::Ptr<Tracked>) == 2 * sizeof(void*) &&
              sizeof(Qv::Ptr<Tracked, Qv::DtorTraits, Qv::ExternalRefCountTraits>) == 2 * sizeof(void*) &&
              sizeof(LightweightString<wchar_t>::ImplPtr) == 2 * sizeof(void*));
static_assert(std::is_convertible_v<BothFaces*, Qv::InternalRefCount*>, "one count base, not two");
static_assert(!std::is_convertible_v<Tracked*, Qv::Ptr<Tracked>>, "adopting a raw pointer is explicit");
static_assert(std::is_convertible_v<Qv::Ptr<TrackedChild>, Qv::Ptr<Tracked>> &&
              !std::is_convertible_v<Qv::Ptr<Tracked>, Qv::Ptr<TrackedChild>>);

using Words = std::pair<void*, void*>;
const Words kNull(nullptr, nullptr);
template <class P>
Words wordsOf(const P& p) {
    void* words[2];
    std::memcpy(words, static_cast<const void*>(&p), sizeof words);
    return {words[0], words[1]};
}

template <class Traits>
class PtrTest : public ::testing::Test {
protected:
    using P = Qv::Ptr<Tracked, Qv::DtorTraits, Traits>;
    void SetUp() override { Tracked::live = Tracked::destroyed = TrackedChild::childDestroyed = 0; }
    void TearDown() override { EXPECT_EQ(Tracked::live, 0) << "objects leaked"; }
};
using CountTraits = ::testing::Types<Qv::InternalRefCountTraits, Qv::ExternalRefCountTraits>;
TYPED_TEST_SUITE(PtrTest, CountTraits);

TYPED_TEST(PtrTest, CopiesShareOneCountAndTheLastReleaseDestroysOnce) {
    using P = typename TestFixture::P;
    P null;
    EXPECT_TRUE(wordsOf(null) == kNull && null.decRef() == 0 && P(static_cast<Tracked*>(nullptr)) == nullptr);

    Tracked* object = new Tracked(7);
    {
        P a(object);
        EXPECT_EQ(wordsOf(a), Words(a.countPtr(), object)) << "count pointer first, object second";
        EXPECT_TRUE((std::is_same_v<TypeParam, Qv::InternalRefCountTraits>)
                        ? a.countPtr() == object->refCountPtr()
                        : object->refCount() == 0);
        P b(a), c = b;
        const P other(new Tracked(8));
        EXPECT_TRUE(!(a < b || b < a) && (a < other) != (other < a)) << "strict: equal pointers are not less";
        EXPECT_TRUE(wordsOf(c) == wordsOf(a) && a.refCount() == 3);
        c.reset();
        const Words words = wordsOf(b);  // decRef keeps the words until the count reaches zero
        EXPECT_TRUE(wordsOf(c) == kNull && b.decRef() == 1 && wordsOf(b) == words);
        b.incRef(), b.reset();
        EXPECT_TRUE(Tracked::destroyed == 0 && a.decRef() == 0 && wordsOf(a) == kNull && a.decRef() == 0);
    }
    EXPECT_EQ(Tracked::destroyed, 2);
}

TYPED_TEST(PtrTest, AssignmentNeverDestroysWhatItStillHoldsAndConverts) {
    using P = typename TestFixture::P;
    P a(new Tracked(1));
    a = static_cast<const P&>(a);  // sole owner assigned to itself
    P b(a);
    a = b;
    EXPECT_EQ(Tracked::live + 10 * a.refCount(), 21);

    P other(new Tracked(2));
    a = other;
    EXPECT_EQ(b.refCount(), 1);
    b = other;  // the last share of the first object goes
    EXPECT_TRUE(Tracked::destroyed == 1 && other.refCount() == 3);

    // The incoming pointer lives inside the object that the assignment releases.
    using NodeP = Qv::Ptr<Node<TypeParam>, Qv::DtorTraits, TypeParam>;
    NodeP head(new Node<TypeParam>(1));
    head->next = NodeP(new Node<TypeParam>(2)), head->next->next = NodeP(new Node<TypeParam>(3));
    head = head->next;
    EXPECT_EQ(head ? head->value + 10 * head.refCount() : 0, 12);
    head = std::move(head->next);
    EXPECT_EQ(head ? head->value : 0, 3);
    EXPECT_EQ(Tracked::destroyed, 3);

    P base;
    {
        Qv::Ptr<TrackedChild, Qv::DtorTraits, TypeParam> child(new TrackedChild(5));
        P converted(child);
        base = child;
        EXPECT_TRUE(converted.countPtr() == child.countPtr() && child.refCount() == 3);
    }
    P moved(std::move(base));
    EXPECT_TRUE(wordsOf(base) == kNull && moved.refCount() == 1);
    P target(new Tracked(6));
    target = std::move(moved);
    EXPECT_TRUE(Tracked::destroyed == 4 && target->value == 5) << "the move released the old object";
    target.reset();
    EXPECT_EQ(TrackedChild::childDestroyed, 1) << "released through the base, destroyed as the derived type";
}

TYPED_TEST(PtrTest, CopiesAndReleasesFromSeveralThreads) {
    using P = typename TestFixture::P;
    constexpr int kThreads = 4;
    P shared(new Tracked(42));
    std::atomic<int> ready{0}, badReads{0};
    std::vector<std::thread> threads, finishers;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (++ready; ready.load() < kThreads;) std::this_thread::yield();
            std::vector<P> held;
            for (int i = 0; i < 50000; ++i, held.size() == 16 ? held.clear() : void()) {
                held.push_back(shared), badReads += held.back()->value != 42;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(badReads.load() + shared.refCount() * 10 + Tracked::live * 100, 110);

    // Every thread drops one of the last references at once: exactly one of them destroys.
    std::vector<P> lastOwners(kThreads, shared);
    shared.reset();
    for (int t = 0; t < kThreads; ++t)
        finishers.emplace_back([&, t] {
            for (++ready; ready.load() < 2 * kThreads;) std::this_thread::yield();
            lastOwners[t].reset();
        });
    for (auto& thread : finishers) thread.join();
    EXPECT_EQ(Tracked::destroyed, 1);
}

using PtrInternalCount = PtrTest<Qv::InternalRefCountTraits>;
struct CountingDtor {
    static inline int calls = 0;
    static void destroy(Tracked* object) noexcept { ++calls, delete object; }
};

TEST_F(PtrInternalCount, EveryPointerToTheObjectUsesItsOneCount) {
    Qv::Ptr<Tracked> a = Qv::makePtr<Tracked>(3), rewrapped(a.get());
    EXPECT_EQ(a.refCount(), 2);
    a.reset();
    EXPECT_EQ(rewrapped->value + 10 * Tracked::live, 13);
    rewrapped.reset();

    BothFaces* both = new BothFaces;
    Qv::Ptr<FaceA> viaA(both);
    Qv::Ptr<FaceB> viaB(both);
    EXPECT_EQ(viaA.countPtr(), viaB.countPtr());
    viaA.reset();
    EXPECT_EQ(Tracked::destroyed, 1);
    viaB.reset();
    EXPECT_EQ(Tracked::destroyed, 2);

    Qv::Ptr<Tracked, CountingDtor> c(new Tracked), d(c);  // destroyed by its DtorTraits, once
    c.reset();
    EXPECT_EQ(CountingDtor::calls, 0);
    d.reset();
    EXPECT_EQ(CountingDtor::calls, 1);
}

}  // namespace
