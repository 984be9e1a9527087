// Hunts: files that are cut, mixed up or put elsewhere, transfers that nobody hears the end of, and lines that are
// flooded.

#include "kiv/files/Directory.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/rpc/Line.h"
#include "tests/support/Gate.h"

#include <algorithm>
#include <filesystem>

namespace kiv {
namespace {

using Names = std::set<std::string>;
constexpr unsigned piece = RpcProtocol::largestPiece;

// A caller (a) and an answerer (b) with a folder each, and a handler that moves what the call's arguments say: the
// direction, the name, and the path at the answerer.
class RpcTransferTest : public testing::Test {
protected:
    struct Outcome {
        std::string answer = "none"; // the caller's
        std::string status;          // the handler's last, "50 path"
        std::vector<int> percents;
        RpcContextInternal::Files files;

        std::string both() const { return answer + "|" + status; }
    };

    RpcTransferTest() {
        line.b.provider->addRPC(
            "move", [this](const RpcContext& context) { move(context); }, "", "");
    }

    void move(const RpcContext& context) {
        int direction = 0;
        RpcContextInternal::Files files(1);
        Item::Iterator& args = context.args();
        for (args.asInteger(direction); args.asString(files.back().first); files.emplace_back())
            args.asString(files.back().second);
        files.pop_back();
        // The handler keeps nothing: the files keep the call.
        context.addEventHandler([this](const RpcContext& self) {
            int percent = -2;
            String text;
            EXPECT_TRUE(self.getFileTransferStatus(percent, text));
            outcome.status = std::to_string(percent) + " " + text.to_std_string();
            outcome.percents.push_back(percent);
            if (percent != 100 && percent != -1) return true;
            if (finishes) self.finish();
            return false;
        });
        context.initiateFileTransfer(direction, files);
    }

    // Moves `name` of one folder to the other; the rest of the call may be changed.
    uint32_t begin(int direction, const std::string& name, std::function<void(RpcChannel::Call&)> change = nullptr) {
        outcome = Outcome();
        RpcChannel::Call call;
        call.method = "move";
        call.arguments.addInteger(direction);
        call.arguments.addString(name);
        call.arguments.addString(there.utf8("b-" + name));
        call.files = {{name.c_str(), here.utf8(name).c_str()}};
        call.receivingDirectory = here.utf8("");
        call.onAnswer = [this](const RpcChannel::Answer& answer) {
            outcome.answer = answer.isGood ? "good" : answer.error.to_std_string();
            outcome.files = answer.files;
        };
        if (change) change(call);
        return line.a.channel->call(std::move(call));
    }
    std::string run(int direction, const std::string& name, std::function<void(RpcChannel::Call&)> change = nullptr) {
        begin(direction, name, std::move(change));
        line.run();
        line.pass(31000); // so long that nothing is left, if it was
        return outcome.both();
    }
    // Runs until so many pieces have passed; then `then`.
    void after(int pieces, std::function<void()> then) {
        line.passes = [=, count = 0](Packet& packet) mutable {
            if (packet.getID() == RpcProtocol::FilePiece.getID() && ++count == pieces) then();
            return true;
        };
    }

    const int fetch = RpcContext::FetchFromCaller, give = RpcContext::SendToCaller;
    TemporaryFolder here, there;
    Outcome outcome;
    bool finishes = true;
    Line line; // tells of what is open when it goes
};

std::string contents(size_t size) {
    std::string bytes(size, 0);
    uint32_t state = 12345;
    for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

TEST_F(RpcTransferTest, FilesArriveWholeAndTheLineIsNeverFull) {
    LogLines log;
    for (const size_t size : {size_t{0}, size_t{1}, size_t{piece}, size_t{piece} + 1, size_t{9} * piece + 77}) {
        SCOPED_TRACE(size);
        const std::string bytes = contents(size);
        here.write("up", bytes);
        EXPECT_EQ(run(fetch, "up"), "good|100 " + there.utf8("b-up"));
        EXPECT_EQ(there.read("b-up"), bytes);
        there.write("b-down", bytes);
        EXPECT_EQ(run(give, "down"), "good|100 " + there.utf8("b-down"));
        EXPECT_EQ(here.read("down"), bytes);
        ASSERT_EQ(outcome.files.size(), 1u);
        EXPECT_EQ(outcome.files[0].first + " " + outcome.files[0].second,
                  "down " + Directory::join(here.utf8(""), "down"));
        EXPECT_TRUE(std::is_sorted(outcome.percents.begin(), outcome.percents.end()));
        if (size > 9 * piece) {
            EXPECT_GE(outcome.percents.size(), 3u);
        }
    }
    EXPECT_EQ(here.names(), (Names{"up", "down"}));
    EXPECT_EQ(there.names(), (Names{"b-up", "b-down"}));
    EXPECT_LE(std::max(line.a.mostWaiting, line.b.mostWaiting), 8u);
    EXPECT_EQ(log.takeOne(), "");
}

// The disk is waited for on the pool; what ends meanwhile is not put into place behind everybody's back.
TEST_F(RpcTransferTest, LargeFilesAreFlushedOnThePool) {
    const auto threads = makeObject<ThreadPool>();
    const std::string bytes = contents(9 * piece);
    here.write("file", bytes);
    begin(fetch, "file");
    support::waitUntil([&] { return line.run(), outcome.answer != "none"; }, "a large file");
    EXPECT_EQ(outcome.both(), "good|100 " + there.utf8("b-file"));
    EXPECT_TRUE(there.read("b-file") == bytes);

    there.write("b-file", "old");
    uint32_t number = 0;
    line.passes = [&](Packet& packet) {
        const bool isEnd = packet.getID() == RpcProtocol::FileEnd.getID();
        if (!isEnd && packet.getID() != RpcProtocol::Cancel.getID()) return true;
        for (auto& inbox = line.b.inbox; !inbox.empty(); inbox.pop_front())
            line.b.channel->onPacket(inbox.front().get());
        line.b.channel->onPacket(&packet);
        if (isEnd) line.a.channel->cancel(number);
        return false;
    };
    number = begin(fetch, "file");
    support::waitUntil([&] { return line.run(), outcome.answer != "none" && there.names() == Names{"b-file"}; },
                       "the end of a cancelled file");
    EXPECT_EQ(outcome.both(), "cancelled|-1 cancelled");
    EXPECT_EQ(there.read("b-file"), "old");
}

TEST_F(RpcTransferTest, SeveralFilesOfSeveralCallsGoSideBySide) {
    for (const std::string name : {"x", "y", "z"}) here.write(name, contents(3 * piece) + name);
    const auto others = [&](RpcChannel::Call& call) {
        call.arguments.addString("z");
        call.arguments.addString(there.utf8("b-z"));
        call.files.emplace_back("z", here.utf8("z"));
    };
    begin(fetch, "x", others);
    EXPECT_EQ(run(fetch, "y"), "good|100 " + there.utf8("b-x")); // which has two files, and so ends last
    EXPECT_TRUE(std::count(outcome.percents.begin(), outcome.percents.end(), 50) > 0);
    for (const std::string name : {"x", "y", "z"}) EXPECT_EQ(there.read("b-" + name), contents(3 * piece) + name);
}

TEST_F(RpcTransferTest, WhatMustNotOrCanNotBeMovedIsRefused) {
    LogLines ignored;
    here.write("file", contents(100));
    there.write("b-file", contents(100));
    std::filesystem::create_directory(here.path("folder"));
    const auto offer = [&](const char* name, const std::string& path) {
        return [name, path](RpcChannel::Call& call) { call.files = {{name, path.c_str()}}; };
    };
    const auto sendAs = [&](const char* name) {
        return [this, name](RpcChannel::Call& call) {
            call.arguments = Item(give);
            call.arguments.addString(name);
            call.arguments.addString(there.utf8("b-file"));
        };
    };
    const std::string missing = "|-1 there is no such file", name = "good|-1 this is no name of a file";
    EXPECT_EQ(run(fetch, "other", offer("file", here.utf8("file"))), "good" + missing);
    EXPECT_EQ(run(fetch, "", offer("file", here.utf8("file"))), "good" + missing);
    EXPECT_EQ(run(fetch, "file", offer("file", here.utf8("gone"))), "good|-1 the file can't be opened");
    EXPECT_EQ(run(fetch, "file", offer("file", here.utf8("folder"))), "good|-1 the file can't be opened");
    EXPECT_EQ(run(give, "none"), "good|-1 the file can't be opened");
    EXPECT_EQ(run(give, std::string(300, 'n')), "good|-1 the name is too long");
    EXPECT_EQ(run(give, "file", [](RpcChannel::Call& call) { call.receivingDirectory = ""; }),
              "good|-1 no files are wanted");
    for (const char* bad : {"", ".", "..", "../file", "/file", "\\file", "c:file", "a/b", "con", "NUL.txt", "line\n",
                            "dot.", "x.new", "x.NEW1", "\xff", "what?"})
        EXPECT_EQ(run(give, "file", sendAs(bad)), name) << bad;
    std::error_code error;
    std::filesystem::create_symlink(there.path("b-file"), here.path("link"), error);
    if (!error) {
        EXPECT_EQ(run(give, "file", sendAs("link")), name);
    }
    EXPECT_EQ(run(give, "file", sendAs("folder")).substr(0, 16), "good|-1 the file");
    here.write("up", contents(100));
    EXPECT_EQ(run(7, "up"), "the call was not answered|");
    line.b.channel->setMaximumFileSize(99);
    EXPECT_EQ(run(fetch, "up"), "good|-1 the file is too large");
    line.b.channel->setMaximumFileSize(100);
    EXPECT_EQ(run(fetch, "up"), "good|100 " + there.utf8("b-up"));
    // The files of a call count together, at both ends.
    const auto another = [&](const char* path) {
        return [&, path](RpcChannel::Call& call) {
            call.arguments.addString("up");
            call.arguments.addString(there.utf8(path));
        };
    };
    line.b.channel->setMaximumFileSize(199);
    EXPECT_EQ(run(fetch, "up", another("b-up2")), "good|-1 the file is too large");
    line.a.channel->setMaximumFileSize(199);
    there.write("b-up", contents(99));
    EXPECT_EQ(run(give, "up", another("b-file")), "good|100 " + there.utf8("b-up"));
    there.write("b-up", contents(100));
    EXPECT_EQ(run(give, "up", another("b-file")), "good|-1 the file is too large");
    const auto nowhere = [&](RpcChannel::Call& call) {
        call.arguments = Item(fetch);
        call.arguments.addString("up");
        call.arguments.addString(there.utf8("gone/up"));
    };
    EXPECT_EQ(run(fetch, "up", nowhere).substr(0, 33), "good|-1 the file can't be created");
    EXPECT_EQ(there.names(), (Names{"b-file", "b-up"}));
    EXPECT_EQ(here.names(), error ? Names({"file", "folder", "up"}) : Names({"file", "folder", "link", "up"}));
}

// Both directions, and every way in which it can end too early: everybody hears of it, and no piece is left behind.
TEST_F(RpcTransferTest, WhatIsCutInTheMiddleLeavesNothing) {
    LogLines ignored;
    const auto outcomeOf = [&](int direction, const std::function<void(uint32_t)>& cut) {
        here.write("file", contents(9 * piece));
        there.write("b-file", contents(9 * piece));
        const std::string name = direction == fetch ? "file" : "other";
        uint32_t number = 0;
        bool isReached = false;
        after(3, [&] { isReached = true; });
        line.passes = [&, inner = line.passes](Packet& packet) {
            inner(packet);
            if (std::exchange(isReached, false)) cut(number);
            return true;
        };
        number = begin(direction, name, [&](RpcChannel::Call& call) {
            call.arguments = Item(direction);
            call.arguments.addString(name);
            call.arguments.addString(there.utf8(direction == fetch ? "b-other" : "b-file"));
        });
        line.run();
        line.isCut = false;
        line.passes = nullptr;
        line.pass(30000);
        EXPECT_EQ(here.names(), Names{"file"});
        EXPECT_EQ(there.names(), Names{"b-file"});
        for (Line::End* end : {&line.a, &line.b}) end->channel->open();
        line.run();
        return outcome.both();
    };
    for (const int direction : {fetch, give}) {
        SCOPED_TRACE(direction);
        EXPECT_EQ(outcomeOf(direction, [&](uint32_t) { line.isCut = true; }), "timeout|-1 timeout");
        EXPECT_EQ(outcomeOf(direction, [&](uint32_t) { line.a.channel->close(nullptr); }),
                  "the peer is gone|-1 timeout");
        EXPECT_EQ(outcomeOf(direction, [&](uint32_t) { line.b.channel->close("gone"); }), "timeout|-1 gone");
        EXPECT_EQ(outcomeOf(direction, [&](uint32_t n) { line.a.channel->cancel(n); }), "cancelled|-1 cancelled");
    }
}

// A piece that is changed, lost or doubled on its way.
TEST_F(RpcTransferTest, FilesThatAreNotWhatWasSentAreNotKept) {
    LogLines ignored;
    here.write("file", contents(3 * piece));
    const auto outcomeOf = [&](std::function<bool(Packet&)> bend, const Names& left = {}) {
        line.passes = [&, count = 0](Packet& packet) mutable {
            return packet.getID() != RpcProtocol::FilePiece.getID() || ++count != 2 || bend(packet);
        };
        const std::string text = run(fetch, "file");
        EXPECT_EQ(there.names(), left);
        return text;
    };
    EXPECT_EQ(outcomeOf([](Packet& packet) { return packet.getPayloadPointer()[1000] ^= 1, true; }),
              "good|-1 the file is not what was sent");
    EXPECT_EQ(outcomeOf([](Packet&) { return false; }), "good|-1 the file is not what was sent");
    EXPECT_EQ(outcomeOf([&](Packet&) { return std::filesystem::resize_file(here.path("file"), piece), true; }),
              "good|-1 the file can't be read");
    here.write("file", contents(3 * piece));
    // Once more does no harm.
    const auto twice = [&](Packet& packet) { return line.b.inbox.push_back(received(packet)), true; };
    EXPECT_EQ(outcomeOf(twice, {"b-file"}), "good|100 " + there.utf8("b-file"));
    EXPECT_EQ(there.read("b-file"), contents(3 * piece));
}

TEST_F(RpcTransferTest, CallsThatEndBeforeTheirFilesDropThem) {
    LogLines log;
    here.write("file", contents(9 * piece));
    finishes = false;
    EXPECT_EQ(run(fetch, "file"), "the call was not answered|100 " + there.utf8("b-file"));
    std::filesystem::remove(there.path("b-file"));
    std::vector<RpcContext> kept;
    addKeeper(*line.b.provider, "move", kept);
    log.take();
    begin(fetch, "file");
    line.run();
    kept.at(0).initiateFileTransfer(fetch, {{"file", there.utf8("b-file").c_str()}});
    kept.at(0).initiateFileTransfer(fetch, {{"file", there.utf8("b-file").c_str()}});
    EXPECT_EQ(log.takeOne(), "[RPC:move] no files are moved: others are on their way");
    kept.at(0).finish();
    line.run();
    EXPECT_EQ(outcome.answer, "good");
    EXPECT_EQ(log.take().front(), "[RPC:move] the call ends before its files have arrived");
    EXPECT_EQ(there.names(), Names());
    // Nothing to move is moved at once, and told later.
    begin(fetch, "file");
    line.run();
    int percent = 0, heard = 0;
    String text = "x";
    EXPECT_FALSE(kept.at(1).getFileTransferStatus(percent, text));
    kept.at(1).initiateFileTransfer(fetch, {});
    kept.at(1).addEventHandler([&](const RpcContext&) { return ++heard, true; });
    EXPECT_TRUE(kept.at(1).getFileTransferStatus(percent, text));
    EXPECT_EQ(std::to_string(percent) + text.to_std_string(), "100");
    line.run();
    EXPECT_EQ(heard, 1);
}

} // namespace
} // namespace kiv
