#pragma once

#include <functional>
#include <utility>

namespace kiv {

template <class Signature>
class Delegate;

// A single callback, or none: calling an empty delegate does nothing and returns a value-initialised result.
// One thread at a time. The callback may replace or clear the delegate it is called through.
template <class Result, class... Arguments>
class Delegate<Result(Arguments...)> {
public:
    using Function = std::function<Result(Arguments...)>;

    Delegate() = default;
    Delegate(Function function) : m_function(std::move(function)) {}

    void set(Function function) { m_function = std::move(function); }
    void clear() { m_function = nullptr; }
    explicit operator bool() const { return static_cast<bool>(m_function); }

    Result operator()(Arguments... arguments) const {
        if (!m_function) return Result();
        const Function function = m_function;
        return function(std::forward<Arguments>(arguments)...);
    }

private:
    Function m_function;
};

} // namespace kiv
