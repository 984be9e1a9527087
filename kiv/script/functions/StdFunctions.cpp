#include "kiv/core/Object.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VMOutput.h"

namespace kivSq::internal {
namespace {

using kiv::String;

// For functions of several numbers of arguments, all of them texts.
template <class... Texts, class Function>
SQInteger callWithTexts(SQVM* v, Function function) {
    return invoke<String, Texts...>(v, 2, function, std::index_sequence_for<Texts...>());
}

String translate(const String& text) {
    return kiv::Object::tr_l("", text);
}

String translateIn(const String& context, const String& text) {
    return kiv::Object::tr_l(context, text);
}

String translateOr(const String& context, const String& text, const String& fallback) {
    return kiv::Object::tr_l(context, text, fallback);
}

// (text) and (context, text)
SQInteger tr(SQVM* v) {
    switch (sq_gettop(v)) {
    case 2:
        return callWithTexts<const String&>(v, translate);
    case 3:
        return callWithTexts<const String&, const String&>(v, translateIn);
    default:
        return sq_throwerror(v, "wrong number of parameters");
    }
}

// (context, text) and (context, text, fallback)
SQInteger trWithFallback(SQVM* v) {
    switch (sq_gettop(v)) {
    case 3:
        return callWithTexts<const String&, const String&>(v, translateIn);
    case 4:
        return callWithTexts<const String&, const String&, const String&>(v, translateOr);
    default:
        return sq_throwerror(v, "wrong number of parameters");
    }
}

SQInteger showContext(SQVM* v) {
    kiv::logging::MessageStream(1, 2) << callStackText(v);
    return 0;
}

} // namespace

void addStdFunctions(SQVM* v, const Object& table) {
    NativeTable(v, table)
        .carried("tr", &tr, -2)
        .carried("tr_l", &trWithFallback, -3)
        .plain<&showContext>("dbg_showcontext", 1);
}

} // namespace kivSq::internal
