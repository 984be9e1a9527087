#include "kiv/script/classes/FileArguments.h"

#include <sqstdblob.h>

#include <cstring>

namespace kivSq {
namespace {

// False for what is no blob, and for one whose constructor has not run.
bool getBlob(SQVM* v, int64_t index, std::string_view& out) {
    SQUserPointer object = nullptr;
    SQUserPointer bytes = nullptr;
    if (sq_gettype(v, index) != OT_INSTANCE || SQ_FAILED(sq_getinstanceup(v, index, &object, nullptr)) || !object)
        return false;
    if (SQ_FAILED(sqstd_getblob(v, index, &bytes))) return false;
    out = {static_cast<const char*>(bytes), static_cast<size_t>(sqstd_getblobsize(v, index))};
    return true;
}

} // namespace

bool Access<internal::Path>::get(SQVM* v, int64_t index, internal::Path& out) {
    return Access<std::string_view>::get(v, index, out.text) && out.text.find('\0') == out.text.npos;
}

bool Access<internal::Bytes>::get(SQVM* v, int64_t index, internal::Bytes& out) {
    std::string_view bytes;
    if (!Access<std::string_view>::get(v, index, bytes) && !getBlob(v, index, bytes)) return false;
    if (bytes.size() > UINT32_MAX) return false;
    out.span = {reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<unsigned>(bytes.size())};
    return true;
}

bool Access<internal::Blob>::push(SQVM* v, const internal::Blob& value) {
    const SQInteger top = sq_gettop(v);
    const unsigned size = value.bytes.getSize();
    SQUserPointer const room = sqstd_createblob(v, size);
    if (sq_gettop(v) == top) {
        sq_throwerror(v, "the engine has made no blob");
        return false;
    }
    if (size > 0) std::memcpy(room, value.bytes.getBytePointer(), size);
    return true;
}

} // namespace kivSq
