#include "ScriptValues.h"
#include "kiv/script/Access.h"
#include "kiv/store/MemoryStore.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

using kiv::MemoryStore;
using testing::ElementsAre;

class StoreScriptTest : public testing::Test, protected ScriptValues {
protected:
    StoreScriptTest() {
        vm.import("kiv.MemoryStore");
        vm.executeString(R"(
            s <- kiv.MemoryStore()
            s.set("a", {size = 2, parts = [1, null]})
            s.set(["a", 1], "one")
            s.set(["a", 1, "deep"], 11)
            s.set(["a", 2], "two")
            s.set("b", 0.5)
            function names(keys) {
                local text = ""
                foreach (key in keys) text += key.asBrowsableString() + " "
                return text
            }
            function walk(range) {
                local text = ""
                foreach (key, value in range) text += key.asBrowsableString() + "=" + value + " "
                return text
            })",
                         "t");
    }
};

TEST_F(StoreScriptTest, EntriesAreReachedByKeys) {
    const char* const rows[][2] = {
        {"s.get(\"a\").parts.len() + s.get(\"a\").size", "4"},
        {"s.get([\"a\", 1])", "one"},
        {"s.get(kiv.Item(\"a\", 2))", "two"},
        {"s.get(\"c\")", "null"},
        {"s.exists(\"b\") && !s.exists([])", "true"},
        {"s.first().asBrowsableString() + \" \" + s.last().asBrowsableString()", "a b"},
        {"s.next(s.last())", "null"},
        {"s.prev(\"b\")[1] + s.next(s.first())[1]", "3"},
        {"names(s.children(\"a\"))", "a;INT:1 a;INT:2 "},
        {"names(s.children([]))", "a b "},
        {"walk(s.range([\"a\", 1]))", "a;INT:1=one a;INT:1;deep=11 "},
        {"walk(s.range(\"b\")) + walk(s.range(\"c\"))", "b=0.5 "},
        {"(@(sum) (walk(s.range([])).len()))(0) > 50", "true"},
        {"(@(k) (k.child().fetch() + k.lastChild().fetch() + k.next().fetch()))(s.item(\"a\"))", "onetwo0.5"},
        {"(@(k) (k.store(5), s.get([\"n\", \"m\"]) + s.get(\"n\").len()))(s.item([\"n\", \"m\"]))", "5"},
        {"(@() (s.remove([\"a\", 1]), names(s.children(\"a\"))))()", "a;INT:2 "},
        {"(@() (s.remove([]), s.first()))()", "null"},
        // Misuse.
        {"s.set([1.0 / 0 - 1.0 / 0], 1)", "error: the value is not fit to be a key"},
        {"s.item(array(65, 1)).store(1)", "error: the item is not fit to be a key"},
        {"s.set(\"a\")", "error: invalid argument count on native method call"},
        {"kiv.Store.get.call(kiv.GUID(), 1)", "error: native method call on null-pointer"},
        {"kiv.Store()", "error: the native class has no constructor for scripts"},
        {"s.range(1).nope", "error: the index 'nope' does not exist"},
    };
    for (const auto& [expression, value] : rows) EXPECT_EQ(eval(expression), value) << expression;
}

TEST_F(StoreScriptTest, LoopsSurviveChangesAndKeysThatReadAlike) {
    vm.executeString("s.remove([]); local k = kiv.Item(); k.addPrefix(\"x\"); s.set(\"x\", 1); s.set(k, 2);"
                     "k = kiv.Item(); k.addBuffer(\"x\"); s.set(k, 3)",
                     "t");
    EXPECT_EQ(eval("walk(s.range([]))"), "x=1 BUF:1=3 PREFIX:x=2 ");
    vm.executeString("foreach (k, v in s.range([])) s.remove(k)", "t");
    EXPECT_EQ(eval("s.first()"), "null");
}

TEST_F(StoreScriptTest, TransactionsRollBackWhenTheFunctionFails) {
    const char* const rows[][2] = {
        {"s.transaction(function() { s.set(\"a\", 7); return s.get(\"a\") })", "7"},
        {"s.transaction(function() { s.set(\"a\", 8); s.begin(); s.set(\"b\", 8); throw \"no\" })", "error: no"},
        {"[s.get(\"a\"), s.get(\"b\"), s.getNumberOfLayers()].reduce(@(x, y) x + y)", "8.5"},
        {"s.transaction(function() { s.set(\"a\", 9); s.begin(); s.set(\"b\", 9) })", "null"},
        {"s.get(\"a\") + s.get(\"b\") + s.getNumberOfLayers()", "10.5"},
        {"s.transaction(function() { s.commit() })", "error: the transaction was closed by its own function"},
        {"s.transaction(5)", "error: argument 1: expected function, got integer"},
        {"kiv.Store.transaction.call(s)", "error: invalid argument count on native method call"},
        {"s.rollback()", "error: there is no open transaction"},
        {"kiv.MemoryStore(false).transaction(@() 1)", "error: the store has no transactions"},
        {"(@(c) (c.set(\"a\", 0), s.get(\"a\")))(s.copy())", "9"},
    };
    support::LogLines log;
    for (const auto& [expression, value] : rows) EXPECT_EQ(eval(expression), value) << expression;
    EXPECT_THAT(log.take(), ElementsAre());
}

TEST_F(StoreScriptTest, StoresAreSharedAndSaved) {
    const kiv::SmartPointer<MemoryStore> store = new MemoryStore(true);
    vm.getRootTable().set("app", kivSq::Object::from(store));
    EXPECT_EQ(eval("(@() (app.copyFrom(s), app.getClassName() + app.getReferenceCount()))()"), "MemoryStore2");
    EXPECT_EQ(std::string(store->get(kiv::Item("b"))->asString().c_str()), "{<FLT:0.5>}");
    // An item keeps its store.
    EXPECT_EQ(eval("(@(k) k.fetch())((@() (@(t) (t.set(1, 2), t.item(1)))(kiv.MemoryStore()))())"), "2");

    const support::TemporaryFolder folder;
    vm.getRootTable().set("path", kivSq::Object::from(folder.utf8("store")));
    EXPECT_EQ(eval("s.save(path) && kiv.MemoryStore().load(path)"), "true");
    EXPECT_EQ(eval("(@(t) (t.load(path), walk(t.range(\"b\"))))(kiv.MemoryStore())"), "b=0.5 ");
    support::LogLines log;
    EXPECT_EQ(eval("kiv.MemoryStore().load(path + \"x\")"), "false");
    EXPECT_EQ(eval("(@(t) (t.begin(), t.load(path)))(kiv.MemoryStore())"), "error: there is an open transaction");
}

} // namespace
