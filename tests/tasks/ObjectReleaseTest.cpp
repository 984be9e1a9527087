// Hunts: objects that are released on the wrong thread, or stay listed.
#include "kiv/tasks/ObjectRelease.h"
#include "TaskHelpers.h"
#include "kiv/core/TimedReferences.h"
#include "kiv/tasks/ThreadPool.h"

#include <gtest/gtest.h>
#include <thread>

namespace kiv {
namespace {

struct Tracked : Object {
    explicit Tracked(std::thread::id& diedOn) : thread(diedOn) {}
    ~Tracked() override { thread = std::this_thread::get_id(); }
    std::thread::id& thread;
};

TEST(ObjectRelease, HappensOnAWorkerWhereThereIsAQueue) {
    const support::Watchdog watchdog;
    std::thread::id diedOn;
    auto release = [&] {
        auto* object = new Tracked(diedOn);
        object->increaseReferenceCount();
        object->decreaseReferenceCountAsyncOnParallel();
    };
    release();
    EXPECT_EQ(diedOn, std::thread::id()); // only listed
    {
        ThreadPool pool;
        const auto queue = makeObject<TaskQueue>(TaskQueue::GlobalParallel);
        EXPECT_EQ(internal::exchangeReleaseQueue(queue), nullptr);
        std::jthread([&] { release(); }).join();
        queue->wait();
        EXPECT_TRUE(diedOn != std::thread::id() && diedOn != std::this_thread::get_id() && isClean(*queue));
        EXPECT_EQ(internal::exchangeReleaseQueue(nullptr), queue);
    }
    EXPECT_FALSE(internal::removeAllTimedReferencesParallel());
    release();
    EXPECT_TRUE(internal::removeAllTimedReferencesParallel() && diedOn == std::this_thread::get_id());
}

} // namespace
} // namespace kiv
