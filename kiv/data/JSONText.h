#pragma once

#include "kiv/data/Item.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// JSON as text: what items and scripts have in common.

namespace kiv::internal {

// Longer texts are refused, and so is what is nested deeper than Item::maximumDepth.
inline constexpr size_t maximumJSONSize = size_t{64} << 20;

// Receives the values of a text in their order, the elements and members of containers between open() and close().
// Each may refuse to go on: false.
class JSONEvents {
public:
    JSONEvents() = default;
    JSONEvents(const JSONEvents&) = delete;
    JSONEvents& operator=(const JSONEvents&) = delete;

    virtual bool null() = 0;
    virtual bool boolean(bool flag) = 0;
    // Integers beyond 64 bits come as floats.
    virtual bool integer(int64_t number) = 0;
    virtual bool floating(double number) = 0;
    // UTF-8, with zero bytes perhaps. The text may be taken.
    virtual bool text(std::string& text) = 0;
    virtual bool open(bool isObject) = 0;
    // Of the value that follows.
    virtual bool key(std::string& name) = 0;
    virtual bool close(bool isObject) = 0;

    // Why it was refused; null for what the parser has found itself.
    const char* reason = nullptr;

protected:
    ~JSONEvents() = default;
    bool refuse(const char* why) {
        reason = why;
        return false;
    }
};

// False when it is not JSON, past the limits, or refused; `error` says why and where.
bool parseJSON(std::string_view text, JSONEvents& events, Item::TextError& error);

// In quotes, escaped; bytes that are not UTF-8 are repaired.
std::string toJSONText(std::string_view text);
// The shortest form that gives this number again, and gives a float. Requires: it is finite.
std::string toJSONNumber(double number);
// UTF-8 of any bytes, as String::utf8_fix(), but with what follows zero bytes.
std::string repairWhole(std::string_view text);

} // namespace kiv::internal
