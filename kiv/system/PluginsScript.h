#pragma once

namespace kivSq {
class VM;
}

namespace kiv::internal {

// The module "kiv.Plugins", and with "kiv.System" the function by which scripts get at the System's plug-ins.
void addPluginsImports(kivSq::VM& vm);

} // namespace kiv::internal
