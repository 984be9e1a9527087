// Hunts: values and defaults mixed up, log lines that differ by a letter or tell a secret, support lines that do not
// get there, listeners that break the change that calls them, look-ups that walk, and remote calls that never end.
#include "kiv/store/OptionsDB.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/logging/BackendScope.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kiv {

struct OptionsDBPeek {
    static Item& meta(OptionsDB& options) { return options.m_meta; }
};

namespace {

using support::list;

class Options : public testing::Test {
protected:
    Options() {
        add("a:number", "7", 0);
        add("client_options:look", "dark", 64);
        add("a:secret", "", OptionsDB::SupportFlag | OptionsDB::ConfidentialFlag);
        log.take();
    }
    bool add(const char* name, const char* value, int flags) {
        return options->addOption(name, value, "mapped", (std::string("the ") + (name ? name : "")).c_str(), "text",
                                  flags);
    }
    bool set(const char* name, const char* value) { return options->setValue(name, value); }

    support::LogLines log;
    const SmartPointer<MemoryStore> store{new MemoryStore(true)};
    const Item root = [this] {
        Item item(store.get());
        item.addString("options");
        return item;
    }();
    const SmartPointer<OptionsDB> options{new OptionsDB(root)};
};

TEST_F(Options, AreReadFromTheStoreOrElseFromTheirDeclaration) {
    EXPECT_EQ(options->getValue("a:number"), "7");
    EXPECT_EQ(options->getValueDirect("a:number"), "");
    EXPECT_TRUE(set("a:number", "8"));
    EXPECT_EQ(*store->get(list("options", "a:number")), Item("8"));
    EXPECT_TRUE(options->getValue("a:number") == "8" && options->getValueDirect("a:number") == "8");
    EXPECT_TRUE(set("a:number", nullptr)); // as ""
    EXPECT_TRUE(options->getValue("a:number") == "7" && options->getValueDirect("a:number") == "");
    EXPECT_TRUE(options->getTitle("a:number") == "the a:number" && options->getFlags("client_options:look") == 64);
    EXPECT_EQ(log.takeOne(), "");

    const auto missing = [this](auto&& read) {
        read();
        EXPECT_EQ(log.takeOne(), "option x:y not found");
    };
    missing([&] { EXPECT_EQ(options->getValue("x:y"), ""); });
    missing([&] { EXPECT_EQ(options->getDefaultValue("x:y"), ""); });
    missing([&] { EXPECT_EQ(options->getTitle("x:y"), ""); });
    missing([&] { EXPECT_EQ(options->getFlags("x:y"), 0); });
    EXPECT_FALSE(set("x:y", "1"));
    EXPECT_EQ(log.takeOne(), "option not set, reason: option 'x:y' does not exist");
    EXPECT_FALSE(options->hasOption("x:y") || options->hasOption(nullptr) || store->get(list("options", "x:y")));
    EXPECT_EQ(options->getValueDirect("x:y"), "");
    store->set(list("options", "x:y"), "stored");
    EXPECT_EQ(options->getValue("x:y"), "stored");
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(Options, AreNumbersWhenTheWholeTextIsOne) {
    const auto row = [this](const char* text, int number) {
        set("a:number", text);
        EXPECT_EQ(options->getValueAsInt("a:number"), number) << text;
    };
    row("", 7), row("-12", -12), row(" \t+5\n", 5), row("0010", 10), row("2147483647", 2147483647);
    row("99999999999999999999", 2147483647), row("-2147483649", -2147483647 - 1);
    for (const char* none : {" ", "-", "+", "+-5", "--5", "1 2", "5x", "0x10", "1.5", "99999999999x"}) row(none, 0);
}

TEST_F(Options, AreDeclaredOnceAndForgottenButNotTheirValues) {
    EXPECT_FALSE(add("plain", "", 0) || add(nullptr, "", 0) || add("b:c", nullptr, 0));
    EXPECT_FALSE(options->addOption("b:c", "", nullptr, "", "", 0) ||
                 options->addOption("b:c", "", "", nullptr, "", 0));
    EXPECT_EQ(options->getOptionCount(), 3u);
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_TRUE(add("a:number", "9", OptionsDB::SecretFlag));
    EXPECT_EQ(log.takeOne(), "[OPTIONS] option 'a:number' is declared again, the first declaration holds");
    EXPECT_TRUE(options->getValue("a:number") == "7" && options->getOptionCount() == 4u);
    EXPECT_EQ(options->getMeta(3), list("a:number", "the a:number", "text", "9", 4));
    set("a:number", "1");
    options->clear();
    EXPECT_TRUE(options->getOptionCount() == 0u && !options->hasOption("a:number") && options->getMeta(0).empty());
    EXPECT_TRUE(options->getClientOptionsMeta().empty() && options->getOptionsData().empty());
    add("b:first", "", 0), add("a:number", "3", 0);
    EXPECT_TRUE(options->getValue("a:number") == "1" && options->getDefaultValue("a:number") == "3");
}

TEST_F(Options, ChangesAreLoggedAsTheirFlagsSay) {
    const logging::BackendScope backend{false};
    std::string supported;
    const Connection connection =
        logging::LogBackend::getSignalNewSupportMessage().connect([&](const char* lines) { supported += lines; });
    const auto row = [&](int flags, const std::string& line) {
        options->clear();
        add("a:b", "", flags);
        EXPECT_TRUE(set("a:b", "v"));
        EXPECT_EQ(log.takeOne(), line) << flags;
    };
    const std::string start = "[SUPPORT] option 'a:b' has been changed";
    row(0, ""), row(6, ""), row(64, ""), row(128, start + ", value='v'"), row(129, start + ", value='v'");
    row(130, start), row(132, start), row(134, start);
    EXPECT_FALSE(set("a:b\n[ERROR]", "") || set("a:\x1B", ""));
    EXPECT_EQ(log.takeOne(),
              "option not set, reason: option 'a:b\\n[ERROR]' does not exist AND option not set, reason: "
              "option 'a:\\x1B' does not exist");
    options->clear();
    add("a:b", "", 128);
    set("a:b", "C:\\x [VERBOSE]"), set("a:b", "1\n2");
    EXPECT_EQ(log.takeOne(), start + ", value='C:\\x (VERBOSE)' AND " + start + ", value='1\\n2'");
    logging::MessageStream(1, logging::SupportFlag) << std::string(262145, '.'); // it is large enough to be told
    logging::LogBackend::processSupportMessages();
    size_t lines = 0;
    for (size_t at = 0; (at = supported.find(start, at)) != supported.npos; ++at) ++lines;
    EXPECT_EQ(lines, 7u);
}

TEST_F(Options, ListenersMayDoWhatTheyLike) {
    std::string heard;
    options->setChangeListener([&](const char* name, const char* value) {
        heard += std::string(name) + "=" + value + ";";
        if (std::string(name) == "a:number") set("client_options:look", "light");
        options->setChangeListener([&](const char*, const char*) { throw std::runtime_error("no"); });
    });
    EXPECT_FALSE(set("x:y", "1"));
    log.take();
    EXPECT_TRUE(set("a:number", "5"));
    EXPECT_EQ(heard, "a:number=5;client_options:look=light;");
    EXPECT_EQ(options->getValue("client_options:look"), "light");
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_TRUE(set("a:number", "6"));
    EXPECT_EQ(log.takeOne(), "[OPTIONS] the change listener has failed: no");
    options->setChangeListener(nullptr);
    // It may change the text that it is told.
    std::string text = "long enough to be outside of the object";
    options->setChangeListener([&](const char*, const char* value) { text = "", heard = value; });
    EXPECT_TRUE(set("a:number", text.c_str()));
    EXPECT_EQ(heard, "long enough to be outside of the object");

    const SmartPointer<OptionsDB> unbound(new OptionsDB(Item("root")));
    unbound->addOption("a:b", "default", "", "", "", OptionsDB::SupportFlag);
    log.take();
    unbound->setChangeListener([](const char*, const char*) { FAIL() << "nothing was changed"; });
    EXPECT_FALSE(unbound->setValue("a:b", "1"));
    EXPECT_EQ(log.takeOne(), "option not set, reason: the options have no store");
    EXPECT_EQ(unbound->getValue("a:b"), "default");
}

TEST_F(Options, AreToldToClientsWithoutSecrets) {
    set("client_options:look", "light"), set("a:secret", "hidden"), set("a:number", "8");
    add("a:secret", "", 0);
    const Item secret = list("a:secret", "the a:secret", "text", "", 130, "");
    EXPECT_EQ(options->getOptionsData(),
              list(list("a:number", "the a:number", "text", "7", 0, "8"),
                   list("client_options:look", "the client_options:look", "text", "dark", 64, "light"), secret,
                   list("a:secret", "the a:secret", "text", "", 0, "")));
    EXPECT_EQ(options->getData(0), Item("8"));
    EXPECT_EQ(options->getMeta(1), list("client_options:look", "the client_options:look", "text", "dark", 64));
    for (const int outside : {-1, 4, 1 << 30})
        EXPECT_TRUE(options->getMeta(outside).empty() && options->getData(outside).empty());
    const auto client = options->getClientOptionsMeta();
    ASSERT_EQ(client.size(), 1u);
    EXPECT_TRUE(client[0].name == "client_options:look" && client[0].defaultValue == "dark" && client[0].flags == 64);
}

TEST_F(Options, CorruptMetadataEndsTheWalkAndIsNoDanger) {
    Item& meta = OptionsDBPeek::meta(*options);
    const Item good = meta;
    log.take();
    const auto corrupt = [&](const Item& with, size_t clients, unsigned known) {
        meta = with;
        EXPECT_EQ(options->getClientOptionsMeta().size(), clients);
        EXPECT_EQ(log.takeOne(), "META CORRUPT");
        unsigned data = 0;
        const Item told = options->getOptionsData();
        for (auto it = told.getIterator(); it.skip();) ++data;
        EXPECT_EQ(data, known);
        for (int i = 0; i < 3; ++i) options->getMeta(i), options->getData(i);
        options->getTitle("a:number"), options->getFlags("a:secret"), options->getValue("client_options:look");
        log.take();
    };
    corrupt(support::joined(good, list("no declaration")), 1, 3);
    corrupt(support::joined(good, list(list("b:c", "", "", 1, 0))), 1, 3);
    corrupt(list(list("b:c", "title")), 0, 0);
    Item cut = good;
    cut.resizePlain(cut.getPlainSize() - 1);
    corrupt(cut, 1, 2);
    corrupt(support::plain(std::string(300, '\xFF')), 0, 0);
    options->clear();
    EXPECT_TRUE(add("a:b", "back", 0) && options->getValue("a:b") == "back");
}

TEST_F(Options, AreFoundWithoutAWalkHoweverManyThereAre) {
    options->clear();
    constexpr int count = 10000;
    for (int i = 0; i < count; ++i)
        options->addOption(("many:" + std::to_string(i)).c_str(), std::to_string(i).c_str(), "", "", "", 0);
    Item& meta = OptionsDBPeek::meta(*options);
    std::string bytes(reinterpret_cast<const char*>(meta.getPlainBytePointer()), meta.getPlainSize());
    bytes[0] = '\xFF'; // no walk comes past the first
    meta = support::plain(bytes);
    for (int i = 1; i < count; ++i) ASSERT_EQ(options->getValueAsInt(("many:" + std::to_string(i)).c_str()), i);
}

// What a transport gives a handler, with the rights that a test gives it.
class Context : public RpcContextInternal {
public:
    explicit Context(const char* right) : RpcContextInternal("advanced_option_get", Item()), m_right(right) {}

    void finish() override { ++finished; }
    String getFileTransferTargetPath(const char*) override { return ""; }
    void initiateFileTransfer(int, const Files&) override {}
    bool getFileTransferStatus(int&, String&) override { return false; }
    bool hasRight(const char* right) override { return m_right == right; }
    Object* getCaller() override { return nullptr; }

    int finished = 0;

private:
    const std::string m_right;
};

TEST_F(Options, AreReadByRemoteCallersWithTheRight) {
    const SmartPointer<RpcProvider> provider(new RpcProvider);
    SmartPointer<OptionsDB> other(new OptionsDB(root));
    other->addOption("a:number", "7", "", "", "", 0);
    other->registerRpcCalls(nullptr);
    other->registerRpcCalls(provider.get());
    const Item data = other->getOptionsData();
    const auto call = [&](const char* right) {
        const SmartPointer<Context> context(new Context(right));
        EXPECT_TRUE(provider->call(RpcContext(context.get())));
        EXPECT_EQ(context->finished, 1);
        return Item(RpcContext(context.get()).result());
    };
    EXPECT_EQ(call("rpc:advanced_option_get"), data);
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_TRUE(call("rpc:other").empty());
    EXPECT_EQ(log.takeOne(), "[RPC:advanced_option_get] client tries to use rpc 'advanced_option_get' without rights");
    other = nullptr;
    EXPECT_TRUE(call("rpc:advanced_option_get").empty());
    EXPECT_EQ(log.takeOne(), "[RPC:advanced_option_get] the options are gone");
    const auto calls = provider->getCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls[0].name == "advanced_option_get" && calls[0].category == "Advanced options");
}

} // namespace
} // namespace kiv
