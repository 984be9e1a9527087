#include "kiv/script/Class.h"
#include "kiv/script/VM.h"
#include "tests/script/ScriptValues.h"
#include "tests/support/LogLines.h"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <thread>

namespace {

using testing::HasSubstr;

struct Animal {
    static inline int alive = 0;

    Animal() { ++alive; }
    explicit Animal(int l) : legs(l) {
        if (l < 0) throw std::invalid_argument("fewer than no legs");
        ++alive;
    }
    Animal(const Animal& other) : legs(other.legs) { ++alive; }
    Animal& operator=(const Animal&) = default;
    ~Animal() { --alive; }

    int countLegs() const noexcept { return legs; }
    Animal& grow(int more) {
        legs += more;
        return *this;
    }
    int breakDown() { throw std::runtime_error("no legs to stand on"); }

    int legs = 4;
};

struct Dog : Animal {
    std::string name = std::string(40, 'd');
};

struct Tagged {
    int64_t tag = 77;
};

struct Hound : Tagged, Animal {
    int speed = 5;
};

enum class Colour : uint8_t { Red = 1, Blue = 200 };

// Its kiv::Object is not at its start.
class Node : public Tagged, public kiv::Object {
    KIV_OBJECT(Node, kiv::Object)
public:
    static inline int alive = 0;

    Node() { ++alive; }
    Node(const Node& other) : Tagged(other), kiv::Object(), value(other.value), next(other.next) { ++alive; }
    Node& operator=(const Node&) = delete;
    ~Node() override { --alive; }

    Node* getNext() const { return next.get(); }
    const Node& getConstSelf() const { return *this; }
    Node& getSelf() { return *this; }
    kiv::SmartPointer<Node> makeNext() {
        next = new Node;
        return next;
    }
    void takeAll(kiv::SmartPointer<Node> a, const kiv::SmartPointer<Node>& b, Node* c, const Node& d, Node& e) {
        value = a->value + b->value + (c ? c->value : 100) + d.value + e.value;
    }
    Colour mix(Colour other) const { return other == Colour::Red ? Colour::Blue : Colour::Red; }
    kiv::Vector<kiv::String> repeat(const kiv::Vector<kiv::String>& texts, std::optional<int> times) const {
        kiv::Vector<kiv::String> all;
        for (int i = 0; i < times.value_or(2); ++i) all.insert(all.end(), texts.begin(), texts.end());
        return all;
    }

    int value = 3;
    kiv::SmartPointer<Node> next;
};

class Leaf : public Node {
    KIV_OBJECT(Leaf, Node)
public:
    int depth = 9;
};

class InheritanceTest : public testing::Test, protected ScriptValues {
protected:
    InheritanceTest() { bind("t"); }

    void bind(const char* name) {
        const kivSq::Object table = vm.getNamespace(name);
        kivSq::Class<Animal>(table, "Animal", kivSq::Constructor<void(), void(int)>())
            .method("countLegs", &Animal::countLegs)
            .method("grow", &Animal::grow)
            .method(
                "chase",
                +[](Animal& animal, Animal byValue, Animal&& movable, const Animal& other) {
                    byValue.legs = movable.legs = 100;
                    return animal.legs + other.legs;
                })
            .member("legs", &Animal::legs)
            .property("broken", &Animal::breakDown)
            .staticMethod(
                "kind", +[] { return "animal"; });
        kivSq::Class<Dog, Animal>(table, "Dog", kivSq::Constructor<void()>()).member("name", &Dog::name);
        kivSq::Class<Node>(table, "Node", kivSq::Constructor<void()>())
            .method("getNext", &Node::getNext)
            .method("getConstSelf", &Node::getConstSelf)
            .method("getSelf", &Node::getSelf)
            .method("makeNext", &Node::makeNext)
            .method("takeAll", &Node::takeAll)
            .method("mix", &Node::mix)
            .method("repeat", &Node::repeat)
            .member("tag", &Node::tag)
            .member("value", &Node::value)
            .member("next", &Node::next);
        kivSq::Class<Leaf, Node>(table, "Leaf", kivSq::Constructor<void()>()).member("depth", &Leaf::depth);
    }
    // Runs statements, which `return` a value.
    std::string run(const std::string& code) { return eval("(function () { " + code + " })()"); }
};

TEST_F(InheritanceTest, NativeObjectsFitTheirInstances) {
    for (const char* attack : {"t.Animal.constructor.call(this)", "t.Animal.constructor.call(this, 3)",
                               "t.Animal.cloned.call(this, t.Animal())", "t.Animal.cloned(t.Dog())"})
        EXPECT_EQ(run(std::string("class D extends t.Dog { constructor() { ") + attack + " } } return D().name"),
                  "error: native constructor called on an object of another class");
    EXPECT_EQ(run("local d = t.Dog(); d.constructor()"), "error: native constructor called on a constructed object");
    EXPECT_EQ(run("local d = t.Dog(); return t.Dog.cloned.call(d, d)"),
              "error: native constructor called on a constructed object");
}

TEST_F(InheritanceTest, MembersAndMethodsComeFromBases) {
    const std::pair<const char*, const char*> cases[] = {
        {"local n = t.Node(); n.tag = n.tag + 1; n.value = 8; return n.tag * 10 + n.value", "788"},
        {"local l = t.Leaf(); l.tag = 5; return l.tag + l.value + l.depth", "17"},
        {"local d = t.Dog(); d.legs = 3; return d.countLegs() + d.name.len()", "43"},
        {"return t.Dog.kind() + t.Dog().kind()", "animalanimal"},
        {"local a = t.Animal(); return a.chase(a, a, t.Dog())", "8"},
        // References to values are copied, those to counted objects are the object.
        {"local a = t.Animal(), b = a.grow(1); b.legs = 9; return a.legs * 10 + b.legs", "59"},
        {"local n = t.Node(); n.getSelf().value = 1; n.getConstSelf().tag = 2; return n.value + n.tag", "3"},
        {"local n = t.Node(); local m = n.makeNext(); m.value = 6; return n.getNext().value + n.next.value", "12"},
        {"local n = t.Node(); return n.getNext() == null && n.next == null", "true"},
        {"local n = t.Node(); n.next = t.Leaf(); return n.getNext().depth", "9"},
        {"local n = t.Node(); n.takeAll(n, t.Leaf(), null, n, n); return n.value", "112"},
        {"t.Node().takeAll(t.Node(), t.Node(), t.Node(), null, null)", "error: argument 4: expected Node, got null"},
        {"t.Node().next = t.Dog()", "error: value: expected Node, got Dog"},
        {"return t.Node().mix(1) + t.Node().mix(2)", "201"},
        {"t.Node().mix(256)", "error: argument 1: expected 8-bit integer, got integer"},
        {"return t.Node().repeat([\"a\", \"b\"], null).len() + t.Node().repeat([], 3).len()", "4"},
        {"t.Node().repeat([\"a\", 1], 2)", "error: argument 1: expected array of string, got array"},
        {"t.Animal().broken", "error: no legs to stand on"},
        {"return \"broken\" in t.Animal() || \"legs\" in t.Animal()", "false"},
        {"local a = t.Animal(), w = a.weakref(); a = null; return w", "null"},
        // Every native object says what it is.
        {"return t.Leaf().getClassName() + t.Dog().getClassName() + t.Animal().getClassName()", "LeafDogAnimal"},
        {"local n = t.Node(), m = n.getSelf(); return n.getReferenceCount()", "2"},
        {"t.Dog.getClassName()", "error: native method call on null-pointer"},
        {"return std.isguid(t.Dog())", "false"},
    };
    for (const auto& [code, result] : cases) EXPECT_EQ(run(code), result) << code;
    EXPECT_EQ(Node::alive, 0);
}

TEST_F(InheritanceTest, ScriptsDeriveFromNativeClasses) {
    const std::pair<const char*, const char*> cases[] = {
        {"class D extends t.Dog { more = 1 } local d = D(); d.legs = 2; d.more = 5; return d.legs + d.more", "7"},
        {"class D extends t.Animal { constructor(n) { base.constructor(n + 1) } } return D(5).legs", "6"},
        {"class D extends t.Animal { constructor() {} } return D().legs", "error: native get on null-pointer"},
        {"class D extends t.Animal { constructor() {} } D().legs = 1", "error: native set on null-pointer"},
        {"class D extends t.Animal { constructor() {} } clone D()", "error: clone of native class with null-pointer"},
        {"class D extends t.Dog { x = 1 } local d = D(); d.x = 2; local c = clone d; d.legs = 9; d.x = 7\n"
         "return c.legs * 10 + c.x",
         "42"},
        // With a clone function of its own, a class calls the native one by its other name; metamethods have no `base`.
        {"class D extends t.Dog { function _cloned(from) { t.Dog.cloned.call(this, from) } } local d = D(); d.legs = "
         "6\n"
         "return (clone d).legs",
         "6"},
        // One with a _get of its own finds the native members in the table.
        {"class D extends t.Dog { function _get(key) { return key == \"own\" ? 1 : __kiv_getTable[key].call(this) } }\n"
         "local d = D(); return d.own + d.legs",
         "5"},
        {"class D extends t.Animal { constructor() { base.constructor(); throw \"too late\" } } D()",
         "error: too late"},
        {"t.Animal(-1)", "error: fewer than no legs"},
        {"local i = t.Animal.instance(); return i.countLegs()", "error: native method call on null-pointer"},
        {"local n = clone t.Node(); local c = clone n; n.value = 5; return c.value * 10 + c.getReferenceCount()", "31"},
    };
    for (const auto& [code, result] : cases) EXPECT_EQ(run(code), result) << code;
    // Each object has gone once.
    EXPECT_EQ(Animal::alive, 0);
    EXPECT_EQ(Node::alive, 0);
}

TEST_F(InheritanceTest, BasesThatDoNotFitAreLeftOut) {
    support::LogLines log;
    const kivSq::Object table = vm.getNamespace("t");
    kivSq::Class<Hound, Animal>(table, "Hound", kivSq::Constructor<void()>()).member("speed", &Hound::speed);
    EXPECT_THAT(log.takeOne(), HasSubstr("the native class does not begin with its base: Hound"));
    EXPECT_EQ(run("return t.Hound().speed"), "5");
    EXPECT_EQ(run("t.Animal.countLegs.call(t.Hound())"), "error: native method call on null-pointer");
    // Through the derived class the members of any base are fine.
    kivSq::Class<Hound>(table, "Hound", kivSq::Constructor<void()>())
        .method("countLegs", &Hound::countLegs)
        .member("legs", &Hound::legs);
    EXPECT_EQ(run("local h = t.Hound(); h.legs = 3; return h.countLegs()"), "3");
}

TEST_F(InheritanceTest, ClassesAreBoundAgain) {
    vm.executeString("::old <- t.Dog(); ::type <- t.Dog", "test");
    bind("u");
    EXPECT_EQ(run("old.legs = 7; return old.legs + u.Dog().legs + type().legs + t.Node().getSelf().value"), "18");
    // Late ones reach the class itself.
    kivSq::Class<Animal>(vm.getNamespace("u").get("Animal"))
        .member("feet", &Animal::legs)
        .method(
            "walk", +[](Animal& a) { return a.legs * 2; });
    EXPECT_EQ(run("local a = u.Animal(); a.feet = 2; return a.walk()"), "4");
    EXPECT_EQ(run("return t.Animal().feet"), "error: the index 'feet' does not exist");
}

TEST(HandlesTest, HandlesOfAnEndedEngineAreNull) {
    auto first = std::make_unique<kivSq::VM>();
    const kivSq::Object table = first->newTable();
    table.set("a", kivSq::Object::from(1));
    kivSq::Object text = kivSq::Object::from(std::string("a text that nobody else has"));
    EXPECT_EQ(table.get("len").isNativeClosure(), true);
    EXPECT_TRUE(table.rawget("len").isNull());
    first.reset();
    EXPECT_TRUE(table.isNull());
    const kivSq::VM second;
    kivSq::Object other = second.newTable();
    const kivSq::Object copy = table;
    EXPECT_TRUE(table.isNull() && copy.isNull() && !table.isTable() && table.isSame(copy) && !table.isSame(other));
    int number = 0;
    EXPECT_FALSE(other.to(number) || second.getLastError().length() > 0);
    EXPECT_FALSE(table.set("a", copy));
    EXPECT_TRUE(table.get("a").isNull());
    EXPECT_TRUE(other.set("a", text));
    EXPECT_TRUE(other.get("a").isNull());
    std::swap(text, other);
    EXPECT_TRUE(text.isTable());
    std::thread([gone = std::move(other)] {}).join();
}

} // namespace
