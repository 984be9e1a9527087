// Hunts: weak pointers left dangling, list nodes unlinked twice or by the wrong pointer, owners told wrongly or in the
// wrong order, owners that remove other weak pointers while theirs is cleared, two registries for one object.
#include "kiv/core/WeakPointer.h"

#include "kiv/core/PointerOwner.h"
#include "kiv/core/UnmanagedObject.h"
#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace kiv {
namespace {

class Listener : public PointerOwner {
public:
    void pointerCleared(void* ownerData) override {
        cleared.push_back(ownerData);
        if (then) then();
    }
    std::vector<void*> cleared;
    std::function<void()> then;
};

TEST(WeakPointer, IsClearedWithItsTargetLatestRegisteredFirst) {
    int a = 0, b = 0;
    Listener one, two;
    auto target = makeObject<Object>();
    WeakPointer<Object> first(target), silent(target);
    auto middle = std::make_unique<WeakPointer<Object>>(target), last = std::make_unique<WeakPointer<Object>>(target);
    first.setOwner(&one, &a);
    last->setOwner(&two, &b);
    bool lastCameFirst = false;
    two.then = [&] { // may destroy others and the one that is cleared
        lastCameFirst = one.cleared.empty() && !*last;
        middle.reset();
        last.reset();
    };
    target.reset();
    EXPECT_FALSE(first || silent);
    EXPECT_EQ(one.cleared, std::vector<void*>{&a});
    EXPECT_EQ(two.cleared, std::vector<void*>{&b});
    EXPECT_TRUE(lastCameFirst);
}

TEST(WeakPointer, CanBeClearedWhileItsTargetLives) {
    Listener owner;
    UnmanagedObject target, unwatched;
    unwatched.removeWeakPointers();
    WeakPointer<UnmanagedObject> pointer(&target);
    pointer.setOwner(&owner);
    target.removeWeakPointers();
    EXPECT_TRUE(!pointer && owner.cleared == std::vector<void*>{nullptr});
    pointer = &target;
    EXPECT_EQ(pointer.get(), &target);
    pointer.reset();
    target.removeWeakPointers();
    EXPECT_EQ(owner.cleared.size(), 1u); // told of deaths, not of being retargeted
}

TEST(WeakPointer, CopiesStartWithoutOwnerAndAssignmentsKeepTheirs) {
    Listener ownerOfFirst, ownerOfAssigned;
    auto target = makeObject<Object>();
    WeakPointer<Object> first(target);
    first.setOwner(&ownerOfFirst);
    WeakPointer<Object> copy(first), assigned, moveAssigned;
    assigned.setOwner(&ownerOfAssigned);
    assigned = copy;
    WeakPointer<Object> moved(std::move(copy));
    moveAssigned = std::move(assigned);
    auto& same = moveAssigned;
    moveAssigned = same;
    moveAssigned = std::move(same);
    EXPECT_TRUE(!copy && !assigned && moved && moveAssigned);
    assigned = moved;
    EXPECT_EQ(moved.lock(), target);
    target.reset();
    EXPECT_FALSE(first || moved || assigned || moveAssigned);
    EXPECT_TRUE(ownerOfFirst.cleared.size() == 1 && ownerOfAssigned.cleared.size() == 1);
}

TEST(WeakPointer, AgreesWithAModelUnderRandomOperations) {
    constexpr unsigned seed = 20231121;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<SmartPointer<Object>> objects(4);
    std::vector<WeakPointer<Object>> pointers(12);
    std::vector<Object*> model(pointers.size());
    for (int step = 0; step < 4000; ++step) {
        const size_t at = random() % pointers.size(), from = random() % pointers.size();
        auto& object = objects[random() % objects.size()];
        const size_t kind = random() % 5;
        if (kind == 0) {
            std::replace(model.begin(), model.end(), object.get(), static_cast<Object*>(nullptr));
            object = new Object;
        }
        if (kind == 1) pointers[at] = object, model[at] = object.get();
        if (kind == 2) pointers[at] = pointers[from], model[at] = model[from];
        if (kind == 3 && at != from) model[at] = std::exchange(model[from], nullptr);
        if (kind == 3) pointers[at] = std::move(pointers[from]);
        if (kind == 4) pointers[at].reset(), model[at] = nullptr;
        for (size_t i = 0; i < pointers.size(); ++i) ASSERT_EQ(pointers[i], model[i]) << "step " << step;
    }
}

TEST(WeakPointer, FirstRegistrationsOfTwoThreadsShareOneRegistry) {
    // Both threads walk the same unwatched objects in step; with two registries for one object a pointer stays
    // uncleared.
    constexpr size_t count = 5000;
    std::vector<SmartPointer<Object>> targets(count);
    for (auto& target : targets) target = new Object;
    std::vector<WeakPointer<Object>> pointers(2 * count);
    std::vector<std::atomic<int>> arrivals(count);
    auto walk = [&](size_t first) {
        for (size_t i = 0; i < count; ++i) {
            ++arrivals[i];
            // Meets the other one here, unless that has no processor.
            for (int spins = 0; arrivals[i] < 2 && spins < 100000;) ++spins;
            pointers[2 * i + first] = targets[i];
            WeakPointer<Object>(pointers[2 * i + first]).reset();
        }
    };
    std::thread other(walk, 1);
    walk(0);
    other.join();
    targets.clear();
    for (const auto& pointer : pointers) ASSERT_FALSE(pointer);
}

} // namespace
} // namespace kiv
