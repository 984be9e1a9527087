#pragma once

#include <array>
#include <cstddef>

namespace kiv {

// Names of a class and its bases, root first; the entries behind the class's own name are null.
inline constexpr int maximalClassDepth = 16;
using ClassChain = std::array<const char*, maximalClassDepth>;

namespace internal {

// Writes `name` at `index` and returns the next free index; outside the chain it writes nothing and returns `index`.
constexpr int addClassName(ClassChain& chain, int index, const char* name) {
    if (index < 0 || index >= maximalClassDepth) return index;
    chain[static_cast<std::size_t>(index)] = name;
    return index + 1;
}

} // namespace internal
} // namespace kiv

// Writes a class's identity: its static and dynamic name and class chain. Stands first in the body of every class that
// derives from Object; what follows it is private. `Class` is the bare name, also for a nested class.
#define KIV_OBJECT(Class, Base)                                                                                        \
public:                                                                                                                \
    static const char* getStaticClassName() {                                                                          \
        return #Class;                                                                                                 \
    }                                                                                                                  \
    static ::kiv::ClassChain getStaticClassChain() {                                                                   \
        ::kiv::ClassChain chain{};                                                                                     \
        fillClassChain(chain, 0);                                                                                      \
        return chain;                                                                                                  \
    }                                                                                                                  \
    const char* getDynamicClassName() const override {                                                                 \
        return #Class;                                                                                                 \
    }                                                                                                                  \
    ::kiv::ClassChain getDynamicClassChain() override {                                                                \
        return getStaticClassChain();                                                                                  \
    }                                                                                                                  \
                                                                                                                       \
protected:                                                                                                             \
    static constexpr int classDepth = Base::classDepth + 1;                                                            \
    static int fillClassChain(::kiv::ClassChain& chain, int index) {                                                   \
        return ::kiv::internal::addClassName(chain, Base::fillClassChain(chain, index), #Class);                       \
    }                                                                                                                  \
                                                                                                                       \
private:                                                                                                               \
    static constexpr void checkClassDepth() {                                                                          \
        static_assert(classDepth <= ::kiv::maximalClassDepth, "a class chain holds 16 names at most");                 \
    }
