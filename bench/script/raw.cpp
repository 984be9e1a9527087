#include "Races.h"
#include "kiv/script/Engine.h"

#include <cstring>
#include <string_view>

namespace {

using bench::Counter;

// The engine as one would use it by hand, with the checks that a script's mistakes ask for: the engine itself checks
// the number and the types of parameters where it is told them.
const SQUserPointer counterTag = const_cast<char*>("Counter");

Counter* self(SQVM* v) {
    SQUserPointer pointer = nullptr;
    return SQ_SUCCEEDED(sq_getinstanceup(v, 1, &pointer, counterTag)) ? static_cast<Counter*>(pointer) : nullptr;
}

bool take(SQVM* v, SQInteger index, int64_t& out) {
    SQInteger number = 0;
    if (SQ_FAILED(sq_getinteger(v, index, &number))) return false;
    out = number;
    return true;
}

SQInteger add(SQVM* v) {
    int64_t a = 0, b = 0;
    if (!take(v, 2, a) || !take(v, 3, b)) return sq_throwerror(v, "two integers expected");
    sq_pushinteger(v, bench::add(a, b));
    return 1;
}

SQInteger addToCounter(SQVM* v) {
    Counter* const counter = self(v);
    if (!counter) return sq_throwerror(v, "no Counter");
    int64_t a = 0, b = 0;
    if (!take(v, 2, a) || !take(v, 3, b)) return sq_throwerror(v, "two integers expected");
    sq_pushinteger(v, counter->add(a, b));
    return 1;
}

std::string_view keyOf(SQVM* v) {
    const SQChar* text = nullptr;
    if (SQ_FAILED(sq_getstring(v, 2, &text))) return {};
    return {text, static_cast<size_t>(sq_getsize(v, 2))};
}

SQInteger throwMissing(SQVM* v) {
    sq_pushnull(v);
    return sq_throwobject(v);
}

SQInteger getMember(SQVM* v) {
    const Counter* const counter = self(v);
    if (!counter) return sq_throwerror(v, "no Counter");
    const std::string_view key = keyOf(v);
    if (key == "value") {
        sq_pushinteger(v, counter->value);
    } else if (key == "step") {
        sq_pushinteger(v, counter->step);
    } else if (key == "limit") {
        sq_pushinteger(v, counter->limit);
    } else if (key == "scale") {
        sq_pushfloat(v, counter->scale);
    } else {
        return throwMissing(v);
    }
    return 1;
}

SQInteger setMember(SQVM* v) {
    Counter* const counter = self(v);
    if (!counter) return sq_throwerror(v, "no Counter");
    const std::string_view key = keyOf(v);
    bool isGood = false;
    if (key == "value") {
        isGood = take(v, 3, counter->value);
    } else if (key == "step") {
        isGood = take(v, 3, counter->step);
    } else if (key == "limit") {
        isGood = take(v, 3, counter->limit);
    } else if (key == "scale") {
        isGood = SQ_SUCCEEDED(sq_getfloat(v, 3, &counter->scale));
    } else {
        return throwMissing(v);
    }
    return isGood ? 0 : sq_throwerror(v, "a number expected");
}

SQInteger destroy(SQUserPointer pointer, SQInteger) {
    delete static_cast<Counter*>(pointer);
    return 1;
}

SQInteger construct(SQVM* v) {
    SQUserPointer there = nullptr;
    if (SQ_FAILED(sq_getinstanceup(v, 1, &there, counterTag)) || there) return sq_throwerror(v, "no new Counter");
    int64_t start = 0;
    if (!take(v, 2, start)) return sq_throwerror(v, "an integer expected");
    sq_setinstanceup(v, 1, new Counter(start));
    sq_setreleasehook(v, 1, &destroy);
    return 0;
}

class Raw {
public:
    static constexpr const char* name = "raw";

    Raw() {
        sq_pushroottable(m_vm);
        enter("add", add, 3);
        sq_pushstring(m_vm, "Counter", -1);
        sq_newclass(m_vm, SQFalse);
        sq_settypetag(m_vm, -1, counterTag);
        enter("constructor", construct, 2);
        enter("add", addToCounter, 3);
        enter("_get", getMember, 2);
        enter("_set", setMember, 3);
        sq_newslot(m_vm, -3, SQFalse);

        const auto size = static_cast<SQInteger>(std::string_view(bench::squirrelSource).size());
        const bool isGood = SQ_SUCCEEDED(sq_compilebuffer(m_vm, bench::squirrelSource, size, "bench", SQTrue));
        bench::check(isGood, name, "the script");
        sq_push(m_vm, -2);
        sq_call(m_vm, 1, SQFalse, SQTrue);
        sq_settop(m_vm, 0);
        m_add = find("scriptAdd");
    }
    void select(const char* loop) { m_loop = find(loop); }
    int64_t run(int64_t count) { return call(m_loop, count); }
    int64_t callScript(int64_t a, int64_t b) { return call(m_add, a, b); }

    void makeTable() {
        sq_settop(m_vm, 0);
        sq_newtable(m_vm);
        put("text", [&] { pushText(m_record.text.data(), m_record.text.size()); });
        put("series", [&] { sq_pushinteger(m_vm, m_record.series); });
        put("position", [&] { sq_pushinteger(m_vm, m_record.position); });
        put("time", [&] { sq_pushinteger(m_vm, m_record.time); });
        put("spacing", [&] { sq_pushfloat(m_vm, m_record.spacing); });
        put("digest", [&] { pushText(reinterpret_cast<const char*>(m_record.digest.data()), m_record.digest.size()); });
        put("window", [&] {
            sq_newarray(m_vm, 0);
            for (const int32_t value : m_record.window) {
                sq_pushinteger(m_vm, value);
                sq_arrayappend(m_vm, -2);
            }
        });
    }
    bool takeTable() {
        bench::Record back;
        const bool isGood = get("text", [&] { return takeText(back.text); }) &&
                            get("series", [&] { return take(m_vm, -1, back.series); }) &&
                            get("position", [&] { return take(m_vm, -1, back.position); }) &&
                            get("time", [&] { return take(m_vm, -1, back.time); }) &&
                            get("spacing", [&] { return SQ_SUCCEEDED(sq_getfloat(m_vm, -1, &back.spacing)); }) &&
                            get("digest", [&] { return takeDigest(back); }) &&
                            get("window", [&] { return takeWindow(back); });
        return isGood && bench::sumOf(back) == m_sum;
    }

private:
    // ---- The record; its table is at the top.

    template <class Push>
    void put(const char* key, Push push) {
        sq_pushstring(m_vm, key, -1);
        push();
        sq_rawset(m_vm, -3);
    }
    template <class Take>
    bool get(const char* key, Take takeTop) {
        sq_pushstring(m_vm, key, -1);
        if (SQ_FAILED(sq_rawget(m_vm, -2))) return false;
        const bool isGood = takeTop();
        sq_poptop(m_vm);
        return isGood;
    }
    void pushText(const char* text, size_t size) { sq_pushstring(m_vm, text, static_cast<SQInteger>(size)); }
    bool takeText(std::string& out) {
        const SQChar* text = nullptr;
        if (SQ_FAILED(sq_getstring(m_vm, -1, &text))) return false;
        out.assign(text, static_cast<size_t>(sq_getsize(m_vm, -1)));
        return true;
    }
    bool takeDigest(bench::Record& out) {
        const SQChar* text = nullptr;
        if (SQ_FAILED(sq_getstring(m_vm, -1, &text))) return false;
        if (sq_getsize(m_vm, -1) != static_cast<SQInteger>(out.digest.size())) return false;
        std::memcpy(out.digest.data(), text, out.digest.size());
        return true;
    }
    bool takeWindow(bench::Record& out) {
        if (sq_getsize(m_vm, -1) != static_cast<SQInteger>(out.window.size())) return false;
        for (size_t i = 0; i < out.window.size(); ++i) {
            sq_pushinteger(m_vm, static_cast<SQInteger>(i));
            int64_t value = 0;
            if (SQ_FAILED(sq_rawget(m_vm, -2)) || !take(m_vm, -1, value)) return false;
            out.window[i] = static_cast<int32_t>(value);
            sq_poptop(m_vm);
        }
        return true;
    }

    // ---- Functions.

    // Into the class or table at the top.
    void enter(const char* what, SQFUNCTION function, SQInteger params) {
        sq_pushstring(m_vm, what, -1);
        sq_newclosure(m_vm, function, 0);
        sq_setparamscheck(m_vm, params, nullptr);
        sq_newslot(m_vm, -3, SQFalse);
    }
    // Of the root table, which keeps it alive.
    HSQOBJECT find(const char* what) {
        HSQOBJECT found;
        sq_resetobject(&found);
        sq_pushroottable(m_vm);
        sq_pushstring(m_vm, what, -1);
        bench::check(SQ_SUCCEEDED(sq_get(m_vm, -2)), name, what);
        sq_getstackobj(m_vm, -1, &found);
        sq_pop(m_vm, 2);
        return found;
    }
    template <class... Arguments>
    int64_t call(const HSQOBJECT& function, Arguments... arguments) {
        const SQInteger top = sq_gettop(m_vm);
        sq_pushobject(m_vm, function);
        sq_pushroottable(m_vm);
        (sq_pushinteger(m_vm, arguments), ...);
        SQInteger result = -1;
        if (SQ_SUCCEEDED(sq_call(m_vm, 1 + sizeof...(arguments), SQTrue, SQTrue))) sq_getinteger(m_vm, -1, &result);
        sq_settop(m_vm, top);
        return result;
    }

    SQVM* const m_vm = sq_open(1024);
    HSQOBJECT m_loop, m_add;
    const bench::Record m_record;
    const int64_t m_sum = bench::sumOf(m_record);
};

[[maybe_unused]] const bool added = bench::addRaces<Raw>() && bench::addTableRaces<Raw>();

} // namespace
