#include "Races.h"

#define SOL_ALL_SAFETIES_ON 1 // wrong arguments are script errors, as with the others
#include <sol/sol.hpp>

namespace {

using bench::Counter;

constexpr const char* luaSource = R"(
function callFunction(n)
    local f, sum = add, 0
    for i = 0, n - 1 do sum = sum + f(i, 1) end
    return sum
end
function callMethod(n)
    local counter, sum = Counter.new(5), 0
    for i = 0, n - 1 do sum = sum + counter:add(i, 1) end
    return sum
end
function getProperty(n)
    local counter, sum = Counter.new(5), 0
    for i = 0, n - 1 do sum = sum + counter.value end
    return sum
end
function setProperty(n)
    local counter = Counter.new(5)
    for i = 0, n - 1 do counter.value = i end
    return counter.value
end
function createObject(n)
    local make, made = Counter.new, 0
    for i = 0, n - 1 do
        local counter = make(i)
        made = made + 1
    end
    return made
end
function scriptAdd(a, b)
    return a + b
end
)";

class Sol {
public:
    static constexpr const char* name = "sol2";

    Sol() {
        m_lua.new_usertype<Counter>("Counter", sol::constructors<Counter(int64_t)>(), "add", &Counter::add, "value",
                                    &Counter::value, "step", &Counter::step, "limit", &Counter::limit, "scale",
                                    &Counter::scale);
        m_lua["add"] = &bench::add;
        m_lua.script(luaSource);
        m_add = m_lua.get<sol::protected_function>("scriptAdd");
    }
    void select(const char* loop) { m_loop = m_lua.get<sol::protected_function>(loop); }
    int64_t run(int64_t count) { return call(m_loop, count); }
    int64_t callScript(int64_t a, int64_t b) { return call(m_add, a, b); }

private:
    template <class... Arguments>
    static int64_t call(const sol::protected_function& function, Arguments... arguments) {
        const sol::protected_function_result result = function(arguments...);
        return result.valid() ? result.get<int64_t>() : -1;
    }

    sol::state m_lua;
    sol::protected_function m_loop, m_add;
};

[[maybe_unused]] const bool added = bench::addRaces<Sol>();

} // namespace
