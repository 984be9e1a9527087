#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The work of the race: what crosses the border between scripts and native code, most of it a thousand times in one
// loop of the script, so that the loop's own cost is in all results.
namespace bench {

constexpr int64_t loopCount = 1000;

inline int64_t add(int64_t a, int64_t b) {
    return a + b;
}

// A native class with some members.
class Counter {
public:
    explicit Counter(int64_t start) : value(start) {}
    int64_t add(int64_t a, int64_t b) const { return value + a + b; }

    int64_t value;
    int64_t step = 1;
    int64_t limit = 1000;
    double scale = 0.5;
};

// Loops of `n` operations; what they return depends on all of them. Contestants bind `add` and `Counter`.
struct Loop {
    const char* name;
    int64_t result; // of loopCount operations
};
constexpr int64_t sumOfIndexes = loopCount * (loopCount - 1) / 2;
constexpr Loop loops[] = {
    {"callFunction", sumOfIndexes + loopCount},
    {"callMethod", sumOfIndexes + 6 * loopCount},
    {"getProperty", 5 * loopCount},
    {"setProperty", loopCount - 1},
    {"createObject", loopCount},
};

constexpr const char* squirrelSource = R"(
function callFunction(n) {
    local f = add, sum = 0
    for (local i = 0; i < n; i += 1) sum += f(i, 1)
    return sum
}
function callMethod(n) {
    local counter = Counter(5), sum = 0
    for (local i = 0; i < n; i += 1) sum += counter.add(i, 1)
    return sum
}
function getProperty(n) {
    local counter = Counter(5), sum = 0
    for (local i = 0; i < n; i += 1) sum += counter.value
    return sum
}
function setProperty(n) {
    local counter = Counter(5)
    for (local i = 0; i < n; i += 1) counter.value = i
    return counter.value
}
function createObject(n) {
    local make = Counter, made = 0
    for (local i = 0; i < n; i += 1) {
        local counter = make(i)
        made += 1
    }
    return made
}
function scriptAdd(a, b) {
    return a + b
}
)";

inline void check(bool isRight, const char* contestant, const char* race) {
    if (isRight) return;
    std::fprintf(stderr, "%s does not do the work of %s\n", contestant, race);
    std::abort();
}

} // namespace bench
