#pragma once

#include "kiv/platform/Compiler.h"
#include <functional>
#include <string>

namespace kiv {

// Answers whether there is a translation of `text` in `context` and writes it to `translation`. No argument is null.
// Called on any thread, several at a time, no lock held; it may itself ask for translations, and must not clear the
// cache every time.
using TranslationSource = std::function<bool(const char* context, const char* text, std::string& translation)>;

// Where Object::tr and its family look texts up; without a source nothing has a translation. Texts asked for earlier
// keep their answers until Object::clearTrCache().
KIV_API void setTranslationSource(TranslationSource source);

} // namespace kiv
