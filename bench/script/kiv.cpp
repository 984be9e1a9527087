#include "Races.h"
#include "kiv/data/Item.h"
#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/NativeTable.h"

namespace {

using kivSq::Object;

class Kiv {
public:
    static constexpr const char* name = "kiv";

    Kiv() {
        const Object root = m_vm.getRootTable();
        kivSq::Class<bench::Counter>(root, "Counter", kivSq::Constructor<void(int64_t)>())
            .method("add", &bench::Counter::add)
            .member("value", &bench::Counter::value)
            .member("step", &bench::Counter::step)
            .member("limit", &bench::Counter::limit)
            .member("scale", &bench::Counter::scale);
        bind("add", &bench::add);
        bench::check(m_vm.executeString(bench::squirrelSource, "bench"), name, "the script");
        m_add = function("scriptAdd");
        encode(bench::Record());
    }
    void select(const char* loop) { m_loop = function(loop); }
    int64_t run(int64_t count) { return call(m_loop, count); }
    int64_t callScript(int64_t a, int64_t b) { return call(m_add, a, b); }
    void makeTable() { m_record.getIterator().asSquirrel(m_table); }
    bool takeTable() { return kiv::Item(m_table).getPlainSize() == m_record.getPlainSize(); } // in another order
    kivSq::VM& vm() { return m_vm; }

private:
    void bind(const char* what, int64_t (*native)(int64_t, int64_t)) {
        kivSq::internal::NativeTable(m_vm.getSquirrelVM(), m_vm.getRootTable()).carried(what, native);
    }
    kivSq::Functor function(const char* what) const { return kivSq::Functor(m_vm.getRootTable().get(what)); }
    template <class... Arguments>
    static int64_t call(const kivSq::Functor& function, Arguments... arguments) {
        int64_t result = -1;
        function.call(arguments...).to(result);
        return result;
    }

    void encode(const bench::Record& record) {
        kiv::Item fields, window;
        const auto add = [&](const char* key, const auto& value) {
            fields.addString(key);
            fields.add(value);
        };
        add("text", record.text.c_str());
        add("series", record.series);
        add("position", record.position);
        add("time", record.time);
        add("spacing", record.spacing);
        add("digest", std::string(record.digest.begin(), record.digest.end()).c_str());
        for (const int32_t value : record.window) window.add(value);
        fields.addString("window");
        fields.addItem(window);
        m_record.addPrefix("table");
        m_record.addItem(fields);
    }

    kivSq::VM m_vm;
    kivSq::Functor m_loop, m_add;
    kiv::Item m_record;
    Object m_table;
};

[[maybe_unused]] const bool added = bench::addRaces<Kiv>() && bench::addTableRaces<Kiv>();

// A pass of the VM while all threads sleep.
void sleepersPass(benchmark::State& state) {
    kivSq::VM& vm = bench::contestant<Kiv>().vm();
    static const bool once = [&] {
        const Object sleeper = vm.newClosure("std.sleep_forever()", 19, "sleeper");
        for (int i = 0; i < 5000; ++i) vm.createThread(sleeper);
        const Object timed = vm.newClosure("std.sleep(100000000)", 20, "sleeper");
        for (int i = 0; i < 5000; ++i) vm.createThread(timed);
        vm.processEvents();
        return true;
    }();
    if (!once || !vm.threadsActive()) return state.SkipWithError("threads don't sleep");
    for (auto _ : state) vm.processEvents();
}
BENCHMARK(sleepersPass)->Name("pass, 10000 sleep/kiv");

} // namespace
