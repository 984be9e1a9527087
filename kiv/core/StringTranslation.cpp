#include "kiv/core/Object.h"
#include "kiv/core/String.h"

namespace kiv {

// An assignment, not an exchange of characters: the translation may be the pointer that was passed in.
String& String::apply_tr() {
    return assign(Object::tr(c_str()));
}

String& String::apply_tr(TextArg context) {
    return assign(Object::tr(std::string(context).c_str(), c_str()));
}

} // namespace kiv
