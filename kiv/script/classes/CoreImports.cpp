#include "kiv/script/VM.h"
#include "kiv/script/classes/Bindings.h"

#include <string>

namespace kivSq::internal {
namespace {

// `extra` is the namespace.
template <void (*bind)(const Object&)>
void bindInto(VM* vm, const char* extra) {
    bind(vm->getNamespace(extra));
}

} // namespace
} // namespace kivSq::internal

namespace kiv {

void CoreImports(kivSq::VM* vm) {
    using namespace kivSq::internal;
    vm->setImportCallback(
        "kiv.System", [](kivSq::VM* importer, const char*) { bindSystem(importer->getNamespace("kiv")); }, "");
    struct Module {
        const char* className;
        kivSq::VM::ImportCallback callback;
    };
    static constexpr Module modules[] = {
        {"IVec2", &bindInto<&bindIVec2>},
        {"IVec3", &bindInto<&bindIVec3>},
        {"Rect", &bindInto<&bindRect>},
        {"GUID", &bindInto<&bindGUID>},
        {"GregorianDate", &bindInto<&bindGregorianDate>},
        {"Directory", &bindInto<&bindDirectory>},
        {"File", &bindInto<&bindFile>},
        {"Item", &bindInto<&bindItem>},
        {"Store", &bindInto<&bindStore>},
        {"MemoryStore", &bindInto<&bindMemoryStore>},
        {"Packet", &bindInto<&bindPacket>},
    };
    const std::string prefix = "kiv.";
    for (const Module& module : modules)
        vm->setImportCallback((prefix + module.className).c_str(), module.callback, "kiv");
}

} // namespace kiv
