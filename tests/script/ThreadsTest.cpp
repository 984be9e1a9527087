// Hunts: threads that run in another order than that of a plain walk over all of them, wake too early, twice or never,
// are lost or kept at their end, and suspensions that stop something else than the thread.
#include "kiv/core/Clock.h"
#include "kiv/script/AsyncQueue.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VMThread.h"
#include "tests/support/LogLines.h"

#include <array>
#include <deque>
#include <gmock/gmock.h>
#include <list>
#include <random>

namespace {

using kiv::ManualClock;
using kivSq::AsyncQueue;
using kivSq::WakeCondition;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

// ---- Random threads, in the VM and in a model that walks over all of them.

struct Wait {
    enum Kind { GoOn, NextPass, Time, Never, Flag, End, Fail } kind;
    unsigned value = 0;
};

// What both do in the same way.
struct World {
    explicit World(unsigned number) : seed(number) {}
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    virtual ~World() = default;
    virtual void start(int id, int queue) = 0;
    virtual void abort(size_t queue) = 0;
    virtual void advance(unsigned milliseconds) = 0;
    virtual void pass() = 0;
    virtual size_t countRunning(size_t queue) const = 0;

    // Thread `id` does what comes next.
    Wait step(int id) {
        const int count = steps[id]++;
        trace.push_back(std::to_string(id) + '.' + std::to_string(count));
        std::seed_seq mixed{seed, static_cast<unsigned>(id), static_cast<unsigned>(count)};
        std::mt19937 random(mixed);
        const auto action = static_cast<unsigned>(random() % 13), value = static_cast<unsigned>(random() % 12);
        switch (action) {
        case 0:
            return {Wait::End};
        case 1:
            return {Wait::Fail};
        case 2:
            return {Wait::NextPass};
        case 3:
        case 4:
        case 5:
            return {Wait::Time, value};
        case 6:
            return {Wait::Never};
        case 7:
            return {Wait::Flag, value % 3};
        case 8:
            flags[value % 3] ^= true;
            break;
        case 9:
            advance(value);
            break;
        case 10:
            abort(value % 2);
            break;
        default:
            if (created < 150) start(created++, static_cast<int>(value % 4) - 2);
        }
        return {Wait::GoOn};
    }
    bool ask(int id, unsigned flag) {
        trace.push_back('?' + std::to_string(id));
        return flags[flag];
    }

    const unsigned seed;
    std::array<bool, 3> flags{};
    std::map<int, int> steps;
    int created = 0;
    Texts trace;
};

constexpr uint32_t startTime = 0xFFFFFFC0; // wraps on the way

struct Model : World {
    using World::World;
    struct Thread {
        int id;
        int queue;
        Wait wait{Wait::GoOn};
        bool isNew = true;
    };
    struct Queue {
        size_t max;
        size_t running = 0;
        bool isAborting = false;
        std::deque<int> waiting;
    };

    void start(int id, int queue) override {
        if (queue < 0) {
            threads.push_back({id, -1});
        } else {
            queues[static_cast<size_t>(queue)].waiting.push_back(id);
            startWaiting(queue);
        }
    }
    void startWaiting(int index) {
        Queue& queue = queues[static_cast<size_t>(index)];
        for (; !queue.isAborting && queue.running < queue.max && !queue.waiting.empty(); ++queue.running) {
            threads.push_back({queue.waiting.front(), index});
            queue.waiting.pop_front();
        }
    }
    void abort(size_t queue) override {
        queues[queue].waiting.clear();
        queues[queue].isAborting = queues[queue].running > 0;
    }
    void advance(unsigned milliseconds) override { time += milliseconds; }
    bool isDue(const Thread& thread) {
        const bool isAborted = thread.queue >= 0 && queues[static_cast<size_t>(thread.queue)].isAborting;
        switch (thread.wait.kind) {
        case Wait::Time:
            return isAborted || static_cast<int32_t>(time - thread.wait.value) > 0;
        case Wait::Never:
            return isAborted;
        case Wait::Flag:
            return ask(thread.id, thread.wait.value);
        default:
            return true;
        }
    }
    void pass() override {
        for (auto i = threads.begin(); i != threads.end();) {
            if (!i->isNew && !isDue(*i)) {
                ++i;
                continue;
            }
            i->isNew = false;
            do i->wait = step(i->id);
            while (i->wait.kind == Wait::GoOn);
            if (i->wait.kind == Wait::Time) i->wait.value += time;
            if (i->wait.kind != Wait::End && i->wait.kind != Wait::Fail) {
                ++i;
                continue;
            }
            if (i->queue >= 0) {
                Queue& queue = queues[static_cast<size_t>(i->queue)];
                if (--queue.running == 0) queue.isAborting = false;
                startWaiting(i->queue);
            }
            i = threads.erase(i);
        }
    }
    size_t countRunning(size_t queue) const override { return queues[queue].running; }

    uint32_t time = startTime;
    std::list<Thread> threads;
    std::array<Queue, 2> queues{{{1, 0, false, {}}, {3, 0, false, {}}}};
};

struct Real : World {
    explicit Real(unsigned number) : World(number), clock(startTime) {
        current = this;
        sq_newclosure(vm.getSquirrelVM(), &kivSq::internal::callNative<&stepNative>, 0);
        vm.getRootTable().set("step", kivSq::Object(vm.getSquirrelVM(), -1));
        sq_poptop(vm.getSquirrelVM());
    }
    ~Real() override { current = nullptr; }

    static SQInteger stepNative(SQVM* v) {
        SQInteger id = 0;
        sq_getinteger(v, 2, &id);
        World* world = current;
        const Wait wait = world->step(static_cast<int>(id));
        switch (wait.kind) {
        case Wait::NextPass:
            return current->vm.suspend(v, WakeCondition::nextPass());
        case Wait::Never:
            return current->vm.suspend(v, WakeCondition::never());
        case Wait::Time:
            return current->vm.suspend(v, WakeCondition::after(kiv::Clock::current().getTime() + wait.value));
        case Wait::Flag:
            return current->vm.suspend(
                v, WakeCondition([world, id, wait](SQVM*) { return world->ask(static_cast<int>(id), wait.value); }));
        case Wait::Fail:
            throw std::runtime_error("fails");
        default:
            sq_pushbool(v, wait.kind == Wait::GoOn);
            return 1;
        }
    }
    void start(int id, int queue) override {
        const std::string code = "while (step(" + std::to_string(id) + ") != false) {}";
        const kivSq::Object closure = vm.newClosure(code.c_str(), static_cast<unsigned>(code.size()), "thread");
        if (queue < 0) {
            vm.createThread(closure);
        } else {
            EXPECT_TRUE(queues[static_cast<size_t>(queue)]->push(closure));
        }
    }
    void abort(size_t queue) override { queues[queue]->abort(); }
    void advance(unsigned milliseconds) override { clock.advance(milliseconds); }
    void pass() override { vm.processEvents(); }
    size_t countRunning(size_t queue) const override { return static_cast<size_t>(queues[queue]->running()); }

    static inline Real* current = nullptr;
    ManualClock clock;
    kivSq::VM vm;
    std::array<kiv::SmartPointer<AsyncQueue>, 2> queues{kiv::makeObject<AsyncQueue>(1), kiv::makeObject<AsyncQueue>(3)};
};

TEST(ThreadsModel, RandomThreadsRunAsInAWalkOverAll) {
    size_t asked = 0, ended = 0;
    for (unsigned seed = 0; seed < 60; ++seed) {
        support::LogLines log;
        Model model(seed);
        Real real(seed);
        for (World* world : {static_cast<World*>(&model), static_cast<World*>(&real)})
            for (world->created = 0; world->created < 12; ++world->created)
                world->start(world->created, world->created % 4 - 2);
        for (int pass = 0; pass < 25; ++pass) {
            for (World* world : {static_cast<World*>(&model), static_cast<World*>(&real)}) {
                world->pass();
                world->advance(seed % 3);
                if (pass == 20) world->abort(seed % 2);
            }
            ASSERT_EQ(model.trace, real.trace) << "seed " << seed << ", pass " << pass;
            ASSERT_EQ(model.threads.empty(), !real.vm.threadsActive());
            for (size_t i = 0; i < 2; ++i) ASSERT_EQ(model.countRunning(i), real.countRunning(i));
        }
        for (const std::string& line : model.trace) asked += line[0] == '?';
        ended += static_cast<size_t>(model.created) - model.threads.size();
    }
    EXPECT_TRUE(asked > 800 && ended > 800) << asked << ' ' << ended; // else the model tells nothing
}

TEST(ThreadsModel, APassLooksAtNoneThatSleeps) {
    struct CountingClock : ManualClock {
        int64_t getMilliseconds() const override { return ++looks, ManualClock::getMilliseconds(); }
        mutable int looks = 0;
    };
    CountingClock clock;
    kivSq::VM vm;
    vm.executeString("for (local i = 0; i < 500; i++) { local n = i; std.async(@() std.sleep(100 + n)) }\n"
                     "for (local i = 0; i < 500; i++) std.async(@() std.sleep_forever())",
                     "t");
    vm.processEvents();
    clock.looks = 0;
    vm.processEvents();
    EXPECT_LE(clock.looks, 1);
    clock.advance(109); // those of 100 to 108 are due
    vm.processEvents();
    EXPECT_LE(clock.looks, 30);
    EXPECT_TRUE(vm.threadsActive());
}

// ---- What scripts see.

struct ThreadsTest : testing::Test {
    ThreadsTest() {
        notes.clear();
        kivSq::internal::NativeTable(vm.getSquirrelVM(), vm.getRootTable())
            .carried(
                "note", +[](const kivSq::Object& value) { notes.push_back(value.describe().c_str()); });
    }

    void run(const char* code) { EXPECT_TRUE(vm.executeString(code, "t")); }
    // Runs the function body in a thread until no thread waits for less than a second.
    Texts runThread(const std::string& body) {
        run(("std.async(function () {" + body + "})").c_str());
        for (int i = 0; i < 20; ++i) pass(50);
        return std::exchange(notes, {});
    }
    void pass(int64_t milliseconds = 0) {
        clock.advance(milliseconds);
        vm.processEvents();
    }

    static inline Texts notes;
    ManualClock clock;
    kivSq::VM vm;
};

TEST_F(ThreadsTest, SleepYieldAndForever) {
    run("std.async(function () { note(\"a\"); note(std.sleep(100)); note(\"b\") })");
    EXPECT_EQ(vm.getIdleTime(1000), 0u); // it has not begun
    pass();
    EXPECT_EQ(vm.getIdleTime(1000), 101u);
    EXPECT_EQ(vm.getIdleTime(50), 50u);
    pass(100);
    EXPECT_THAT(notes, ElementsAre("a")); // strictly after
    EXPECT_EQ(vm.getIdleTime(1000), 1u);
    clock.advance(7); // overdue
    EXPECT_EQ(vm.getIdleTime(1000), 0u);
    pass();
    EXPECT_THAT(notes, ElementsAre("a", "null", "b"));
    EXPECT_FALSE(vm.threadsActive());

    run("std.async(function () { std[\"yield\"](); note(1); suspend(); note(2) })");
    run("std.async(function () { std.sleep(-5); note(3); std.sleep(1 << 40); note(4) })");
    run("std.async(@() std.sleep_forever())");
    notes.clear();
    pass();
    pass();
    EXPECT_THAT(notes, ElementsAre("1")); // sleep(0) ends after this millisecond
    pass(1);
    EXPECT_THAT(notes, ElementsAre("1", "2", "3"));
    pass(INT32_MAX);
    EXPECT_EQ(notes.size(), 3u);
    pass(1);
    EXPECT_EQ(notes.back(), "4");
    EXPECT_TRUE(vm.threadsActive()); // the one that sleeps for ever
    pass(int64_t{1} << 33);
    EXPECT_TRUE(vm.threadsActive());
    EXPECT_EQ(vm.getIdleTime(1000), 1000u);
}

TEST_F(ThreadsTest, OnlyThreadsSuspend) {
    support::LogLines log;
    // Nothing happens outside of a thread, also when a thread is what calls there.
    run("std.sleep(1000); std.sleep_forever(); std[\"yield\"](); note(1)");
    EXPECT_THAT(notes, ElementsAre("1"));
    EXPECT_FALSE(vm.executeString("suspend()", "t"));
    EXPECT_THAT(log.takeOne(), HasSubstr("suspend called outside of a coroutine"));
    vm.setImportCallback(
        "module",
        [](kivSq::VM* importer, const char*) {
            importer->executeString("note(\"m1\"); std.sleep(5); note(\"m2\"); suspend(); note(\"never\")", "module");
        },
        "");
    notes.clear();
    EXPECT_THAT(runThread("import(\"module\"); note(\"t\"); std.sleep(5); note(\"end\")"),
                ElementsAre("m1", "m2", "t", "end"));
    EXPECT_THAT(log.take().front(), HasSubstr("suspend called outside of a coroutine"));
    run("note(\"the main VM runs on\")");
    notes.clear();

    // A coroutine of the script's own is another one.
    const char* coroutine = "local c = newthread(function () { std.sleep(5); note(1); suspend(2); note(3); return 4 });"
                            "note(c.call()); std.sleep(5); note(\"between\"); note(c.wakeup()); note(c.getstatus())";
    EXPECT_THAT(runThread(coroutine), ElementsAre("1", "2", "between", "3", "4", "idle"));
    run(coroutine);
    EXPECT_THAT(notes, ElementsAre("1", "2", "between", "3", "4", "idle"));
    notes.clear();

    // What the engine can't suspend is an error that can be caught, and leaves no condition behind.
    const char* refused = "try { [1].map(@(x) std.sleep(100)) } catch (e) { note(e) };"
                          "local t = {}; t.setdelegate({ _add = @(o) std.sleep(100) }); try { t + 1 } catch (e) {"
                          "note(e) }; note(\"done\")";
    const std::string text = "cannot suspend through native calls/metamethods";
    EXPECT_THAT(runThread(refused), ElementsAre(text, text, "done"));
    EXPECT_FALSE(vm.threadsActive());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ThreadsTest, SleepWorksWhereverScriptRunsStraight) {
    EXPECT_THAT(runThread("local A = class { v = 0; constructor() { std.sleep(5); v = 7 } }; note(A().v)"),
                ElementsAre("7"));
    EXPECT_THAT(runThread("local g = (function () { std.sleep(5); yield 1; std.sleep(5); yield 2 })();"
                          "note(resume g); note(resume g); foreach (x in (function () { std.sleep(5); yield 3 })()) "
                          "note(x)"),
                ElementsAre("1", "2", "3"));
    EXPECT_THAT(runThread("try { std.sleep(5); throw 1 } catch (e) { std.sleep(5); note(e) }"), ElementsAre("1"));
    EXPECT_THAT(runThread("local f = @() std.sleep(5); note(f()); local i = 8; local c = @() i; std.sleep(5); i++;"
                          "note(c())"),
                ElementsAre("null", "9"));
}

TEST_F(ThreadsTest, QueuesRunSoManyAtATime) {
    run("q <- std.queue(2); w <- @(n) function () { note(n); std.sleep(10); note(\"end \" + n) }");
    run("foreach (n in [1, 2, 3, 4]) q.push(w(n)); note(q.running() * 10 + q.size())");
    pass();
    EXPECT_THAT(notes, ElementsAre("22", "1", "2"));
    notes.clear();
    pass(11); // those that follow are at the end of the list and have their turn, too
    EXPECT_THAT(notes, ElementsAre("end 1", "end 2", "3", "4"));
    notes.clear();

    // Aborting drops what waits, wakes what sleeps, and is over with the last one; what comes meanwhile waits.
    run("q.push(w(5)); q.push(@() null); q.abort(); q.push(w(6)); note(q.running() * 10 + q.size())");
    pass();
    EXPECT_THAT(notes, ElementsAre("21", "end 3", "end 4", "6"));
    pass(11);
    EXPECT_FALSE(vm.threadsActive());
    run("q.abort(); q.push(@() note(std.current_queue_is_aborting()))");
    notes.clear();
    pass();
    EXPECT_THAT(std::exchange(notes, {}), ElementsAre("false"));

    EXPECT_THAT(runThread("note(std.get_current_queue()); note(std.current_queue_is_aborting());"
                          "std.async(function () { local own = std.get_current_queue(); note(own.running());"
                          "std.async(@() note(\"next\")); note(own.size()); own.abort(); note(own.size());"
                          "note(std.sleep_forever()); note(std.current_queue_is_aborting()) }, std.queue())"),
                ElementsAre("null", "false", "1", "1", "0", "null", "true"));
}

TEST_F(ThreadsTest, MisuseIsAScriptError) {
    const auto error = [this](const std::string& code) {
        run(("try { " + code + "; note(\"none\") } catch (e) { note(e) }").c_str());
        const std::string text = notes.back();
        return text;
    };
    EXPECT_EQ(error("std.sleep(\"x\")"), "argument 1: expected integer, got string");
    EXPECT_EQ(error("std.sleep()"), "wrong number of parameters");
    EXPECT_EQ(error("std.async(1)"), "argument 1: expected function, got integer");
    EXPECT_EQ(error("std.async(@() 1, 2)"), "argument 2: expected AsyncQueue, got integer");
    EXPECT_EQ(error("std.queue(0)"), "argument 1: expected positive integer, got integer");
    EXPECT_EQ(error("std.queue().push(null)"), "argument 1: expected function, got null");
    EXPECT_EQ(error("std.AsyncQueue()"), "the native class has no constructor for scripts");
    EXPECT_FALSE(vm.threadsActive());
}

TEST_F(ThreadsTest, EndsAreToldAndFailuresLogged) {
    support::LogLines log;
    const auto start = [this](const char* code) {
        const auto told = [](const kivSq::Object& result, bool isGood) {
            notes.push_back(std::string(result.describe().c_str()) + (isGood ? " good" : " bad"));
        };
        vm.createThread(vm.newClosure(code, static_cast<unsigned>(std::strlen(code)), "t"), told);
    };
    start("return 7");
    start("std.sleep(5); std.sleep(5); return \"late\"");
    start("throw 1");
    start("std.sleep(1); suspend(3); throw 2");
    vm.createThread(kivSq::Object::from(5), [](const kivSq::Object&, bool) { throw std::runtime_error("listener"); });
    pass();
    EXPECT_THAT(notes, ElementsAre("7 good", "null bad"));
    Texts lines = log.take();
    EXPECT_THAT(lines, testing::Contains("squirrel thread failed (call)").Times(2));
    EXPECT_THAT(lines.back(), HasSubstr("listener"));
    for (int i = 0; i < 3; ++i) pass(6);
    EXPECT_THAT(notes, ElementsAre("7 good", "null bad", "late good", "null bad"));
    EXPECT_THAT(log.take(), testing::Contains("squirrel thread failed (wake)").Times(1));
    EXPECT_FALSE(vm.threadsActive());

    // More suspensions than its stack has places.
    notes.clear();
    start("for (local i = 0; i < 1000; i++) suspend(i); return 8");
    for (int i = 0; i < 1001; ++i) pass();
    EXPECT_THAT(notes, ElementsAre("8 good"));

    // More arguments than that, which are there until the end.
    constexpr const char* count = "std.sleep(1); return vargv.len() + vargv.top()";
    const kiv::Vector<kivSq::Object> arguments(1000, kivSq::Object::from(7));
    vm.createThread(vm.newClosure(count, static_cast<unsigned>(std::strlen(count)), "t"), arguments,
                    [](const kivSq::Object& result, bool) { notes.emplace_back(result.describe().c_str()); });
    pass();
    pass(5);
    EXPECT_EQ(notes.back(), "1007");
}

TEST_F(ThreadsTest, ConditionsGiveTheValueOrAnError) {
    support::LogLines log;
    static int asked;
    asked = 0;
    SQVM* v = vm.getSquirrelVM();
    const auto add = [&](const char* name, SQFUNCTION function) {
        sq_newclosure(v, function, 0);
        vm.getRootTable().set(name, kivSq::Object(v, -1));
        sq_poptop(v);
    };
    add("third", [](SQVM* thread) {
        return kivSq::VM::current()->suspend(thread, WakeCondition([](SQVM* engine) {
                                                 sq_pushinteger(engine, 42); // left behind when it says no
                                                 return ++asked == 3;
                                             }));
    });
    add("broken", [](SQVM* thread) {
        const auto fail = [](SQVM*) -> bool { throw std::runtime_error("it broke"); };
        return kivSq::VM::current()->suspend(thread, WakeCondition(fail));
    });
    add("pump", [](SQVM*) -> SQInteger { return kivSq::VM::current()->processEvents(), 0; });
    EXPECT_THAT(runThread("note(third()); try { broken() } catch (e) note(e); pump(); note(\"end\"); broken()"),
                ElementsAre("42", "it broke", "end"));
    EXPECT_THAT(log.take(), testing::Contains("squirrel thread failed (wake)"));
    run("std.async(@() note(\"not yet\")); pump()"); // from within a script
    EXPECT_THAT(notes, IsEmpty());
}

TEST_F(ThreadsTest, ManyThatHaveEndedMakeACollection) {
    run("std.async(@() std.sleep_forever()); std.async(function () { local t = {}; t.self <- t; witness <- t.weakref() "
        "})");
    pass();
    run("note(witness != null); q <- std.queue(100); for (local i = 0; i < 10000; i++) q.push(@() null)");
    pass();
    run("note(witness)");
    EXPECT_THAT(notes, ElementsAre("true", "null"));
}

} // namespace
