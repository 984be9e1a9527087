#pragma once

#include "kiv/script/VM.h"

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

namespace kivSq {

// The modules of a VM: those that are registered, the search paths of the others, and the names of all that were asked
// for, found or not.
class VM::Imports {
public:
    struct Callback {
        ImportCallback function = nullptr;
        std::string extra;
    };

    void import(VM& vm, const std::string& name);

    std::unordered_set<std::string> names;
    std::vector<std::string> searchPaths;
    std::map<std::string, Callback, std::less<>> callbacks; // a callback may import, and register others

private:
    void importFile(VM& vm, const std::string& name) const;
};

namespace internal {

// "import", for scripts.
void addImportFunction(SQVM* v, const Object& root);

} // namespace internal
} // namespace kivSq
