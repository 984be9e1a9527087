#include "kiv/system/PluginsScript.h"

#include "kiv/plugins/Plugins.h"
#include "kiv/script/Class.h"
#include "kiv/script/VM.h"
#include "kiv/script/classes/Bindings.h"
#include "kiv/system/System.h"

namespace kiv::internal {
namespace {

struct Services {};

// What the library's module of this name brings in, and what scripts reach in a process with a System only.
void importSystem(kivSq::VM* vm, const char* name) {
    const kivSq::Object table = vm->getNamespace(name);
    kivSq::internal::bindSystem(table);
    kivSq::Object own = table;
    Plugins::bindSqVM(&own);
    kivSq::Class<Services>(table.get("System")).staticMethod("getPlugins", &System::getPlugins);
}

void importPlugins(kivSq::VM* vm, const char* name) {
    kivSq::Object table = vm->getNamespace(name);
    Plugins::bindSqVM(&table);
}

} // namespace

void addPluginsImports(kivSq::VM& vm) {
    vm.setImportCallback("kiv.System", &importSystem, "kiv");
    vm.setImportCallback("kiv.Plugins", &importPlugins, "kiv");
}

} // namespace kiv::internal
