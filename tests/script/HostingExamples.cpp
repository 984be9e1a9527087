// What the manual's chapter "Hosting scripts" quotes: ManualTest compares its blocks with this file.

#include "kiv/core/Clock.h"
#include "kiv/script/AsyncQueue.h"
#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/VM.h"
#include "kiv/script/VMThread.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/TaskQueue.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/support/LogLines.h"

#include <gmock/gmock.h>

#include <atomic>

namespace {

// ---- Classes.

// The grey values that a display spreads from black to white.
struct Window {
    Window() = default;
    Window(int from, int to) : low(from), high(to) {}

    bool contains(int value) const { return low <= value && value < high; }
    int getCenter() const { return low + (high - low) / 2; }
    void setCenter(int center) { *this = Window(center - (high - low) / 2, center + (high - low) / 2); }
    static Window full() { return {0, 4096}; }

    int low = 0;
    int high = 1;
};

void bindWindow(const kivSq::Object& table) {
    kivSq::Class<Window>(table, "Window", kivSq::Constructor<void(), void(int, int)>())
        .method("contains", &Window::contains)
        .method(
            "widen", +[](Window& window, int by) { window = Window(window.low - by, window.high + by); })
        .member("low", &Window::low)
        .member("high", &Window::high)
        .property("center", &Window::getCenter, &Window::setCenter)
        .staticMethod("full", &Window::full)
        .constant("bits", 12);
}

class Layer : public kiv::Object {
    KIV_OBJECT(Layer, kiv::Object)
public:
    bool isVisible = true;
};

class ImageLayer : public Layer {
    KIV_OBJECT(ImageLayer, Layer)
public:
    void setWindow(const Window& window) { m_window = window; }
    const Window& getWindow() const { return m_window; }

private:
    Window m_window;
};

ImageLayer* makeImageLayer(const kiv::String& path) {
    if (path.empty()) throw std::runtime_error("a layer needs a picture");
    return new ImageLayer;
}

void bindLayers(const kivSq::Object& table) {
    kivSq::Class<Layer>(table, "Layer").member("isVisible", &Layer::isVisible);
    kivSq::Class<ImageLayer, Layer>(table, "ImageLayer", kivSq::Constructor<kivSq::Factory<&makeImageLayer>>())
        .property("window", &ImageLayer::getWindow, &ImageLayer::setWindow);
}

// ---- Conversions.

enum class Plane { Axial, Sagittal };

} // namespace

template <>
struct kivSq::Access<Plane> {
    static bool get(SQVM* v, int64_t index, Plane& out) {
        std::string_view text;
        if (!Access<std::string_view>::get(v, index, text) || (text != "axial" && text != "sagittal")) return false;
        out = text == "axial" ? Plane::Axial : Plane::Sagittal;
        return true;
    }
    static bool push(SQVM* v, Plane value) {
        return Access<std::string_view>::push(v, value == Plane::Axial ? "axial" : "sagittal");
    }
    static const char* name() { return "plane"; }
};

namespace {

Plane otherPlane(Plane plane) {
    return plane == Plane::Axial ? Plane::Sagittal : Plane::Axial;
}

// ---- Functions that suspend.

int64_t sumUpTo(int64_t last) {
    return last * (last + 1) / 2;
}

kiv::TaskQueue* g_workers = nullptr;

// sumUpTo(last) of scripts: a task does the work, and only the script thread that calls waits for it.
SQInteger sumInTask(SQVM* v) {
    struct Work {
        int64_t sum = 0;
        std::atomic<bool> isDone{false};
    };
    int64_t last = 0;
    if (!kivSq::Access<int64_t>::get(v, 2, last)) return sq_throwerror(v, "sumUpTo needs an integer");
    const auto work = std::make_shared<Work>();
    g_workers->pushTask(kiv::makeTask([work, last] {
        work->sum = sumUpTo(last);
        work->isDone = true;
    }));
    return kivSq::VM::current()->suspend(v, kivSq::WakeCondition([work](SQVM* engine) {
                                             if (!work->isDone) return false;
                                             return kivSq::Access<int64_t>::push(engine, work->sum);
                                         }));
}

struct Functions {};

void bindFunctions(const kivSq::Object& root) {
    kivSq::Class<Functions>(root, "app") //
        .staticMethod("otherPlane", &otherPlane)
        .native<&sumInTask>("sumUpTo", true);
}

// ---- The host.

class HostingExamples : public testing::Test {
protected:
    bool run(const char* text) { return vm.executeString(text, "test"); }
    kiv::String eval(const std::string& expression) {
        run(("try { result <- " + expression + " } catch (error) { result <- error }").c_str());
        return vm.getRootTable().get("result").describe();
    }
    void runThreads() {
        for (; vm.threadsActive(); clock.advance(1)) vm.processEvents();
    }

    support::LogLines log;
    kiv::ManualClock clock;
    kivSq::VM vm;
};

TEST_F(HostingExamples, Values) {
    vm.setWatchdog(1000);
    vm.executeString("function describe(series) { return series.name + \": \" + series.slices.len() }", "series.sq");

    const kivSq::Object series = vm.newTable();
    series.set("name", kivSq::Object::from("head"));
    const kivSq::Object slices = vm.newArray(0);
    for (const double position : {0.5, 1.0, 1.5}) slices.asArray().append(kivSq::Object::from(position));
    series.set("slices", slices);

    const kivSq::Functor describe(vm.getRootTable().get("describe"));
    kiv::String text;
    const bool isGood = describe.call(series).to(text);
    EXPECT_TRUE(isGood);
    EXPECT_EQ(text, "head: 3");

    EXPECT_TRUE(describe.call(5).isNull());
    EXPECT_THAT(log.takeOne(), testing::HasSubstr("the index 'name' does not exist"));
}

TEST_F(HostingExamples, Classes) {
    vm.setImportCallback(
        "app.Window", [](kivSq::VM* importer, const char* space) { bindWindow(importer->getNamespace(space)); },
        "display");
    ASSERT_TRUE(run("import(\"app.Window\"); window <- display.Window(100, 300)"));
    EXPECT_EQ(eval("(window.widen(50), window.center = 1000, window.low)"), "850");
    EXPECT_EQ(eval("window.contains(1149) && !display.Window.full().contains(1 << display.Window.bits)"), "true");
    EXPECT_EQ(eval("(@(copy) (copy.low = 5, window.low))(clone window)"), "850");

    bindLayers(vm.getNamespace("display"));
    const auto layer = kiv::makeObject<ImageLayer>();
    vm.getRootTable().set("layer", kivSq::Object::from(layer));
    EXPECT_EQ(eval("(layer.isVisible = false, layer.window = window, layer.window.low = 0, layer.window.low)"), "850");
    EXPECT_FALSE(layer->isVisible);
    EXPECT_EQ(layer->getWindow().high, 1150);
    EXPECT_EQ(eval("display.ImageLayer(\"\")"), "a layer needs a picture");
    EXPECT_EQ(eval("display.ImageLayer(\"knee.pgm\") instanceof display.Layer"), "true");
    EXPECT_EQ(eval("layer.window = 5"), "value: expected Window, got integer");
}

TEST_F(HostingExamples, FunctionsAndThreads) {
    const auto pool = kiv::makeObject<kiv::ThreadPool>();
    const auto workers = kiv::makeObject<kiv::TaskQueue>(kiv::TaskQueue::Parallel);
    g_workers = workers.get();
    bindFunctions(vm.getRootTable());
    EXPECT_EQ(eval("app.otherPlane(\"axial\")"), "sagittal");
    EXPECT_EQ(eval("app.otherPlane(\"top\")"), "argument 1: expected plane, got string");

    kivSq::Object sum;
    const char* text = "return app.sumUpTo(100)";
    const kivSq::Object closure = vm.newClosure(text, static_cast<unsigned>(std::strlen(text)), "sum.sq");
    vm.createThread(closure, [&sum](const kivSq::Object& result, bool isGood) {
        if (isGood) sum = result;
    });
    runThreads();
    EXPECT_EQ(sum.describe(), "5050");

    const auto loads = kiv::makeObject<kivSq::AsyncQueue>(2); // two at a time
    for (int i = 0; i < 5; ++i) loads->push(closure);
    const int64_t running = loads->running(); // 2
    loads->abort();                           // the three that wait never run
    EXPECT_EQ(running, 2);
    EXPECT_EQ(loads->size(), 0);
    runThreads();
    EXPECT_EQ(loads->running(), 0);
}

TEST_F(HostingExamples, Items) {
    run("function plan() { return { name = \"knee\", spacing = [0.5, 0.5, 2.0] } }");
    kiv::Item plan;
    const bool isGood = kivSq::Functor(vm.getRootTable().get("plan")).call().to(plan);
    const kivSq::Object table = kivSq::Object::from(plan); // equal to what plan() has returned
    EXPECT_TRUE(isGood);
    EXPECT_EQ(table.get("spacing").getSize(), 3);

    kiv::Item message;
    message.addSquirrel(vm.getRootTable().get("plan"));
    kivSq::Object asData, asCode;
    message.getIterator().asSquirrel(asData);                   // null
    message.getIterator().asSquirrel(asCode, kiv::Trust::Code); // the function
    EXPECT_TRUE(asData.isNull());
    EXPECT_TRUE(asCode.isClosure());
}

} // namespace
