#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/Object.h"
#include "kiv/platform/Compiler.h"
#include "kiv/updates/ProductPackage.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kiv {

class RpcProvider;

// Lets remote callers bring in and install software updates: "upload_update_package", "install_update_package",
// "backup_data". What backing up and installing mean is the application's; without its operations they fail.
// An uploaded file is a ProductPackage. It is called by its name in the place "update_package" of the transport once it
// is whole and verified; until then it is in a temporary file there. One upload is in progress at a time.
// Ownership: counted; the provider's handlers do not keep it, and fail once it is gone. Threads: that of the provider;
// packages are checked on the thread pool when that is the main thread. Failures are logged.
class KIV_API UpdateMechanism : public Object {
    KIV_OBJECT(UpdateMechanism, Object)
public:
    using Operation = std::function<bool()>;
    using PackageFilter = std::function<bool(const ProductPackage::Manifest&)>;

    UpdateMechanism();
    UpdateMechanism(const UpdateMechanism&) = delete;
    UpdateMechanism& operator=(const UpdateMechanism&) = delete;
    // An upload in progress fails.
    ~UpdateMechanism() override;

    // Both run on the provider's thread, which is usually the main thread, and nothing else does meanwhile: an install
    // command had better only start the installer. A backup is refused while one is in progress, and remote callers get
    // eight a minute. One that throws has failed.
    void setBackupOperation(Operation operation);
    void setInstallCommand(Operation operation);
    // Packages must be signed with the secret half of this key (see Signature); without one no upload is accepted.
    void setPackageKey(const ConstByteSpan& publicKey);
    // Asked about every upload that is signed and whole, as whether it is this product and not an older version.
    // Without one all are taken: also what was withdrawn, as whoever may upload can bring it in again.
    void setPackageFilter(PackageFilter filter);
    // Bytes of an upload; 4 GiB at first.
    void setMaximumPackageSize(uint64_t size);

    void registerRpcCalls(RpcProvider* provider);
    // Backs up, installs, and has the application wind down as after an interrupt.
    bool installUpdatePackage();

private:
    class Service;

    const std::shared_ptr<Service> m_service;
};

} // namespace kiv
