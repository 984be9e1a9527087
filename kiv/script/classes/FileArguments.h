#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/script/Class.h"

// What functions that reach files take and give.

namespace kivSq::internal {

// Of a file or directory. A script's text may have zero bytes, which no system's paths have.
struct Path {
    operator kiv::TextArg() const { return text; }

    std::string_view text;
};

// The bytes of a text or of a blob; the script's, as long as it is on the stack.
struct Bytes {
    kiv::ConstByteSpan span;
};

// A new blob with a copy of them.
struct Blob {
    kiv::Buffer bytes;
};

template <bool (*function)(kiv::TextArg)>
bool withPath(Path path) {
    return function(path);
}

template <bool (*function)(kiv::TextArg, kiv::TextArg)>
bool withPaths(Path first, Path second) {
    return function(first, second);
}

} // namespace kivSq::internal

namespace kivSq {

template <>
struct Access<internal::Path> {
    static bool get(SQVM* v, int64_t index, internal::Path& out);
    static const char* name() { return "path without zero bytes"; }
};

template <>
struct Access<internal::Bytes> {
    static bool get(SQVM* v, int64_t index, internal::Bytes& out);
    static const char* name() { return "string or blob"; }
};

template <>
struct Access<internal::Blob> {
    // Requires: runs in a native function.
    static bool push(SQVM* v, const internal::Blob& value);
    static const char* name() { return "blob"; }
};

} // namespace kivSq
