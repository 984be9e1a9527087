#include "kiv/core/Buffer.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/system/System.h"

namespace kiv {

bool Buffer::loadFromResource(const char* name, bool quiet) {
    if (System::fetchResource(name, *this)) return true;
    clear();
    if (!quiet) logging::MessageStream(3, 2) << "cant fetch resource '" << name << "'";
    return false;
}

} // namespace kiv
