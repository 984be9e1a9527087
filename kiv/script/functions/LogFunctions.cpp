#include "kiv/logging/MessageStream.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"

namespace kivSq::internal {
namespace {

using namespace kiv::logging;

constexpr int normal = StoredFlag;
constexpr int customer = AlternativeFlag | StoredFlag;

struct Kind {
    const char* name;
    int level;
    int flags;
    const char* prefix;
};

constexpr Kind kinds[] = {
    {"verbose", 0, normal, ""},
    {"info", 1, normal, ""},
    {"support", 1, normal | SupportFlag, "[SUPPORT] [SQ] "},
    {"warn", 2, normal, ""},
    {"error", 3, normal, ""},
    {"info_customer", 1, customer, ""},
    {"warn_customer", 2, customer, ""},
    {"error_customer", 3, customer, ""},
};

template <size_t kind>
SQInteger log(SQVM* v) {
    // A metamethod of the script's may run here.
    if (SQ_FAILED(sq_tostring(v, 2))) return SQ_ERROR;
    std::string_view text;
    Access<std::string_view>::get(v, -1, text);
    MessageStream(kinds[kind].level, kinds[kind].flags) << kinds[kind].prefix << text;
    return 0;
}

template <size_t... all>
void addKinds(NativeTable functions, std::index_sequence<all...>) {
    (functions.plain<&log<all>>(kinds[all].name, 2), ...);
}

} // namespace

void addLogFunctions(SQVM* v, const Object& table) {
    addKinds(NativeTable(v, table), std::make_index_sequence<std::size(kinds)>());
}

} // namespace kivSq::internal
