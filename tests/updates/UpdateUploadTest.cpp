// Hunts: uploads over a real line that leave something behind, and callers that wait for ever.

#include "kiv/platform/Interrupt.h"
#include "kiv/updates/UpdateMechanism.h"
#include "tests/rpc/Line.h"
#include "tests/updates/Packages.h"

#include <gmock/gmock.h>

namespace kiv {
namespace {

class UpdateUploadTest : public testing::Test, public Packages {
protected:
    void SetUp() override {
        std::filesystem::create_directories(folder.path("from"));
        std::filesystem::create_directories(folder.path("updates"));
        std::string large(3 << 20, 'x'); // several pieces
        for (size_t i = 0; i < large.size(); i += 1000) large[i] = static_cast<char>(i / 1000);
        folder.write("from/large", large);
        ASSERT_TRUE(ProductPackage::create(path("package"), path("from"), "Viewer", "2", secret));
        bytes = folder.read("package");
        mechanism->setPackageKey({key.data(), static_cast<unsigned>(key.size())});
        mechanism->registerRpcCalls(line.b.provider.get());
        line.b.channel->addRight("rpc:upload_update_package");
        line.b.channel->setTransferTarget("update_package", path("updates").c_str());
    }

    uint32_t upload() {
        Sha256 hash;
        hash.add(bytes.data(), bytes.size());
        RpcChannel::Call call;
        call.method = "upload_update_package";
        call.arguments = Item("viewer.package");
        call.arguments.add(bytes.size());
        call.arguments.add(Sha256::toText(hash.finish()));
        call.files = {{"viewer.package", String(path("package"))}};
        call.onAnswer = result.taker();
        return line.a.channel->call(std::move(call));
    }
    // What is in the folder of updates when nothing moves any more, and what the caller was told.
    std::string outcome() {
        line.run();
        std::string text = result.text();
        if (text == "good") text += result.answers[0].result.getJSON(false).to_std_string();
        for (const auto& entry : std::filesystem::directory_iterator(folder.path("updates")))
            text += " " + entry.path().filename().string();
        result.answers.clear();
        return text;
    }

    Line line;
    std::string bytes;
    Line::Result result;
    SmartPointer<UpdateMechanism> mechanism = makeObject<UpdateMechanism>();
};

TEST_F(UpdateUploadTest, ABackupTakesARightThoughItsHandlerAsksForNone) {
    LogLines lines;
    int backups = 0;
    mechanism->setBackupOperation([&] { return ++backups, true; });
    EXPECT_EQ(line.call("backup_data"), "there is no right to this method");
    line.b.channel->addRight("rpc:backup_data");
    EXPECT_EQ(line.call("backup_data"), "good");
    EXPECT_EQ(backups, 1);
}

// Whoever has asked for an installation is told of it, though the application winds down.
TEST_F(UpdateUploadTest, AnInstallationIsAnswered) {
    LogLines lines;
    mechanism->setBackupOperation([] { return true; });
    mechanism->setInstallCommand([] { return true; });
    const auto install = [&] {
        line.a.channel->call("install_update_package", Item(), result.taker());
        return outcome();
    };
    EXPECT_EQ(install(), "good[]");
    EXPECT_EQ(lines.takeOne(),
              "[RPC:install_update_package] client tries to use rpc 'install_update_package' without rights");
    EXPECT_FALSE(platform::interruptFlag());
    line.b.channel->addRight("rpc:install_update_package");
    EXPECT_EQ(install(), "goodtrue");
    EXPECT_TRUE(platform::interruptFlag().exchange(false));
}

TEST_F(UpdateUploadTest, WholeOrNothing) {
    LogLines lines;
    upload();
    EXPECT_EQ(outcome(), "goodtrue viewer.package");
    EXPECT_EQ(folder.read("updates/viewer.package"), bytes);
    std::filesystem::remove(folder.path("updates/viewer.package"));

    // More than was announced: refused with the first of many pieces.
    const size_t before = line.a.sent;
    const std::string whole = std::exchange(bytes, bytes.substr(1));
    upload();
    EXPECT_EQ(outcome(), "good[]");
    EXPECT_LE(line.a.sent - before, 6u); // and the window
    bytes = whole;

    size_t pieces = 0;
    uint32_t number = 0;
    line.passes = [&](Packet& packet) {
        if (packet.getID() == RpcProtocol::FilePiece.getID() && ++pieces == 5) line.a.channel->cancel(number);
        return true;
    };
    number = upload();
    EXPECT_EQ(outcome(), "cancelled");
    EXPECT_THAT(lines.take(),
                testing::Contains("[RPC:upload_update_package] the transfer of the update package has failed"));
    upload();
    EXPECT_EQ(outcome(), "goodtrue viewer.package");
}

} // namespace
} // namespace kiv
