// Hunts: what a peer might do with packets of its own making: none may change anything but what it is entitled to.

#include "kiv/core/Sha256.h"
#include "tests/rpc/Line.h"

#include <algorithm>
#include <filesystem>

namespace kiv {
namespace {

using namespace RpcProtocol;
using Values = std::vector<std::pair<const char*, int64_t>>;
using Texts = std::vector<std::pair<const char*, std::string>>;

// What a hostile peer sends: fields by name.
SmartPointer<Packet> forged(const PacketScheme& scheme, const Values& values, const Texts& texts = {}) {
    Packet packet(&scheme, 0);
    for (const auto& [name, value] : values) packet.setInteger(name, value);
    for (const auto& [name, text] : texts) {
        if (scheme.findElement(name)->kind == PacketElementKind::Text)
            packet.setString(name, text);
        else
            packet.setBuffer(name, reinterpret_cast<const uint8_t*>(text.data()), static_cast<unsigned>(text.size()));
    }
    return received(packet);
}

SmartPointer<Packet> raw(const PacketScheme& scheme, const std::string& bytes, short flags) {
    auto packet = makeObject<Packet>(static_cast<unsigned>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), packet->getPayloadPointer());
    packet->setID(scheme.getID());
    packet->setFlags(flags);
    return packet;
}

template <class... Scheme>
std::vector<const PacketScheme*> schemesOf(const Scheme&... schemes) {
    return {&schemes...};
}

// An end that has everything open that can be: a call of ours (1) for which file 1 is being fetched here and file 2 is
// being sent, a call of the peer (50) for which file 1 is on its way here.
class RpcHostileTest : public testing::Test {
protected:
    RpcHostileTest() {
        folder.write("offered", std::string(3 * size_t{largestPiece}, 'o'));
        addKeeper(*provider, "keep", kept);
        channel = makeObject<RpcChannel>([this](Packet* packet) { return sent.push_back(received(*packet)), true; },
                                         provider.get());
        for (const bool isFetched : {true, false}) {
            RpcChannel::Call call;
            call.method = "theirs";
            call.files = {{"offered", folder.utf8("offered").c_str()}};
            call.receivingDirectory = folder.utf8("").c_str();
            call.onAnswer = answers.taker();
            channel->call(std::move(call));
            const auto direction = static_cast<int>(isFetched ? Direction::ToCaller : Direction::FromCaller);
            const int64_t number = isFetched ? 1 : 2;
            give(forged(FileOpen, {{"call", number}, {"transfer", number}, {"direction", direction}},
                        {{"name", isFetched ? "new-file" : "offered"}}));
        }
        give(forged(Request, {{"call", 50}}, {{"method", "keep"}}));
        kept.at(0).initiateFileTransfer(RpcContext::FetchFromCaller, {{"x", folder.utf8("fetched").c_str()}});
        // Their two requests and first pulls, and the last one's.
        EXPECT_EQ(sent.size(), 5u);
        sent.clear();
    }

    bool give(const SmartPointer<Packet>& packet) { return channel->onPacket(packet.get()); }
    // One line, no packet, and nothing has ended. The line.
    std::string ignored(const SmartPointer<Packet>& packet) {
        clock.advance(1000); // so that lines are not too many
        log.take();
        EXPECT_TRUE(give(packet));
        std::vector<std::string> lines = log.take();
        EXPECT_EQ(sent.size(), 0u);
        EXPECT_EQ(kept.size(), 1u);
        EXPECT_EQ(channel->getOpenCalls() + answers.answers.size(), 2u);
        sent.clear();
        if (lines.size() != 1) return std::to_string(lines.size()) + " lines";
        const std::string begin = "[RPC] a packet is refused: ";
        return lines[0].substr(lines[0].starts_with(begin) ? begin.size() : 0);
    }

    ManualClock clock{5000};
    LogLines log;
    TemporaryFolder folder;
    std::vector<RpcContext> kept;
    Line::Result answers;
    std::vector<SmartPointer<Packet>> sent;
    SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
    SmartPointer<RpcChannel> channel;
};

TEST_F(RpcHostileTest, WhatIsNotTheNextPacketChangesNothing) {
    const std::string used = "with a number that was used", late = "[VERBOSE] [RPC] a packet is refused: ";
    EXPECT_EQ(ignored(forged(Request, {{"call", 50}}, {{"method", "keep"}})), "a request " + used);
    EXPECT_EQ(ignored(forged(Request, {{"call", 49}}, {{"method", "keep"}})), "a request " + used);
    EXPECT_EQ(ignored(forged(Answer, {{"call", 9}})), "an answer to no open call");
    EXPECT_EQ(ignored(forged(Answer, {{"call", -1}})), late + "an answer to no open call");
    EXPECT_EQ(ignored(forged(Cancel, {{"call", 51}})), "the end of a call that was not made");
    EXPECT_EQ(ignored(forged(FileOpen, {{"call", 9}, {"transfer", 7}})), "a file for no open call");
    EXPECT_EQ(ignored(forged(FileOpen, {{"call", 1}, {"transfer", 2}})), "a file " + used);

    const std::string none = "part of a file that is not on its way",
                      piece = "a piece of a file that is not the next one";
    for (const PacketScheme* scheme : schemesOf(FilePull, FilePiece, FileEnd)) {
        EXPECT_EQ(ignored(forged(*scheme, {{"transfer", 3}})), none);
        EXPECT_EQ(ignored(forged(*scheme, {{"transfer", 2}, {"isFromCaller", 1}})), none); // of the other's numbers
    }
    // Files 1, and 1 of the peer's call, come here; file 2 goes.
    EXPECT_EQ(ignored(forged(FilePull, {{"transfer", 1}, {"size", 1}})), "a file is asked for at the wrong end");
    EXPECT_EQ(ignored(forged(FilePiece, {{"transfer", 2}})), "a piece of a file comes from the wrong end");
    EXPECT_EQ(ignored(forged(FileEnd, {{"transfer", 2}})), "the end of a file that has not been sent");
    for (const int64_t offset : {int64_t{-1}, int64_t{1}, int64_t{1} << 62, INT64_MIN})
        EXPECT_EQ(ignored(forged(FilePull, {{"transfer", 2}, {"offset", offset}, {"size", largestPiece}})),
                  piece + " is asked for");
    for (const int64_t size : {int64_t{0}, int64_t{1}, int64_t{largestPiece} + 1, int64_t{-1}})
        EXPECT_EQ(ignored(forged(FilePull, {{"transfer", 2}, {"size", size}})), piece + " is asked for");
    const auto pieceOf = [&](int64_t offset, int64_t total, size_t size, int isFromCaller = 0) {
        return ignored(forged(FilePiece,
                              {{"transfer", 1}, {"isFromCaller", isFromCaller}, {"offset", offset}, {"total", total}},
                              {{"bytes", std::string(size, 'p')}}));
    };
    for (const int side : {0, 1}) {
        EXPECT_EQ(pieceOf(1, 11, 10, side), piece);
        EXPECT_EQ(pieceOf(-1, 11, 10, side), piece);
        EXPECT_EQ(pieceOf(0, 9, 10, side), piece);
        EXPECT_EQ(pieceOf(0, 11, 10, side), piece);
        EXPECT_EQ(pieceOf(0, -1, 10, side), piece);
        EXPECT_EQ(pieceOf(0, 0, 1, side), piece);
    }
    EXPECT_EQ(folder.names(), (std::set<std::string>{"offered", "new-file.new", "fetched.new"}));

    // All of it is as it was: the files arrive, and the calls end.
    const Sha256::Digest digest = [] {
        Sha256 hash;
        hash.add("p", 1);
        return hash.finish();
    }();
    for (const int side : {0, 1}) {
        EXPECT_TRUE(give(forged(FilePiece, {{"transfer", 1}, {"isFromCaller", side}, {"total", 1}}, {{"bytes", "p"}})));
        EXPECT_TRUE(give(forged(FileEnd, {{"transfer", 1}, {"isFromCaller", side}, {"size", 1}},
                                {{"digest", std::string(digest.begin(), digest.end())}})));
    }
    EXPECT_EQ(folder.read("new-file") + folder.read("fetched"), "pp");
    EXPECT_TRUE(give(forged(Answer, {{"call", 1}})) && give(forged(Answer, {{"call", 2}, {"status", 77}})));
    ASSERT_EQ(answers.answers.size(), 2u);
    EXPECT_TRUE(answers.answers[0].isGood && answers.answers[0].files.size() == 1);
    EXPECT_EQ(answers.answers[1].error, "failed");
    sent.clear();
    EXPECT_EQ(ignored(forged(Answer, {{"call", 1}})), late + "an answer to no open call");
    kept[0].finish();
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(RpcHostileTest, WhatIsNoPacketChangesNothing) {
    const std::string begin = "invalid packet received (";
    const auto refused = [&](const PacketScheme& scheme, const std::string& bytes,
                             short flags = Packet::VersionedFlag) {
        EXPECT_EQ(ignored(raw(scheme, bytes, flags)).substr(0, begin.size()), begin);
    };
    const std::string suffix("\x0C\0\0\0", 4), huge = std::string("\x0C\0\0\0\xFF\xFF\xFF\x7F\0\0\0\0", 12) + suffix;
    for (const PacketScheme* scheme : schemesOf(Request, Answer, FileOpen, FilePiece)) {
        refused(*scheme, "");
        refused(*scheme, "abc", 0);
        refused(*scheme, huge);
        refused(*scheme, std::string("\xFF\xFF\xFF\xFF", 4));
    }
    // A method of 10 MB.
    const std::string header("\x3C\0\0\0\0\0\xA0\0\0\0\0\0", 12);
    refused(Request, header + std::string(10 << 20, 'm') + suffix);
    EXPECT_FALSE(channel->onPacket(nullptr));
    EXPECT_FALSE(give(makeObject<Packet>(4u))); // somebody else's
}

TEST_F(RpcHostileTest, RefusalsAreToldToThePeerAndNothingOfItsTextsIsLogged) {
    const std::string evil = "evil\nmethod", begin = "[RPC] a packet is refused: ";
    const auto answered = [&](const SmartPointer<Packet>& packet) {
        log.take();
        EXPECT_TRUE(give(packet));
        const std::string line = log.takeOne();
        EXPECT_TRUE(line.starts_with(begin) && line.find("evil") == line.npos) << line;
        if (sent.size() != 1) return std::to_string(sent.size()) + " answers";
        const auto answer = std::exchange(sent, {}).front();
        const bool isAnswer = answer->getID() == Answer.getID();
        const PacketScheme& scheme = isAnswer ? static_cast<const PacketScheme&>(Answer) : FileEnd;
        EXPECT_TRUE(answer->fit(&scheme) && answer->getInteger("status") == 1);
        return std::to_string(answer->getInteger(isAnswer ? "call" : "transfer")) + " " + answer->getString("error");
    };
    EXPECT_EQ(answered(forged(Request, {{"call", 51}}, {{"method", evil}})), "51 there is no such method");
    EXPECT_EQ(answered(forged(Request, {{"call", 52}}, {{"method", ""}})), "52 there is no such method");
    // While one file is being fetched for a call, no other one.
    EXPECT_EQ(answered(forged(FileOpen, {{"call", 1}, {"transfer", 9}}, {{"name", evil}})),
              "9 another one is on its way");
    give(forged(FileEnd, {{"transfer", 1}, {"status", 1}}));
    EXPECT_EQ(answered(forged(FileOpen, {{"call", 1}, {"transfer", 10}}, {{"name", evil}})),
              "10 there is no such file");
    EXPECT_EQ(answered(forged(FileOpen, {{"call", 1}, {"transfer", 11}, {"direction", 9}}, {{"name", "x"}})),
              "11 there is no such direction");
    EXPECT_EQ(answered(forged(FileOpen, {{"call", 1}, {"transfer", 12}, {"direction", 1}}, {{"name", "../evil"}})),
              "12 this is no name of a file");
    // The reasons of a peer come as they may be logged.
    give(forged(Answer, {{"call", 1}, {"status", 1}}, {{"error", "[SUPPORT] " + evil}}));
    EXPECT_EQ(answers.text(), "(SUPPORT) evil\\nmethod");
    EXPECT_EQ(folder.names(), (std::set<std::string>{"offered", "fetched.new"}));
}

TEST_F(RpcHostileTest, AFloodIsAFewLinesASecond) {
    clock.advance(1000);
    for (int i = 0; i < 1000; ++i) give(forged(Answer, {{"call", 99}}));
    std::vector<std::string> lines = log.take();
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines.back(),
              "[RPC] a packet is refused: an answer to no open call; more of this second are not told of");
    for (int i = 0; i < 1000; ++i) give(raw(Answer, "", 0));
    EXPECT_EQ(log.take().size(), 10u);
    clock.advance(1000);
    give(forged(Answer, {{"call", 1}}));
    EXPECT_EQ(answers.text(), "good");
    // As much as is asked for is not sent at once, either.
    for (int i = 0; i < 3; ++i)
        give(forged(FilePull, {{"transfer", 2}, {"offset", i * int64_t{largestPiece}}, {"size", largestPiece}}));
    EXPECT_EQ(sent.size(), 4u); // and the end
}

} // namespace
} // namespace kiv
