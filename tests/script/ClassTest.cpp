#include "kiv/script/Class.h"

#include "tests/script/ScriptValues.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using kiv::String;
using testing::ElementsAre;
using testing::HasSubstr;

struct Shape {
    static inline int alive = 0;

    Shape() { ++alive; }
    Shape(int w, double r) : width(w), ratio(r) { ++alive; }
    Shape(const Shape& other) : width(other.width), ratio(other.ratio), name(other.name) { ++alive; }
    Shape& operator=(const Shape&) = default;
    ~Shape() { --alive; }

    int area(int factor) const { return width * factor; }
    void rename(const String& text) { name = text; }
    String describe() const { return name; }
    Shape twice() const { return Shape(width * 2, ratio); }
    void take(const Shape& other) { width = other.width; }
    [[noreturn]] void fail() const { throw std::runtime_error("it is broken"); }
    static int unit(int a, int b) { return a - b; }

    int32_t width = 1;
    double ratio = 0.5;
    String name = "shape";
    int8_t small = -1;
    char label[4] = "ab";
};

struct Round : Shape {
    int radius = 7;
};

struct Other {
    int width = 5;
};

class Counted : public kiv::Object {
    KIV_OBJECT(Counted, kiv::Object)
public:
    static inline int alive = 0;
    Counted() { ++alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() override { --alive; }
    int value = 3;
    int getTwice() const { return value * 2; }
    void setTwice(int twice) { value = twice / 2; }
};

class ClassTest : public testing::Test, protected ScriptValues {
protected:
    ClassTest() {
        const kivSq::Object kiv = vm.getNamespace("t");
        kivSq::Class<Shape>(kiv, "Shape", kivSq::Constructor<void(), void(int, double)>())
            .method("area", &Shape::area)
            .method("rename", &Shape::rename)
            .method("describe", &Shape::describe)
            .method("twice", &Shape::twice)
            .method("take", &Shape::take)
            .method("fail", &Shape::fail)
            .method(
                "sum", +[](Shape& shape, int more) { return shape.width + more; })
            .member("width", &Shape::width)
            .member("ratio", &Shape::ratio)
            .member("name", &Shape::name)
            .readonlyMember("fixed", &Shape::width)
            .member("small", &Shape::small)
            .member("label", &Shape::label)
            .staticMethod("unit", &Shape::unit)
            .staticMethod(
                "same", +[](int64_t value) { return value; })
            .constant("limit", 12);
        kivSq::Class<Round, Shape>(kiv, "Round", kivSq::Constructor<void()>()).member("radius", &Round::radius);
        kivSq::Class<Other>(kiv, "Other", kivSq::Constructor<void()>()).member("width", &Other::width);
        kivSq::Class<Counted>(kiv, "Counted", kivSq::Constructor<void()>())
            .member("value", &Counted::value)
            .property("twice", &Counted::getTwice, &Counted::setTwice);
    }
};

TEST_F(ClassTest, ScriptsReachMembersAndMethods) {
    EXPECT_EQ(eval("t.Shape(3, 0.25).area(4)"), "12");
    EXPECT_EQ(eval("(@(s) (s.rename(\"x\"), s.describe()))(t.Shape())"), "x");
    EXPECT_EQ(eval("t.Shape(3, 0.25).twice().width"), "6");
    EXPECT_EQ(eval("t.Shape(3, 0.25).sum(1)"), "4");
    EXPECT_EQ(eval("t.Shape.unit(7, 4) + t.Shape.limit"), "15");
    EXPECT_EQ(eval("t.Shape.same(-9223372036854775807 - 1) == t.Shape.same(-9223372036854775808.0)"), "true");
    EXPECT_EQ(eval("t.Shape().small"), "-1");
    EXPECT_EQ(eval("t.Shape().label"), "ab");
    EXPECT_EQ(eval("(@(s) (s.label = \"abcdef\", s.label))(t.Shape())"), "abc");
    EXPECT_EQ(eval("(@(s) (s.width = 9, s.ratio = 2, s.width * s.ratio))(t.Shape())"), "18");
    EXPECT_EQ(eval("(@(r) (r.width = 9, r.radius + r.width + r.area(2)))(t.Round())"), "34");
    EXPECT_EQ(eval("(@(c) (c.twice = 10, c.value))(t.Counted())"), "5");
}

TEST_F(ClassTest, MisuseIsAScriptError) {
    EXPECT_EQ(eval("t.Shape().area()"), "error: invalid argument count on native method call");
    EXPECT_EQ(eval("t.Shape().area(1, 2)"), "error: invalid argument count on native method call");
    EXPECT_EQ(eval("t.Shape.unit(1)"), "error: invalid argument count on native static method call");
    EXPECT_EQ(eval("t.Shape(1)"), "error: invalid argument count on native constructor call");
    EXPECT_EQ(eval("t.Shape().area(\"x\")"), "error: argument 1: expected 32-bit integer, got string");
    EXPECT_EQ(eval("t.Shape.same(1e300)"), "error: argument 1: expected integer, got float");
    EXPECT_EQ(eval("t.Shape().take(t.Other())"), "error: argument 1: expected Shape, got Other");
    EXPECT_EQ(eval("t.Shape().width = []"), "error: value: expected 32-bit integer, got array");
    EXPECT_EQ(eval("t.Shape.area.call(t.Other(), 1)"), "error: native method call on null-pointer");
    EXPECT_EQ(eval("t.Shape.area.call({}, 1)"), "error: native method call on null-pointer");
    EXPECT_EQ(eval("t.Shape.__kiv_getTable.width.call(t.Other())"), "error: native get on null-pointer");
    EXPECT_EQ(eval("t.Shape.__kiv_setTable.width.call(t.Other(), 1)"), "error: native set on null-pointer");
    EXPECT_EQ(eval("t.Shape().nope"), "error: the index 'nope' does not exist");
    EXPECT_EQ(eval("t.Shape().fail()"), "error: it is broken");
    EXPECT_EQ(eval("clone t.Counted()"), "error: clone called on native nocopy kiv class");
}

TEST_F(ClassTest, TablesSayWhatMembersAre) {
    const char* change = R"(local getters = t.Shape.__kiv_getTable, setters = t.Shape.__kiv_setTable
        local shape = t.Shape(3, 0.25)
        ::before <- [shape.width, shape.ratio]
        getters.width = getters.ratio
        getters.doubled <- @() width * 2
        delete getters.small
        delete setters.width
        setters.double <- function (value) { this.ratio = value * 2 }
        shape.double = 4
        setters.fixed <- getters.fixed
        ::after <- [shape.width, shape.doubled, "small" in shape])";
    ASSERT_TRUE(vm.executeString(change, "test"));
    EXPECT_EQ(eval("before[0] + \" \" + before[1]"), "3 0.25");
    EXPECT_EQ(eval("after[0] + \" \" + after[1] + \" \" + after[2]"), "8 16 false");
    EXPECT_EQ(eval("t.Shape().small"), "error: the index 'small' does not exist");
    EXPECT_EQ(eval("t.Shape().fixed = 1"), "error: the native member can only be read");
    EXPECT_EQ(eval("t.Shape().width = 1"), "error: the index 'width' does not exist");
}

TEST_F(ClassTest, InstancesOwnTheirObjects) {
    EXPECT_EQ(eval("(@(s) (s.width = 9, (@(c) (c.width = 4, s.width * c.width))(clone s)))(t.Shape())"), "36");
    eval("null");
    EXPECT_EQ(Shape::alive, 0);
    eval("t.Counted()");
    EXPECT_EQ(Counted::alive, 1);
    eval("null");
    EXPECT_EQ(Counted::alive, 0);
}

} // namespace
