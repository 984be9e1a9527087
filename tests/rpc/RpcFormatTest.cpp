// Hunts: packets that are not what their page says.

#include "kiv/files/File.h"
#include "tests/rpc/Line.h"

#include <filesystem>

namespace kiv {
namespace {

TEST(RpcFormatTest, TheExampleOfThePageIsWhatIsSent) {
    String page;
    ASSERT_TRUE(page.loadFromFile(KIV_TEST_RPC_PAGE));
    std::vector<std::string> expected;
    for (const String& row : page.split('\n')) {
        const String text = row.trim_spaces_newlines();
        if (text.begins_with("PKTB16[")) expected.push_back(text);
    }
    const TemporaryFolder folder;
    folder.write("mine", "hi\n");
    Line line;
    std::vector<std::string> sent;
    line.passes = [&](Packet& packet) {
        packet.setReplyPort(-1); // which this line does not carry
        return sent.push_back(packet.convertToBase16String()), true;
    };
    line.b.provider->addRPC(
        "read",
        [&](const RpcContext& context) {
            context.addEventHandler([](const RpcContext& self) {
                int percent = 0;
                String text;
                self.getFileTransferStatus(percent, text);
                if (percent < 100) return true;
                self.result().addBool(true);
                self.finish();
                return false;
            });
            context.initiateFileTransfer(RpcContext::FetchFromCaller, {{"note.txt", folder.utf8("theirs").c_str()}});
        },
        "", "");
    RpcChannel::Call call;
    call.method = "read";
    call.arguments.addString("note.txt");
    call.files = {{"note.txt", folder.utf8("mine").c_str()}};
    line.a.channel->call(std::move(call));
    line.run();
    EXPECT_EQ(sent, expected);
}

} // namespace
} // namespace kiv
