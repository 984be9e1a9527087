#include "kiv/script/Class.h"
#include "kiv/script/SourceCheck.h"
#include "kiv/script/VM.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// What scripts can do wrong must not reach memory. Under the address sanitizer most of these end the process without
// the guard in question.
namespace {

struct Box {
    static inline int alive = 0;
    Box() { ++alive; }
    explicit Box(int number) : width(number) { ++alive; }
    Box(const Box& other) : width(other.width) { ++alive; }
    Box& operator=(const Box&) = default;
    ~Box() { --alive; }
    int get() const { return width; }
    [[noreturn]] void fail() const { throw std::runtime_error("broken"); }
    [[noreturn]] int failing() const { throw 5; }
    int width = 3;
};

struct Case {
    std::string code;
    std::string expected; // the value of the last statement's "r", or the error
};

class HostileTest : public testing::Test {
protected:
    HostileTest() {
        const kivSq::Object table = vm.getNamespace("t");
        kivSq::Class<Box>(table, "Box", kivSq::Constructor<void(), void(int)>())
            .method("get", &Box::get)
            .method("fail", &Box::fail)
            .property("failing", &Box::failing)
            .member("width", &Box::width);
        struct Other {};
        kivSq::Class<Other>(table, "Other", kivSq::Constructor<void()>());
    }

    // The value that the code leaves in `r` as text, or its error.
    std::string run(const std::string& code) {
        const std::string whole = "::r <- null\ntry {\n" + code + "\n} catch (e) { ::r = \"error: \" + e }";
        if (!vm.executeString(whole.c_str(), "test")) return "does not run";
        return vm.getRootTable().get("r").describe().c_str();
    }
    void expectAll(const std::vector<Case>& cases) {
        for (const Case& one : cases) EXPECT_EQ(run(one.code), one.expected) << one.code;
    }

    kivSq::VM vm;
};

// From every place of the engine's stack, of which natives have 15 slots.
TEST_F(HostileTest, DeepValuesNearTheEndOfTheStack) {
    EXPECT_EQ(run("function at(n, f) { return n > 0 ? at(n - 1, f) + 1 : f() }\n"
                  "local deep = 0; for (local i = 0; i < 128; i++) deep = [deep]\n"
                  "local whole = std.encode_json(deep)\n"
                  "r = 0; for (local i = 0; i < 300; i++) r += at(i, function () {"
                  "return std.encode_json(std.decode_json(whole)) == whole ? 0 : 1 }) - i"),
              "0");
}

TEST_F(HostileTest, SizesAndIndices) {
    expectAll({
        {"array(-1)", "error: array size -1 is negative"},
        {"array(0x7fffffffffff)", "error: array size 140737488355327 is beyond 67108864"},
        {"array(1.0 / 0.0)", "error: array size -9223372036854775808 is negative"},
        {"[].resize(-1)", "error: array size -1 is negative"},
        {"[].resize(0x7fffffffffff, 1)", "error: array size 140737488355327 is beyond 67108864"},
        {"local a = [1]; a.resize(3, 7); r = a.len() + a[2]", "10"},
        {"std.blob(-1)", "error: blob size -1 is negative"},
        {"std.blob(0x7ffffffffffff)", "error: blob size 2251799813685247 is beyond 1073741824"},
        {"std.blob(4).resize(-5)", "error: blob size -5 is negative"},
        {"std.blob(4).readblob(-5)", "error: blob size -5 is negative"},
        {"r = std.blob(4).readblob(9).len()", "4"},
        {"std.blob(4)[4]", "error: index out of range"},
        {"r = std.blob(4).seek(-1)", "-1"},
        {"getstackinfos(-500000000)", "error: the stack level -500000000 is negative"},
        {"local function f() { r = getstackinfos(1).func + getstackinfos(2).func }; f()", "fmain"},
        {"newthread(@() 1).getstackinfos(-500000000)", "error: the stack level -500000000 is negative"},
        {"setroottable(null); local f = @() 1", "error: the root table must be a table"},
        {"std.file(\"x\", \"q\")", "error: the file mode \"q\" is unknown"},
    });
}

TEST_F(HostileTest, ArraysThatChangeUnderway) {
    const std::string deep = "local d; d = function(n) { local q = n; if (n > 0) d(n - 1); return 0 };";
    const std::string hundred = "local a = []; for (local i = 0; i < 100; i++) a.append([i % 7]);";
    expectAll({
        {hundred + "a.sort(function(x, y) { a.resize(6); return x[0] <=> y[0] }); r = a.len()", "100"},
        {"class K { i = 0; constructor(n) { i = n } function _cmp(o) { ::a.resize(6); return i <=> o.i } }\n"
         "::a <- []; for (local i = 0; i < 100; i++) a.append(K(i % 7)); a.sort(); r = a.top().i",
         "6"},
        {"local a = [3, 1, 2]; a.sort(); r = a[0] + \",\" + a[2]", "1,3"},
        {"local a = [3, 1]; a.sort(@(x, y) null)",
         "error: numeric value expected as return value of the compare function"},
        {deep + "r = [1, 2, 3].filter(function(i, x) { d(2000); return i != 1 }).top()", "3"},
        {deep + "r = [1, 2, 3].reduce(function(x, y) { d(2000); return x + y })", "6"},
        {"local a = [1, 2, 3]; r = a.filter(function(i, x) { a.clear(); return true }).len()", "1"},
        {"r = [7].reduce(@(x, y) 1) + \",\" + ([].reduce(@(x, y) 1) || \"\")", "7,"},
        {"[1].filter(1)", "error: parameter 1 has an invalid type 'integer' ; expected: 'function|function'"},
    });
}

TEST_F(HostileTest, CallsAndThreads) {
    const std::string close = "local near = function(f) {\n"
                              " local d; d = function(n) { if (n == 0) f(); else d(n - 1); return 0 }\n"
                              " for (local i = 0; i < 400; i++) newthread(d).call(i) }\n";
    expectAll({
        {"local a = array(5000, 1), f = function(...) { return vargv.len() }; r = f.acall([this].len() ? a : a)",
         "4999"},
        {"(@(...) 1).acall(array(10001))", "error: a call with 10001 arguments, at most 10000 are possible"},
        {"(@(...) 1).pacall(array(10001))", "error: a call with 10001 arguments, at most 10000 are possible"},
        {close + "local a = array(40, 1); near(@() (@(...) 1).acall(a))", "null"},
        {"newthread(print)", "error: a thread needs a script function"},
        {"local t; t = newthread(function() { t.call() }); t.call()",
         "error: the thread is running or suspended already"},
        {"::f <- function() { newthread(f).call() }; f()", "error: threads call each other deeper than 16"},
        {"local t = newthread(@(...) vargv.len()), a = [t]; a.resize(700, 1); r = t.call.acall(a)", "699"},
        {"local t = newthread(@() 1); t.wakeup()", "error: cannot wakeup a idle thread"},
        {"print.bindenv({}).call()", "error: wrong number of parameters"},
        {"[].resize.bindenv({}).call()", "error: wrong number of parameters"},
    });
}

TEST_F(HostileTest, StreamsOfOthers) {
    expectAll({
        {"local b = std.blob(100); b.seek(50); b.writeblob(b)", "error: a blob is not written into itself"},
        {"class B extends std.blob { constructor() {} }; std.blob(4).writeblob(B())",
         "error: the blob is not constructed"},
        {"class B extends std.blob { constructor() {} }; clone B()", "error: the blob is not constructed"},
        {"local b = std.blob(2); b[1] = 9; local c = clone b; b[1] = 8; r = c[1] + c.len()", "11"},
        {"local b = std.blob(2); b.constructor(4)", "error: the blob is constructed already"},
        {"std.blob.constructor.call(std.stdout, 4)", "error: this is no blob"},
        {"std.file.constructor.call(std.blob(1), \"x\", \"r\")", "error: this is no file"},
        {"std.blob.resize.call(std.stdout, 4)", "error: invalid type tag"},
        {"std.blob.readblob.call({}, 4)", "error: parameter 0 has an invalid type 'table' ; expected: 'instance'"},
        {"stream().len()", "error: the stream is invalid"},
    });
}

TEST_F(HostileTest, Patterns) {
    const std::string derived = "class R extends string.regexp { constructor() {} };";
    expectAll({
        {"string.regexp(\"a\").search.call(std.blob(4), \"abc\")", "error: this is no regexp"},
        {"string.regexp.constructor.call(std.blob(4), \"abc\")", "error: this is no regexp"},
        {derived + "R().match(\"a\")", "error: the regexp is not constructed"},
        {"(clone string.regexp(\"a\")).subexpcount()", "error: the regexp is not constructed"},
        {"string.regexp(\"a\").constructor(\"b\")", "error: the regexp is constructed already"},
        {"string.regexp(\"\")", "error: the pattern is empty"},
        {"string.regexp(\"a\\\\\")", "error: the pattern ends inside of an escape"},
        {"string.regexp(\"\\\\m(\")", "error: the pattern ends inside of an escape"},
        {"local s = \"(\"; for (local i = 0; i < 20; i++) s += s; string.regexp(s)",
         "error: the pattern is longer than 1000 characters"},
        {"string.regexp(\"a\").search(\"abc\", 100000000)", "error: the start 100000000 is not inside of the text"},
        {"string.regexp(\"a\").capture(\"abc\", -1)", "error: the start -1 is not inside of the text"},
        {"r = string.regexp(\"(b)c\").capture(\"abc\", 1)[1].begin", "1"},
    });
}

TEST_F(HostileTest, Formats) {
    expectAll({
        {"string.format(\"%f\", 1e308)", "error: the number is too large for %f; use %g"},
        {"string.format(\"%%%s%f\", \"\", 1e308)", "error: the number is too large for %f; use %g"},
        {"string.format(\"%-------------------d\", 5)", "error: a format has too many flags and digits"},
        {"string.format(\"%*d\", 5, 5)", "error: invalid format"},
        {"string.format(\"%n\", 5)", "error: invalid format"},
        {"string.format(\"%999d\", 5)", "error: width format too long"},
        {"r = string.format(\"%5.1f|%s|%%|%x\", 2.5, \"a\", 255)", "  2.5|a|%|ff"},
        {"local s = \"\\xe4\"; for (local i = 0; i < 8; i++) s += s; r = string.escape(s).len()", "1024"},
        {"r = string.escape(\"a\\\"\\n\\xe4\\0\")", "a\\\"\\n\\xe4\\0"},
        {"r = string.strip(\"   \") + string.split(\"a,,b\", \",\").len()", "3"},
    });
}

std::string times(int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

TEST_F(HostileTest, DeepSources) {
    const auto refusal = [](const std::string& source) {
        const char* reason = kivSq::internal::refuseSource(source.data(), source.size());
        return std::string(reason ? reason : "");
    };
    const auto nested = [&](int count, const std::string& open, const std::string& close) {
        return times(count, open) + "1" + times(count, close);
    };
    const std::string tooDeep = "the source is nested too deeply";
    for (const auto& [open, close] : std::vector<std::pair<std::string, std::string>>{
             {"(", ")"},
             {"[", "]"},
             {"f(", ")"},
             {"!", ""},
             {"- ", ""},
             {"typeof\n", ""},
             {"@() ", ""},
             {"if (a)\n", ""},
             {"if (a) { b() } else ", ""},
             {"while (a) ", ""},
             {"do try for (;;) ", ""},
             {"function a() ", ""},
             {"function a() { return ", "}"},
             {"class extends ", ""},
             {"{ a = ", "}"},
             {"switch (a) { case 1: ", "}"},
             {"++ ", ""},
         }) {
        EXPECT_EQ(refusal("x = " + nested(60, open, close)), "") << open;
        EXPECT_EQ(refusal("x = " + nested(10'000, open, close)), tooDeep) << open;
    }
    EXPECT_EQ(refusal(nested(200, "(", ")")), "");
    EXPECT_EQ(refusal(nested(201, "(", ")")), tooDeep);
    EXPECT_EQ(refusal("x = " + times(10'000, "a, ") + "1"), "the source has too many expressions after each other");
    // Long, but not deep.
    for (const std::string& line : std::vector<std::string>{
             "if (a) b()\n", "if (a)\n b()\n", "if (a) { b() } else { c() }\n", "while (a) return\n",
             "function f(a, b) { return !a }\n", "class A extends B { x = 1 }\n", "x = [1, 2, {a = 1, b = 2}, !a]\n",
             "x += -1 - -2;", "local s = \"((((\" + '(' + @\"\"\"((((\"; // ((((\n /* (((( */ # ((((\n",
             "do { a++ } while (a)\n", "try { a() } catch (e) { }\n", "x <- @(a) a + 1\n",
             "switch (a) { case 1: b(); break\n default: break }\n"}) {
        EXPECT_EQ(refusal(times(1'000, line)), "") << line;
    }
    EXPECT_EQ(refusal("x = [" + times(10'000, "1, ") + "]"), "");
    EXPECT_EQ(refusal("f(" + times(10'000, "@() 1, ") + "1)"), "");
    EXPECT_EQ(refusal("x = {" + times(1'000, "function f() {}\n") + "}"), "");
    EXPECT_EQ(refusal("enum E { " + times(10'000, "A, ") + "}"), "");
    EXPECT_EQ(refusal("x = 1" + times(10'000, " + !1")), "");
    EXPECT_EQ(refusal("\xEF\xBB\xBFx = 1"), "");
    EXPECT_EQ(refusal(std::string("x = 1\0y", 7)), "the source has a zero byte");
    for (const char* source : {"delete base", "++base", "class base {}", "base--", "base /**/ ++"})
        EXPECT_EQ(refusal(source), "\"base\" can't be changed") << source;
    EXPECT_EQ(refusal("class A extends B { constructor() { base.constructor(); x = base } }"), "");
    for (const char* source :
         {"a++ = 3", "a-- <- 3", "a++ += 1", "--a <- b", "o << --a <- b", "o<<--a<-b", "++a.b[c] = 1", "++::a.b -= 1",
          "f(++a(b) *= 2)", "return ++a = 3", "a + 1 = b", "e == \"x\" /= z", "if (a + 1 = b) {}", "a in b <- 1",
          "x = -a * 2 += 1", "a <= 1 = 2", "a && 1 = 2"})
        EXPECT_EQ(refusal(source), "can't assign to what an operator gives") << source;
    for (const char* source : {"a++\nb = 3",
                               "++a\nb.c <- 3",
                               "a\n++b; c = 1",
                               "x = a++ == 3",
                               "x = ++a != b",
                               "for (;; ++i) x = 3",
                               "if (++n <= 3) x += 1",
                               "a[i++] = 3",
                               "a[--i].b <- 1",
                               "x = { a = ++b, c = 1 }",
                               "++i x = 2",
                               "do { ++i } while (i < 3) x = 1",
                               "x = i-- - 1",
                               "x = a + b\ny = 3",
                               "x = { a = 1 + 2 b = 3\nc = 4 }",
                               "class A { a = 1 + 2 b = -3; static c = 1 }",
                               "x = a < b ? c = 1 : d = 2",
                               "if (a < b) x = 3",
                               "if (a != b) x += 3 else y <- a >= b",
                               "local a = 1 + 2, b = 3",
                               "x = a - b\n::y <- 3",
                               "x <- @(a) a + 1\ny <- 3",
                               "function f(a, b = 1 + 2, c = 3) { return a <=> b }",
                               "switch (a) { case 1 + 2: x = 3 }",
                               "foreach (k, v in t) x = v * 2",
                               "x = y = a + b",
                               "class A </ a = 1 + 2 b = 3 /> { </ c = 1 /> x = 1 </ d = -2 /> y = 2 }",
                               "x = a + f() local y = 3",
                               "x = a in b\ny = typeof a == \"b\"\nz = !a"})
        EXPECT_EQ(refusal(source), "") << source;
}

// The deepest that is let through has to fit on the C stack.
TEST_F(HostileTest, WhatIsNotTooDeepCompiles) {
    for (const auto& [open, close] : std::vector<std::pair<std::string, std::string>>{
             {"(", ")"}, {"!", ""}, {"@() ", ""}, {"if (a) ", ""}, {"if (a) {", "}"}, {"function a() {", "}"}}) {
        const std::string source = times(190, open) + "1" + times(190, close);
        EXPECT_TRUE(vm.newClosure(source.data(), static_cast<unsigned>(source.size()), "deep").isClosure()) << open;
    }
}

TEST_F(HostileTest, SourcesFromScripts) {
    const support::TemporaryFolder folder;
    folder.write("a.nut", "\xFA\xFA and more");
    folder.write("b.nut", "\xEF\xBB\xBFreturn 7");
    vm.getRootTable().set("path", kivSq::Object::from(folder.utf8("")));
    expectAll({
        {"local s = \"(\"; for (local i = 0; i < 20; i++) s += s; compilestring(s)",
         "error: the source is nested too deeply"},
        {"compilestring(\"delete base\")", "error: \"base\" can't be changed"},
        {"r = compilestring(\"return 5\")()", "5"},
        {"std.dofile(path + \"a.nut\")", "error: compiled scripts are not loaded from files"},
        {"r = std.dofile(path + \"b.nut\") + std.loadfile(path + \"b.nut\")()", "14"},
        {"std.loadfile(path + \"x\")", "error: cannot open the file"},
    });
}

TEST_F(HostileTest, ObjectsWithoutNativeOnes) {
    const std::string derived = "class D extends t.Box { constructor() {} };";
    expectAll({
        {derived + "D().get()", "error: native method call on null-pointer"},
        {derived + "D().width", "error: native get on null-pointer"},
        {derived + "D().width = 1", "error: native set on null-pointer"},
        {derived + "clone D()", "error: clone of native class with null-pointer"},
        {"t.Box.instance().get()", "error: native method call on null-pointer"},
        {"t.Box.get.call(null)", "error: native method call on null-pointer"},
        {"t.Box.get.call(t.Box)", "error: native method call on null-pointer"},
        {"t.Box.get.bindenv(t.Other()).call()", "error: invalid argument count on native method call"},
        {"t.Box.get.bindenv(t.Other())()", "error: native method call on null-pointer"},
        {"t.Box().constructor()", "error: native constructor called on a constructed object"},
        {"t.Box.constructor.call(t.Other())", "error: native constructor called on an object of another class"},
        {"t.Box.constructor.call({})", "error: native constructor called on an object of another class"},
        {"t.Box.constructor.call(std.blob(1))", "error: native constructor called on an object of another class"},
        {"t.Box.cloned.call(t.Box(), t.Box())", "error: native constructor called on a constructed object"},
        {"t.Box.cloned.call(1)", "error: clone of native class with null-pointer"},
        {derived + "local d = D(); t.Box.constructor.call(d, 8); r = d.get()", "8"},
        {derived + "local d = D(); try { t.Box.constructor.call(d, \"x\") } catch (e) {}; d.get()",
         "error: native method call on null-pointer"},
        {"local w = t.Box().weakref(); r = w.ref()", "null"},
        {"r = t.Box.weakref.call(5)", "5"},
        {"t.Box().failing", "error: native exception"},
    });
    run("null");
    vm.collectGarbage();
    EXPECT_EQ(Box::alive, 0);
}

TEST_F(HostileTest, TamperedClasses) {
    const auto shown = [this](const std::string& code) { return run(code); };
    for (const char* bad : {"null", "5", "print", "@(...) vargv.len()", "t.Other", "t.Box.get", "t.Box.weakref"}) {
        for (const char* table : {"__kiv_getTable", "__kiv_setTable"})
            EXPECT_NE(shown("local k = t.Box." + std::string(table) + ", old = k.width; k.width = " + bad +
                            "; local b = t.Box(); try { b.width = 1 } catch (e) {}; try { b.width } catch (e) {}; "
                            "k.width = old; r = t.Box(6).width"),
                      "does not run")
                << bad;
    }
    expectAll({
        {"delete t.Box.__kiv_getTable.width; t.Box().width", "error: the index 'width' does not exist"},
        {"t.Box.__kiv_setTable.width.call(t.Box())", "error: invalid argument count on native set"},
        {"t.Box.setattributes(\"get\", t.Box()); r = t.Box.getattributes(\"get\").get()", "3"},
        {"t.Box.__kiv_nativeClassName <- t.Box()",
         "error: trying to modify a class that has already been instantiated"},
        {"class E extends t.Box { function _get(k) { throw k } }; E().nope", "error: nope"},
        {"class E extends t.Box {}; E._get <- @(k) 7; r = E().nope", "7"},
        {"t.Box.cloned.acall([])", "error: clone of native class with null-pointer"},
        {"delete t.Box.get", "error: attempt to delete a slot from a class"},
    });
}

TEST_F(HostileTest, ScriptsRunAfterManyThrowingNatives) {
    for (int i = 0; i < 120; ++i) EXPECT_EQ(run("t.Box().fail()"), "error: broken");
    for (int i = 0; i < 120; ++i) EXPECT_EQ(run("[1].map(@(x) t.Box().fail())"), "error: broken");
    EXPECT_EQ(run("local g = (function() { local b = t.Box(); yield 1; yield b.fail() })()\n"
                  "resume g; try { resume g } catch (e) { r = e + \",\" + g.getstatus() }"),
              "broken,dead");
    EXPECT_EQ(run("local g = (function() { local b = t.Box(); yield 1; yield 2 })(); resume g; g = null; r = 1"), "1");
    EXPECT_EQ(Box::alive, 0);
    EXPECT_EQ(run("r = 1 + 1"), "2");
}

} // namespace
