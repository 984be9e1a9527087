#pragma once

#include "kiv/script/VM.h"

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

namespace kivSq {

class VM::Imports {
public:
    struct Callback {
        ImportCallback function = nullptr;
        std::string extra;
    };

    void import(VM& vm, const std::string& name);

    std::unordered_set<std::string> names; // of what was asked for
    std::vector<std::string> searchPaths;
    std::map<std::string, Callback, std::less<>> callbacks; // a callback may import, and register others

private:
    void importFile(VM& vm, const std::string& name) const;
};

namespace internal {

void addImportFunction(SQVM* v, const Object& root);

} // namespace internal
} // namespace kivSq
