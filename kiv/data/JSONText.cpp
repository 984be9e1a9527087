#include "kiv/data/JSONText.h"

#include "kiv/core/Utf8.h"

#include <nlohmann/json.hpp>

#include <iterator>

namespace kiv::internal {
namespace {

// Between the parser and the receiver; keeps to the limits.
class Receiver {
public:
    using Number = nlohmann::json;
    using Text = nlohmann::json::string_t;

    explicit Receiver(JSONEvents& events) : m_events(events) {}

    const char* reason = nullptr;
    size_t errorOffset = 0;

    bool null() { return m_events.null(); }
    bool boolean(bool flag) { return m_events.boolean(flag); }
    bool number_integer(Number::number_integer_t number) { return m_events.integer(number); }
    bool number_unsigned(Number::number_unsigned_t number) {
        return number <= static_cast<uint64_t>(INT64_MAX) ? m_events.integer(static_cast<int64_t>(number))
                                                          : m_events.floating(static_cast<double>(number));
    }
    bool number_float(Number::number_float_t number, const Text&) { return m_events.floating(number); }
    bool string(Text& text) { return m_events.text(text); }
    bool binary(Number::binary_t&) { return false; }
    bool start_object(size_t) { return open(true); }
    bool start_array(size_t) { return open(false); }
    bool key(Text& name) { return m_events.key(name); }
    bool end_object() { return close(true); }
    bool end_array() { return close(false); }
    bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& error) {
        errorOffset = position == 0 ? 0 : position - 1;
        reason = error.id == 406 ? "a number out of range" : "not JSON";
        return false;
    }

private:
    bool open(bool isObject) {
        if (m_depth == Item::maximumDepth) {
            reason = "nested deeper than 128 levels";
            return false;
        }
        ++m_depth;
        return m_events.open(isObject);
    }
    bool close(bool isObject) {
        --m_depth;
        return m_events.close(isObject);
    }

    JSONEvents& m_events;
    int m_depth = 0;
};

// Hands the text to the parser and remembers how far it has read.
class TrackingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    TrackingIterator(const char* at, const char** furthest) : m_at(at), m_furthest(furthest) {}
    const char& operator*() const { return *m_at; }
    TrackingIterator& operator++() {
        *m_furthest = ++m_at;
        return *this;
    }
    TrackingIterator operator++(int) {
        const TrackingIterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator!=(const TrackingIterator& a, const TrackingIterator& b) { return a.m_at != b.m_at; }

private:
    const char* m_at;
    const char** m_furthest;
};

bool isPlain(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\') return false;
    return true;
}

} // namespace

bool parseJSON(std::string_view text, JSONEvents& events, Item::TextError& error) {
    if (text.size() > maximumJSONSize) {
        error = {0, "longer than 64 MiB"};
        return false;
    }
    Receiver receiver(events);
    const char* const first = text.data();
    const char* read = first;
    const TrackingIterator begin(first, &read), end(first + text.size(), &read);
    if (nlohmann::json::sax_parse(begin, end, &receiver)) return true;
    if (receiver.errorOffset == 0 && read != first) receiver.errorOffset = static_cast<size_t>(read - first) - 1;
    const char* const reason = events.reason ? events.reason : receiver.reason;
    error = {receiver.errorOffset, reason ? reason : "not JSON"};
    return false;
}

std::string repairWhole(std::string_view text) {
    std::string whole, part;
    for (;;) {
        const size_t zero = text.find('\0');
        repairUtf8(text.data(), std::min(zero, text.size()), part);
        whole += part;
        if (zero == text.npos) return whole;
        whole += '\0';
        text.remove_prefix(zero + 1);
    }
}

std::string toJSONText(std::string_view text) {
    const bool isValid = validateUtf8(text.data(), text.size());
    if (!isValid || !isPlain(text)) return nlohmann::json(isValid ? std::string(text) : repairWhole(text)).dump();
    std::string quoted;
    quoted.reserve(text.size() + 2);
    return quoted.append(1, '"').append(text).append(1, '"');
}

std::string toJSONNumber(double number) {
    return nlohmann::json(number).dump();
}

} // namespace kiv::internal
