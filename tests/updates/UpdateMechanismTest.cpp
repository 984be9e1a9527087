#include "kiv/updates/UpdateMechanism.h"
#include "kiv/core/Clock.h"
#include "kiv/platform/Interrupt.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/support/Gate.h"
#include "tests/support/LogLines.h"
#include "tests/updates/Packages.h"

#include <gmock/gmock.h>

#include <set>
#include <stdexcept>

namespace kiv {
namespace {

using support::LogLines;
using testing::ElementsAre;
using testing::IsEmpty;

// A call whose file arrives when the test says so.
class FakeContext : public RpcContextInternal {
    KIV_OBJECT(FakeContext, RpcContextInternal)
public:
    FakeContext(const char* method, Item arguments) : RpcContextInternal(method, std::move(arguments)) {}

    void finish() override { ++finished; }
    String getFileTransferTargetPath(const char* kind) override {
        return String(kind) == "update_package" ? target : String();
    }
    void initiateFileTransfer(int direction, const Files& files) override {
        EXPECT_EQ(direction, RpcContext::FetchFromCaller);
        ASSERT_EQ(files.size(), 1u);
        if (files[0].first == "throw") throw std::runtime_error("no line");
        source = files[0].first;
        path = files[0].second;
        isKnown = true;
    }
    bool getFileTransferStatus(int& status, String& text) override {
        status = percent;
        text = percent < 0 ? String("cut") : path;
        return isKnown;
    }
    bool hasRight(const char* right) override { return String(right) == "rpc:" + RpcContext(this).getMethodName(); }
    Object* getCaller() override { return nullptr; }

    void progress(int status) {
        percent = status;
        callEventHandlers();
    }

    String target, source, path;
    int finished = 0;
    int percent = 0;
    bool isKnown = false;
};

class UpdateMechanismTest : public testing::Test, public Packages {
protected:
    void SetUp() override {
        writeSmall();
        std::filesystem::create_directories(folder.path("updates"));
        small = folder.read("small");
        mechanism->setPackageKey({key.data(), static_cast<unsigned>(key.size())});
        mechanism->registerRpcCalls(provider.get());
        platform::interruptFlag() = false;
    }
    void TearDown() override { platform::interruptFlag() = false; }

    SmartPointer<FakeContext> call(const char* method, Item arguments = {}) {
        auto context = makeObject<FakeContext>(method, std::move(arguments));
        context->target = path("updates");
        EXPECT_TRUE(provider->call(RpcContext(context.get())));
        return context;
    }
    // The answer of a call that has ended, as JSON; else how often it has.
    static std::string answerOf(const SmartPointer<FakeContext>& context) {
        if (context->finished != 1) return "finished " + std::to_string(context->finished) + " times";
        return RpcContext(context.get()).result().getJSON(false).to_std_string();
    }
    std::string answer(const char* method, Item arguments = {}) { return answerOf(call(method, std::move(arguments))); }

    Item upload(const char* name = "dir/viewer.package") const {
        Sha256 hash;
        hash.add(small.data(), small.size());
        return arguments(name, static_cast<long long>(small.size()), Sha256::toText(hash.finish()));
    }
    static Item arguments(const char* name, long long size, const String& digest) {
        Item item(name);
        item.add(size);
        item.add(digest);
        return item;
    }
    std::set<std::string> uploaded() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path("updates")))
            names.insert(entry.path().filename().string());
        return names;
    }
    static std::string line(const char* method, const char* text) {
        return "[RPC:" + std::string(method) + "] " + text;
    }

    LogLines lines;
    std::string small;
    SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
    SmartPointer<UpdateMechanism> mechanism = makeObject<UpdateMechanism>();
};

const char *const installCall = "install_update_package", *const uploadCall = "upload_update_package",
                  *const backupCall = "backup_data";
const std::string none = "[]"; // an empty result as JSON

struct NoRights : FakeContext {
    using FakeContext::FakeContext;
    bool hasRight(const char*) override { return false; }
};

TEST_F(UpdateMechanismTest, WithoutRightsNothingElseIsLookedAt) {
    mechanism->setBackupOperation([] { return ADD_FAILURE(), true; });
    for (const char* method : {installCall, uploadCall}) {
        const auto context = makeObject<NoRights>(method, Item());
        EXPECT_TRUE(provider->call(RpcContext(context.get())));
        EXPECT_EQ(answerOf(context), none);
        const std::string text = "client tries to use rpc '" + std::string(method) + "' without rights";
        EXPECT_EQ(lines.takeOne(), line(method, text.c_str()));
    }
}

TEST_F(UpdateMechanismTest, InstallsBehindOneBackup) {
    EXPECT_EQ(answer(installCall), none);
    EXPECT_EQ(lines.takeOne(), line(installCall, "failed to backup data before running update"));
    EXPECT_FALSE(mechanism->installUpdatePackage());
    EXPECT_EQ(lines.takeOne(), line(installCall, "failed to backup data before running install command"));

    std::string order;
    mechanism->setBackupOperation([&order] { return order += 'b', true; });
    EXPECT_EQ(answer(installCall), none);
    EXPECT_THAT(lines.take(), ElementsAre(line(installCall, "failed to run install command"),
                                          line(installCall, "failed to install update package")));
    mechanism->setInstallCommand([&order]() -> bool { throw std::runtime_error("no installer" + order); });
    EXPECT_FALSE(mechanism->installUpdatePackage());
    EXPECT_THAT(lines.take(),
                ElementsAre(line(installCall, "no installerbb"), line(installCall, "failed to run install command")));
    EXPECT_FALSE(platform::interruptFlag());

    order.clear();
    mechanism->setInstallCommand([&order] { return order += 'i', true; });
    EXPECT_EQ(answer(installCall), "true");
    EXPECT_TRUE(platform::interruptFlag().exchange(false));
    EXPECT_TRUE(mechanism->installUpdatePackage());
    EXPECT_TRUE(platform::interruptFlag());
    EXPECT_EQ(order, "bibi");
    EXPECT_THAT(lines.take(), IsEmpty());
}

TEST_F(UpdateMechanismTest, BacksUpOneAtATimeAndNotForEver) {
    ManualClock clock;
    EXPECT_EQ(answer(backupCall), none);
    EXPECT_EQ(lines.takeOne(), line(backupCall, "backup_data_failed"));

    int backups = 0;
    mechanism->setBackupOperation([&] {
        if (++backups == 1) {
            EXPECT_EQ(answer(backupCall), none);
            EXPECT_FALSE(mechanism->installUpdatePackage());
        }
        return true;
    });
    clock.advance(60000);
    EXPECT_EQ(answer(backupCall), none);
    EXPECT_THAT(lines.take(), ElementsAre(line(backupCall, "backup_data_failed"),
                                          line(installCall, "failed to backup data before running install command")));
    for (int i = 0; i < 20; ++i) answer(backupCall);
    EXPECT_EQ(backups, 7); // and the one that was refused
    EXPECT_EQ(lines.take().size(), 14u);
    clock.advance(60000);
    answer(backupCall);
    EXPECT_EQ(backups, 8);
    EXPECT_THAT(lines.take(), IsEmpty());
}

TEST_F(UpdateMechanismTest, RefusesUploads) {
    const auto refused = [&](Item arguments, const char* text) {
        EXPECT_EQ(answer(uploadCall, std::move(arguments)), none) << text;
        EXPECT_EQ(lines.takeOne(), line(uploadCall, text));
        EXPECT_THAT(uploaded(), IsEmpty());
    };
    const char* const empty = "one ore more arguments are empty and thus not valid";
    const String digest(std::string(64, 'a'));
    Item twoOnly("a");
    twoOnly.add(1);
    Item noText(Item::NILType{});
    noText.add(1);
    noText.add(digest);
    for (const Item& item :
         {Item(), twoOnly, noText, arguments("", 1, digest), arguments("a", 0, digest), arguments("a", 1, "")})
        refused(item, empty);
    for (const char* name : {"..", "dir/", "a/..", "nul", "C:", "a\\..", "a\n", "update_package.UPLOAD.new", "\xC3"})
        refused(arguments(name, 1, digest), "the name of the update package is not valid");
    mechanism->setMaximumPackageSize(1000);
    for (const long long size : {-1ll, 1001ll})
        refused(arguments("a", size, digest), "the size of the update package is not valid");
    for (const char* text : {"a", "../a"})
        refused(arguments("a", 1000, text), "the checksum of the update package is not valid");

    mechanism->setPackageKey({key.data(), 31});
    EXPECT_EQ(lines.takeOne(), "[PACKAGE] a key of 31 bytes is none");
    refused(upload(), "no key is set for update packages");
    const auto homeless = makeObject<FakeContext>(uploadCall, upload());
    EXPECT_TRUE(provider->call(RpcContext(homeless.get())));
    EXPECT_EQ(answerOf(homeless), none);
    EXPECT_EQ(lines.takeOne(), line(uploadCall, "no path registered for update package"));
    mechanism.reset();
    refused(upload(), "the update mechanism is gone");
}

TEST_F(UpdateMechanismTest, UploadsAndReplaces) {
    folder.write("updates/viewer.package", "old");
    folder.write("updates/update_package.upload", "left by a program that was stopped");
    const auto context = call(uploadCall, upload());
    EXPECT_EQ(context->source, "dir/viewer.package");
    EXPECT_EQ(context->path, path("updates/update_package.upload"));
    context->progress(40);
    EXPECT_EQ(answer(uploadCall, upload("other")), none);
    EXPECT_EQ(lines.takeOne(), line(uploadCall, "another update package is being uploaded"));
    folder.write("updates/update_package.upload", small);
    EXPECT_EQ(folder.read("updates/viewer.package"), "old");
    context->progress(100);
    EXPECT_EQ(answerOf(context), "true");
    EXPECT_EQ(folder.read("updates/viewer.package"), small);
    EXPECT_THAT(uploaded(), ElementsAre("viewer.package"));
    context->progress(-1);
    EXPECT_EQ(context->finished, 1);
    EXPECT_THAT(lines.take(), IsEmpty());
}

// What has come is not what was announced, or does not come at all; the next upload is none the worse.
TEST_F(UpdateMechanismTest, FailedUploadsLeaveNothing) {
    const auto fails = [&](const Item& arguments, const std::string& bytes, int percent, const char* text) {
        const auto context = call(uploadCall, arguments);
        folder.write("updates/update_package.upload", bytes);
        context->progress(percent);
        EXPECT_EQ(answerOf(context), none) << text;
        EXPECT_EQ(lines.take().back(), line(uploadCall, text));
        EXPECT_THAT(uploaded(), IsEmpty());
    };
    std::string flipped = small;
    flipped.back() ^= 1;
    fails(upload(), small.substr(1), 100, "the update package has another size than was announced");
    fails(upload(), flipped, 100, "the update package has another checksum than was announced");
    EXPECT_EQ(answer(uploadCall, upload("throw")), none);
    EXPECT_EQ(lines.takeOne(), line(uploadCall, "the transfer of the update package has failed"));
    fails(upload(), small.substr(0, 50), -1, "the transfer of the update package has failed");
    const Signature::PublicKey other = Signature::getPublicKey(Signature::createSecretKey());
    mechanism->setPackageKey({other.data(), static_cast<unsigned>(other.size())});
    fails(upload(), small, 100, "the update package is not valid");
    mechanism->setPackageKey({key.data(), static_cast<unsigned>(key.size())});
    mechanism->setPackageFilter([](const ProductPackage::Manifest& manifest) { return manifest.version != "1.2"; });
    fails(upload(), small, 100, "the update package is not wanted");
    mechanism->setPackageFilter([](const ProductPackage::Manifest& manifest) { return manifest.product == "Viewer"; });
    std::filesystem::create_directories(folder.path("updates/viewer.package"));
    const auto blocked = call(uploadCall, upload());
    folder.write("updates/update_package.upload", small);
    blocked->progress(100);
    EXPECT_EQ(answerOf(blocked), none);
    EXPECT_EQ(lines.takeOne(), line(uploadCall, "the update package can't be put into its place"));
    EXPECT_THAT(uploaded(), ElementsAre("viewer.package"));

    const auto abandoned = call(uploadCall, upload());
    folder.write("updates/update_package.upload", small);
    mechanism.reset();
    EXPECT_EQ(answerOf(abandoned), none);
    EXPECT_EQ(lines.takeOne(), line(uploadCall, "the update mechanism is gone"));
    EXPECT_THAT(uploaded(), ElementsAre("viewer.package"));
    abandoned->progress(100);
    EXPECT_EQ(abandoned->finished, 1);
}

// The check is not done by the main thread, and whatever happens before its end is told to it.
TEST_F(UpdateMechanismTest, ChecksOnThePool) {
    const auto threads = makeObject<ThreadPool>();
    const auto main = makeObject<MainPool>();
    const auto pumpUntilFinished = [&main](const SmartPointer<FakeContext>& context) {
        support::waitUntil([&] { return main->processEvents(), context->finished != 0; }, "the end of a check");
    };
    for (const bool isCut : {false, true}) {
        const auto context = call(uploadCall, upload());
        folder.write("updates/update_package.upload", small);
        context->progress(100);
        EXPECT_EQ(context->finished, 0);
        if (isCut) context->progress(-1);
        pumpUntilFinished(context);
        EXPECT_EQ(answerOf(context), isCut ? none : "true");
        EXPECT_THAT(uploaded(), ElementsAre("viewer.package"));
    }
    EXPECT_EQ(lines.take().back(), line(uploadCall, "the transfer of the update package has failed"));
    const auto abandoned = call(uploadCall, upload());
    folder.write("updates/update_package.upload", small);
    abandoned->progress(100);
    mechanism.reset();
    EXPECT_EQ(answerOf(abandoned), none);
    main->processEvents();
    EXPECT_EQ(abandoned->finished, 1);
    EXPECT_THAT(uploaded(), ElementsAre("viewer.package"));
}

} // namespace
} // namespace kiv
