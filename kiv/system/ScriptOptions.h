#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Functor.h"
#include "kiv/store/OptionsDB.h"

#include <functional>

namespace kivSq {
class VM;
}

namespace kiv::internal {

// The options of a PluginHost as its scripts see them: `host.options` (doc/scripting.md).
// Ownership: counted; scripts may keep it. Threads: the main thread.
class KIV_API ScriptOptions : public Object {
    KIV_OBJECT(ScriptOptions, Object)
public:
    using OnDeclared = std::function<void(const char* name)>;

    // `onDeclared` hears of the options that scripts declare.
    ScriptOptions(OptionsDB* options, OnDeclared onDeclared);
    // Makes it `host.options`, and the application's end `host.end`.
    void bind(kivSq::VM& vm);
    // Nothing is declared any more; reading and setting goes on.
    void forgetOwner() { m_onDeclared = nullptr; }

    // Calls the scripts' functions for an option that has changed.
    void callListeners(const char* name, const char* value);

private:
    static SQInteger declareOption(SQVM* v);
    bool setOption(const String& name, const kivSq::Object& value);
    void addListener(const String& name, const kivSq::Functor& function);

    const SmartPointer<OptionsDB> m_options;
    OnDeclared m_onDeclared;
    Map<String, Vector<kivSq::Functor>> m_listeners;
};

} // namespace kiv::internal
