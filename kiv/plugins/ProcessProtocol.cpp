#include "kiv/plugins/ProcessProtocol.h"

namespace kiv::ProcessProtocol {
namespace {

constexpr char module[] = "ProcessProtocol";

} // namespace

// The order of the fields is the wire format.
PluginsHashesScheme::PluginsHashesScheme()
    : PacketScheme(1003, module, nullptr, "PluginsHashes"), pluginsHashes(Item("pluginsHashes", UpTo())),
      initScript(String("initScript", UpTo())), startupScript(String("startupScript", UpTo())),
      index(Number<int32_t>("index")) {}

TerminateScheme::TerminateScheme() : PacketScheme(1, module, nullptr, "Terminate") {}

const PluginsHashesScheme PluginsHashes;
const TerminateScheme Terminate;

} // namespace kiv::ProcessProtocol
