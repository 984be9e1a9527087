#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/rpc/RpcContext.h"

#include <functional>

namespace kiv {

class RpcProvider;

// Lets remote callers bring in and install software updates: "upload_update_package", "install_update_package",
// "backup_data". What backing up and installing mean is the application's; without its operations they fail.
// Ownership: counted; the provider's handlers do not keep it, and fail once it is gone. Threads: that of the provider;
// packages are checked on the thread pool. Failures are logged.
class KIV_API UpdateMechanism : public Object {
    KIV_OBJECT(UpdateMechanism, Object)
public:
    using Operation = std::function<bool()>;

    UpdateMechanism();
    UpdateMechanism(const UpdateMechanism&) = delete;
    UpdateMechanism& operator=(const UpdateMechanism&) = delete;
    ~UpdateMechanism() override;

    void setBackupOperation(Operation operation);
    void setInstallCommand(Operation operation);
    // Packages must be signed with the secret half of this key; without one no upload is accepted.
    void setPackageKey(const ConstByteSpan& publicKey);

    void registerRpcCalls(RpcProvider* provider);
    // Backs up, installs, and has the application wind down as after an interrupt.
    bool installUpdatePackage();
};

} // namespace kiv
