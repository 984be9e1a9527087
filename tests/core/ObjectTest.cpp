// Hunts: double and missing deletions, references lost or kept by pointer operations, destructors that re-enter
// pointers, registry or release lists, deferred releases out of order, wrong class identity.
#include "kiv/core/Object.h"

#include "kiv/core/Singletons.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/TimedReferences.h"
#include "kiv/core/UnmanagedObject.h"
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using Names = std::vector<std::string>;

// Runs a function in its destructor, by default counting its deaths.
class Mortal : public Object {
    KIV_OBJECT(Mortal, Object)

public:
    explicit Mortal(std::function<void()> atDeath) : m_atDeath(std::move(atDeath)) {}
    explicit Mortal(int& deaths) : m_atDeath([&deaths] { ++deaths; }) {}
    ~Mortal() override { m_atDeath(); }

private:
    std::function<void()> m_atDeath;
};

template <int depth>
class Nested : public Nested<depth - 1> {
    KIV_OBJECT(Nested, Nested<depth - 1>)
};
template <>
class Nested<1> : public Object {};

Names namesOf(const ClassChain& chain) {
    return {chain.begin(), std::find(chain.begin(), chain.end(), nullptr)};
}

TEST(Object, DiesOnceWithItsLastReference) {
    int deaths = 0;
    auto first = makeObject<Mortal>(deaths);
    SmartPointer<Object> second(first);
    first->decreaseReferenceCountBy(0), first->increaseReferenceCountBy(4), first->decreaseReferenceCountBy(3);
    EXPECT_EQ(first->getReferenceCount(), 3);
    first.reset();
    second->decreaseReferenceCountBy(1);
    EXPECT_EQ(deaths, 0);
    second = nullptr;
    EXPECT_EQ(deaths, 1);
    auto* bulk = new Mortal(deaths);
    bulk->increaseReferenceCountBy(2), bulk->decreaseReferenceCountBy(2);
    EXPECT_EQ(deaths, 2);

    auto* disabled = new Mortal(deaths);
    disabled->disableSmartPointers();
    SmartPointer<Mortal>(disabled).reset();
    EXPECT_TRUE(deaths == 2 && disabled->getReferenceCount() == 1);
    delete disabled;
}

TEST(Object, CopiesStartWithoutReferences) {
    UnmanagedObject original;
    const UnmanagedObject copy(original), moved(std::move(original));
    EXPECT_EQ(UnmanagedObject().getReferenceCount(), 1);
    EXPECT_EQ(copy.getReferenceCount() + moved.getReferenceCount(), 0);
    Object counted, other;
    counted.increaseReferenceCountBy(5);
    EXPECT_EQ(Object(counted).getReferenceCount(), 0);
    other = counted;
    EXPECT_EQ(other.getReferenceCount(), 0);
    counted = other;
    EXPECT_EQ(counted.getReferenceCount(), 5);
}

TEST(Object, NamesItsClassAndItsBasesRootFirst) {
    UnmanagedObject object;
    Object& base = object;
    EXPECT_STREQ(base.getDynamicClassName(), "UnmanagedObject");
    EXPECT_EQ(namesOf(base.getDynamicClassChain()), (Names{"Object", "UnmanagedObject"}));
    EXPECT_EQ(namesOf(Object().getDynamicClassChain()), Names{"Object"});
    EXPECT_EQ(namesOf(Mortal::getStaticClassChain()), (Names{"Object", "Mortal"}));
    struct Deepest : Nested<16> {
        using Nested<16>::fillClassChain;
    };
    EXPECT_EQ(namesOf(Nested<16>::getStaticClassChain()).size(), 16u);
    ClassChain chain{};
    EXPECT_EQ(Deepest::fillClassChain(chain, 14), 16);
    EXPECT_STREQ(chain[14], "Object");
    EXPECT_EQ(Deepest::fillClassChain(chain, 16), 16); // full
}

TEST(SmartPointer, AssignmentTakesTheNewReferenceBeforeItReleasesTheOld) {
    struct Link : Object {
        SmartPointer<Link> next;
    };
    int deaths = 0;
    auto head = makeObject<Link>();
    head->next = makeObject<Link>();
    head = head->next; // only the old head kept the new one alive
    EXPECT_EQ(head->getReferenceCount(), 1);

    auto pointer = makeObject<Mortal>(deaths);
    auto& same = pointer;
    pointer = same;
    pointer = std::move(same);
    pointer = pointer.get();
    ASSERT_TRUE(pointer);
    SmartPointer<Object> moved(std::move(pointer));
    EXPECT_TRUE(pointer == nullptr && moved->getReferenceCount() == 1 && deaths == 0);
}

TEST(SmartPointer, IsConsistentInsideADestructorThatReentersIt) {
    SmartPointer<Object> pointer;
    auto replacement = makeObject<Object>();
    const Object* seen = nullptr;
    pointer = new Mortal([&] { seen = pointer.get(); });
    pointer = replacement;
    EXPECT_EQ(seen, replacement.get());
    pointer = new Mortal([&] { seen = pointer.get(); });
    pointer.reset();
    EXPECT_EQ(seen, nullptr);
    SmartPointer<Object> source(new Object);
    pointer = new Mortal([&] { seen = source.get(); });
    pointer = std::move(source);
    EXPECT_EQ(seen, nullptr);
}

#ifdef NDEBUG
TEST(Object, SmartPointerToADyingObjectDoesNotDeleteItTwice) {
    int deaths = 0;
    Object* self = nullptr;
    int countInside = -1;
    self = new Mortal([&] {
        ++deaths;
        SmartPointer<Object>(self).reset();
        countInside = self->getReferenceCount();
    });
    SmartPointer<Object>(self).reset();
    EXPECT_TRUE(deaths == 1 && countInside == 0);
}
#endif

TEST(Object, IsReleasedOnceWhenThreadsShareIt) {
    // Each thread copies and drops its own pointer; whoever drops last deletes, whichever thread that is.
    std::atomic<int> deaths = 0;
    for (int round = 0; round < 50; ++round) {
        SmartPointer<Object> shared(new Mortal([&] { ++deaths; }));
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([own = shared]() mutable {
                for (int n = 0; n < 100; ++n) SmartPointer<Object>(own).reset();
                own.reset();
            });
        }
        shared.reset();
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(deaths, 50);
}

TEST(TimedReferences, KeepObjectsUntilTheDrainWhichReleasesTheLatestFirst) {
    Names order;
    const std::function<void()> nothing = [] {};
    const auto mortal = [&](const char* name, const std::function<void()>& also) {
        auto* object = new Mortal([&order, name, also] { order.push_back(name), also(); });
        object->increaseReferenceCount();
        return object;
    };
    Object* late = mortal("late", nothing); // queued meanwhile
    mortal("first", nothing)->decreaseReferenceCountAsyncOnMain();
    const SmartPointer<Object> timed = makeObject<Object>();
    timed->takeTimedReference();
    internal::appendTimedReference(mortal("second", [&] { late->decreaseReferenceCountAsyncOnMain(); }));
    internal::appendTimedReferenceParallel(mortal("parallel", nothing));
    EXPECT_TRUE(order.empty() && timed->getReferenceCount() == 2 && internal::removeAllTimedReferences());
    EXPECT_EQ(order, (Names{"second", "late", "first"}));
    EXPECT_EQ(timed->getReferenceCount(), 1);
    EXPECT_TRUE(internal::removeAllTimedReferencesParallel());
    EXPECT_EQ(order.back(), "parallel");
    EXPECT_FALSE(internal::removeAllTimedReferences() || internal::removeAllTimedReferencesParallel());
}

TEST(TimedReferences, AreAllReleasedWhenThreadsQueueAndDrain) {
    // Destructors queue a second generation while four threads queue and two of them drain; nothing may be lost.
    std::atomic<int> deaths = 0;
    constexpr int perThread = 500;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < perThread; ++n) {
                auto* child = new Mortal([&] { ++deaths; });
                child->increaseReferenceCount();
                auto* parent = new Mortal([&deaths, child] {
                    ++deaths;
                    child->decreaseReferenceCountAsyncOnMain();
                });
                parent->takeTimedReference();
                if (i < 2) internal::removeAllTimedReferences();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    internal::removeAllTimedReferences();
    EXPECT_EQ(deaths, 2 * 4 * perThread);
}

TEST(Singletons, HoldOneReferencePerName) {
    int deaths = 0;
    Object* first = new Mortal(deaths);
    Object* second = new Mortal(deaths);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Object::setSingleton("x", first), first);
    EXPECT_EQ(first->getReferenceCount(), 1);
    EXPECT_EQ(Object::setSingleton("x", second), second);
    EXPECT_TRUE(deaths == 1 && Object::getSingletonObject("x") == second);
    EXPECT_EQ(internal::getSingleton("x")->getReferenceCount(), 2);
    EXPECT_TRUE(Object::setSingleton("x", nullptr) == nullptr && deaths == 2 && !Object::getSingletonObject("x"));
    Object* unnamed = Object::setSingleton(nullptr, new Mortal(deaths));
    EXPECT_TRUE(Object::getSingletonObject("") == unnamed && Object::getSingletonObject(nullptr) == unnamed);
    Object::discardSingletons();
    EXPECT_TRUE(!Object::getSingletonObject(nullptr) && deaths == 3);

    // The destructor of one may ask for another.
    int asked = 0;
    auto asking = [&] { return new Mortal([&] { asked += Object::getSingletonObject("y") == nullptr ? 1 : 10; }); };
    Object::setSingleton("x", asking()), Object::setSingleton("x", asking()), Object::setSingleton("x", nullptr);
    Object::setSingleton("x", asking());
    Object::discardSingletons();
    EXPECT_EQ(asked, 3);
}

} // namespace
} // namespace kiv
