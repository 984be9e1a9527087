#pragma once

#include "kiv/data/PacketScheme.h"
#include "kiv/platform/Compiler.h"

// What a parent tells its worker processes (doc/formats/process-protocol.md). The schemes are process-wide objects.

namespace kiv::ProcessProtocol {

// Which plug-ins to boot, and what to run behind them.
class KIV_API PluginsHashesScheme : public PacketScheme {
public:
    PluginsHashesScheme();

    const Field pluginsHashes; // pairs as of Item::kvFromMap(): the name of each plug-in and its digest, an integer
    const Field initScript;    // run at once, behind the autoexec scripts and before the mains
    const Field startupScript; // run as a script thread
    const NumberField<int32_t> index; // of the worker among its kind
};

// Asks the worker to end.
class KIV_API TerminateScheme : public PacketScheme {
public:
    TerminateScheme();
};

KIV_API extern const PluginsHashesScheme PluginsHashes;
KIV_API extern const TerminateScheme Terminate;

} // namespace kiv::ProcessProtocol
