#include "kiv/updates/UpdateMechanism.h"

#include "kiv/core/Clock.h"
#include "kiv/files/Directory.h"
#include "kiv/files/File.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/Interrupt.h"
#include "kiv/process/Process.h"
#include "kiv/rpc/RpcAnswer.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/TaskQueue.h"
#include "kiv/tasks/ThreadPool.h"
#include "kiv/updates/UploadCheck.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace kiv {

using internal::RpcAnswer;
using internal::UploadCheck;

namespace {

// Log lines name calls by these texts and never by what a caller has sent.
constexpr const char *installCall = "install_update_package", *uploadCall = "upload_update_package",
                     *backupCall = "backup_data";
constexpr const char* uploadPlace = "update_package";
constexpr const char* temporaryName = "update_package.upload"; // and with more behind it, until it is whole
constexpr const char* installerProgram = "OrvexServerInstaller.exe";

constexpr const char* transferFailed = "the transfer of the update package has failed";
constexpr size_t longestName = 240;
constexpr uint32_t backupPeriod = 60000;
constexpr unsigned backupsInPeriod = 8;

bool report(const char* call, const char* message) {
    logging::MessageStream(3, 2) << "[RPC:" << call << "] " << message;
    return false;
}

bool succeeds(const UpdateMechanism::Operation& operation, const char* call) {
    try {
        // A copy, for it may set another one.
        const UpdateMechanism::Operation copy = operation;
        return copy && copy();
    } catch (const std::exception& failure) {
        return report(call, failure.what());
    } catch (...) {
        return report(call, "unknown exception");
    }
}

// As the caller has sent it.
struct UploadArguments {
    String source;
    int64_t size = 0;
    String digest;

    // False when one is missing or empty.
    bool read(const RpcContext& context) {
        Item::Iterator it = context.getArguments().getIterator();
        bool hasSize = false;
        if (!it.asString(source)) return false;
        size = it.convertAsInteger(hasSize);
        return hasSize && size != 0 && it.asString(digest) && !source.empty() && !digest.empty();
    }
    // Without the folders that the caller may have it in; empty when that is no name to use here.
    String getName() const {
        const size_t slash = source.find_last_of("/\\");
        String name = slash == String::npos ? source : source.substr(slash + 1);
        const bool isGood = ResourceLocator::isResourceName(name) && name.size() <= longestName && name.validate() &&
                            !name.utf8_lowercase().view().starts_with(temporaryName);
        return isGood ? name : String();
    }
};

struct Upload {
    RpcContext context;
    std::string target;
    std::shared_ptr<UploadCheck> check;
    bool isTransferred = false;
};

} // namespace

// What the handlers work with. They find it as long as the mechanism lives, and keep it for the time of a call.
class UpdateMechanism::Service : public std::enable_shared_from_this<Service> {
public:
    Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service();

    void addCall(RpcProvider& provider, const char* call, void (Service::*handler)(const RpcContext&),
                 const char* description, const char* parameters);
    void onInstall(const RpcContext& context);
    void onUpload(const RpcContext& context);
    void onBackup(const RpcContext& context);
    bool install(bool isBackedUp);

    Operation backupOperation;
    Operation installCommand;
    PackageFilter packageFilter;
    std::optional<Signature::PublicKey> key;
    uint64_t maximumSize = uint64_t{4} << 30;

private:
    bool backUp();
    bool isBackupDue();
    const char* prepare(const UploadArguments& arguments, const String& directory, Upload& out) const;
    void begin(const std::shared_ptr<Upload>& upload, const String& source);
    bool follow(const std::shared_ptr<Upload>& upload);
    void startCheck(const std::shared_ptr<UploadCheck>& check);
    void endCheck(const UploadCheck* check, const char* failure);
    bool isWanted(const ProductPackage::Manifest& manifest) const;
    // Null: the package is good.
    void end(const char* failure);

    std::shared_ptr<Upload> m_upload; // in progress
    bool m_isBackingUp = false;
    unsigned m_backups = 0; // that callers have asked for in this period
    uint32_t m_periodStart = 0;
    // Both are made with the first check. Checks report to the main queue.
    SmartPointer<TaskQueue> m_mainQueue;
    SmartPointer<TaskQueue> m_checkQueue;
};

UpdateMechanism::Service::~Service() {
    if (m_upload) m_upload->check->stop();
    if (m_checkQueue) m_checkQueue->abort();
    if (m_upload) end("the update mechanism is gone");
}

void UpdateMechanism::Service::addCall(RpcProvider& provider, const char* call,
                                       void (Service::*handler)(const RpcContext&), const char* description,
                                       const char* parameters) {
    const auto handle = [weak = weak_from_this(), handler, call](const RpcContext& context) {
        if (const std::shared_ptr<Service> self = weak.lock()) return ((*self).*handler)(context);
        RpcAnswer(context, call).refuse("the update mechanism is gone");
    };
    provider.addRPC(call, handle, description, parameters);
}

bool UpdateMechanism::Service::backUp() {
    if (std::exchange(m_isBackingUp, true)) return false;
    const bool isDone = succeeds(backupOperation, backupCall);
    m_isBackingUp = false;
    return isDone;
}

bool UpdateMechanism::Service::isBackupDue() {
    const uint32_t now = Clock::current().getTime();
    if (m_backups == 0 || Clock::timeDifference(now, m_periodStart) >= static_cast<int>(backupPeriod)) {
        m_periodStart = now;
        m_backups = 0;
    }
    if (m_backups == backupsInPeriod) return false;
    ++m_backups;
    return true;
}

bool UpdateMechanism::Service::install(bool isBackedUp) {
    if (Process::processExists(installerProgram)) return report(installCall, "an installer is already installing");
    if (!isBackedUp && !backUp()) return report(installCall, "failed to backup data before running install command");
    if (!succeeds(installCommand, installCall)) return report(installCall, "failed to run install command");
    platform::interruptFlag() = true;
    return true;
}

void UpdateMechanism::Service::onInstall(const RpcContext& context) {
    RpcAnswer answer(context, installCall);
    if (!context.hasRight("rpc:install_update_package"))
        return answer.refuse("client tries to use rpc 'install_update_package' without rights");
    if (!backUp()) return answer.refuse("failed to backup data before running update");
    if (!install(true)) return answer.refuse("failed to install update package");
    answer.accept(Item(true));
}

// Anybody may ask for a backup whom the transport lets call at all.
void UpdateMechanism::Service::onBackup(const RpcContext& context) {
    RpcAnswer answer(context, backupCall);
    if (!isBackupDue() || !backUp()) answer.refuse("backup_data_failed");
}

void UpdateMechanism::Service::onUpload(const RpcContext& context) {
    RpcAnswer answer(context, uploadCall);
    if (!context.hasRight("rpc:upload_update_package"))
        return answer.refuse("client tries to use rpc 'upload_update_package' without rights");
    UploadArguments arguments;
    if (!arguments.read(context)) return answer.refuse("one ore more arguments are empty and thus not valid");
    const String directory = context.getFileTransferTargetPath(uploadPlace);
    if (directory.empty()) return answer.refuse("no path registered for update package");
    auto upload = std::make_shared<Upload>();
    upload->context = context;
    if (const char* const refusal = prepare(arguments, directory, *upload)) return answer.refuse(refusal);
    answer.postpone();
    begin(upload, arguments.source);
}

// Why not; null when `out` is ready.
const char* UpdateMechanism::Service::prepare(const UploadArguments& arguments, const String& directory,
                                              Upload& out) const {
    if (!key) return "no key is set for update packages";
    if (m_upload) return "another update package is being uploaded";
    const String name = arguments.getName();
    if (name.empty()) return "the name of the update package is not valid";
    if (arguments.size < 0 || static_cast<uint64_t>(arguments.size) > maximumSize)
        return "the size of the update package is not valid";
    Sha256::Digest digest;
    if (!Sha256::fromText(arguments.digest, digest)) return "the checksum of the update package is not valid";
    out.target = Directory::join(directory, name).to_std_string();
    out.check = std::make_shared<UploadCheck>(Directory::join(directory, temporaryName).to_std_string(),
                                              static_cast<uint64_t>(arguments.size), digest, *key);
    return nullptr;
}

// The mechanism keeps the call, and the call's handler only looks for both.
void UpdateMechanism::Service::begin(const std::shared_ptr<Upload>& upload, const String& source) {
    const auto onEvent = [weak = weak_from_this(), weakUpload = std::weak_ptr(upload)](const RpcContext&) {
        const std::shared_ptr<Service> self = weak.lock();
        const std::shared_ptr<Upload> transferred = weakUpload.lock();
        return self && transferred && self->follow(transferred);
    };
    m_upload = upload;
    try {
        upload->context.addEventHandler(RpcContextInternal::EventHandler(onEvent));
        upload->context.setTransferLimit(upload->check->getSize());
        upload->context.initiateFileTransfer(RpcContext::FetchFromCaller, {{source, String(upload->check->getPath())}});
        follow(upload);
    } catch (...) { // of the transport
        if (m_upload == upload) end(transferFailed);
    }
}

// Whether there is more to come.
bool UpdateMechanism::Service::follow(const std::shared_ptr<Upload>& upload) {
    if (m_upload != upload) return false;
    int percent = -1;
    String text;
    if (!upload->context.getFileTransferStatus(percent, text) || percent < 0) {
        // While the check has the file, its end is the upload's.
        if (upload->isTransferred)
            upload->check->stop();
        else
            end(transferFailed);
        return false;
    }
    if (percent < 100 || upload->isTransferred) return true;
    upload->isTransferred = true;
    startCheck(upload->check);
    return m_upload == upload;
}

void UpdateMechanism::Service::startCheck(const std::shared_ptr<UploadCheck>& check) {
    const MainPool* const mainPool = MainPool::current();
    if (!ThreadPool::current() || !mainPool || !mainPool->isMainThread()) return endCheck(check.get(), check->run());
    if (!m_checkQueue) {
        m_mainQueue = makeObject<TaskQueue>(TaskQueue::Main);
        m_checkQueue = makeObject<TaskQueue>(TaskQueue::Serial | TaskQueue::IO);
    }
    // Aborted before the main queue goes.
    m_checkQueue->pushTask(makeTask([check, weak = weak_from_this(), mainQueue = m_mainQueue.get()] {
        const char* const failure = check->run();
        mainQueue->pushTask(makeTask([check, weak, failure] {
            if (const std::shared_ptr<Service> self = weak.lock()) self->endCheck(check.get(), failure);
        }));
    }));
}

void UpdateMechanism::Service::endCheck(const UploadCheck* check, const char* failure) {
    const auto isCurrent = [&] { return m_upload && m_upload->check.get() == check; };
    if (!isCurrent()) return;
    if (!failure && !check->isStopped() && !isWanted(check->getManifest()))
        failure = "the update package is not wanted";
    if (isCurrent()) end(check->isStopped() ? transferFailed : failure);
}

bool UpdateMechanism::Service::isWanted(const ProductPackage::Manifest& manifest) const {
    // A copy, for it may set another one.
    const auto ask = [filter = packageFilter, &manifest] { return !filter || filter(manifest); };
    return succeeds(ask, uploadCall);
}

void UpdateMechanism::Service::end(const char* failure) {
    const std::shared_ptr<Upload> upload = std::exchange(m_upload, nullptr);
    const std::string& temporary = upload->check->getPath();
    if (!failure && !File::rename(temporary, upload->target))
        failure = "the update package can't be put into its place";
    {
        RpcAnswer answer(upload->context, uploadCall);
        if (failure)
            answer.refuse(failure);
        else
            answer.accept(Item(true));
    }
    // Now the transport has let go of it.
    if (failure) File::remove(temporary);
}

UpdateMechanism::UpdateMechanism() : m_service(std::make_shared<Service>()) {}

UpdateMechanism::~UpdateMechanism() = default;

void UpdateMechanism::setBackupOperation(Operation operation) {
    m_service->backupOperation = std::move(operation);
}

void UpdateMechanism::setInstallCommand(Operation operation) {
    m_service->installCommand = std::move(operation);
}

void UpdateMechanism::setPackageKey(const ConstByteSpan& publicKey) {
    Signature::PublicKey key;
    m_service->key.reset();
    if (publicKey.getSize() != key.size()) {
        logging::MessageStream(3, 2) << "[PACKAGE] a key of " << publicKey.getSize() << " bytes is none";
        return;
    }
    std::copy(publicKey.begin(), publicKey.end(), key.begin());
    m_service->key = key;
}

void UpdateMechanism::setPackageFilter(PackageFilter filter) {
    m_service->packageFilter = std::move(filter);
}

void UpdateMechanism::setMaximumPackageSize(uint64_t size) {
    m_service->maximumSize = size;
}

void UpdateMechanism::registerRpcCalls(RpcProvider* provider) {
    if (!provider) return;
    provider->setCategory("Updates");
    m_service->addCall(*provider, uploadCall, &Service::onUpload, "Brings in an update package",
                       "file name, size, SHA-256 as hexadecimal text");
    m_service->addCall(*provider, installCall, &Service::onInstall, "Backs up data and installs the update", nullptr);
    m_service->addCall(*provider, backupCall, &Service::onBackup, "Backs up data", nullptr);
}

bool UpdateMechanism::installUpdatePackage() {
    // Kept for the time of the operations, which may end this object.
    const std::shared_ptr<Service> service = m_service;
    return service->install(false);
}

} // namespace kiv
