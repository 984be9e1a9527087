#pragma once

#include "kiv/script/VM.h"

#include <string>

// A VM, for tests of what scripts see.
struct ScriptValues {
    // The value of an expression, or "error: ..." with what it throws.
    kivSq::Object valueOf(const std::string& expression) {
        vm.getRootTable().set("result", kivSq::Object::from(std::string("does not run")));
        vm.executeString(("try { ::result <- " + expression + " } catch (e) { ::result <- \"error: \" + e }").c_str(),
                         "test");
        return vm.getRootTable().get("result");
    }
    // ... as text.
    std::string eval(const std::string& expression) { return valueOf(expression).describe().c_str(); }

    kivSq::VM vm;
};
