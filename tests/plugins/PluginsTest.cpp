// Hunts: names and links that lead out of the directory, what everybody may write to, boots out of order or stopped by
// one bad plug-in, scripts other than those that were verified, listeners lost, doubled or called when their VM is
// gone.
#include "kiv/plugins/Plugins.h"

#include "kiv/core/Clock.h"
#include "kiv/data/PacketSchemeRegistry.h"
#include "kiv/files/Directory.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/script/Access.h"
#include "kiv/script/VM.h"
#include "tests/support/LogLines.h"
#include "tests/support/ProgramState.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <random>

namespace kiv {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Lines = std::vector<std::string>;

// A plug-ins directory "p", and a VM in which scripts tell their steps.
struct PluginsTest : testing::Test {
    PluginsTest() {
        std::filesystem::create_directories(folder.path("p"));
        plugins.setPath(folder.utf8("p").c_str());
        startVM();
    }

    void startVM() {
        vm.emplace();
        vm->executeString("steps <- []; function step(x) { steps.append(x) }", "test");
        log.take();
    }
    void add(const std::string& name, const char* file = nullptr, const std::string& text = "") const {
        std::filesystem::create_directories(folder.path("p/" + name));
        if (file) folder.write("p/" + name + "/" + file, text);
    }
    Lines steps() {
        Lines all;
        for (const kivSq::Object& value : vm->getRootTable().get("steps").asArray().getValues())
            all.emplace_back(value.describe().c_str());
        vm->executeString("steps.clear()", "test");
        return all;
    }
    Lines names() const {
        Lines all;
        plugins.foreachPlugin([&all](const char* name) { all.emplace_back(name); });
        return all;
    }
    // Whether the link is there: not everybody may make one.
    bool link(const char* to, const char* name) const {
        std::error_code error;
        std::filesystem::create_directory_symlink(folder.path(to), folder.path(name), error);
        return !error;
    }

    const support::TemporaryFolder folder;
    support::LogLines log;
    ManualClock clock;
    const SmartPointer<ResourceLocator> resources = makeObject<ResourceLocator>();
    std::optional<kivSq::VM> vm;
    Plugins plugins;
};

// ---- Which there are.

TEST_F(PluginsTest, OnlyDirectoriesOfTheDirectoryArePlugins) {
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_TRUE(plugins.getPluginHashes().empty() && plugins.getPluginHashesItem().empty());
    plugins.executeBootstrapScripts(false);
    EXPECT_THAT(log.take(), IsEmpty());

    add("b", "main.sq", "b");
    add("a");
    add("ä ü.x");
    folder.write("p/file", "");
    std::filesystem::create_directories(folder.path("outside/below"));
    const bool hasLinks =
        link("outside", "p/out") && link("p", "p/whole") && link("p/b", "p/own") && link("p/gone", "p/nothing");
    EXPECT_EQ(names(), hasLinks ? (Lines{"a", "b", "own", "ä ü.x"}) : (Lines{"a", "b", "ä ü.x"}));
    EXPECT_EQ(log.take(), hasLinks ? (Lines{"[PLUGINS] [out] is left out: it is a link that leads elsewhere",
                                            "[PLUGINS] [whole] is left out: it is a link that leads elsewhere"})
                                   : Lines());
    std::error_code error;
    for (const char* bad : {"C:", "tab\t", "back\\slash", "dot.", "nul", "star*"})
        std::filesystem::create_directories(folder.path("p") / bad, error);
    for (const std::string& name : names()) EXPECT_TRUE(Plugins::isPluginName(name)) << name;
    log.take();

    const auto hashes = plugins.getPluginHashes();
    EXPECT_EQ(hashes.at("b"), Directory::getDirectoryHash(folder.utf8("p/b")));
    EXPECT_NE(hashes.at("b"), hashes.at("a"));
    log.take();
    for (const char* path : {"", static_cast<const char*>(nullptr), "/nowhere/at all"}) {
        plugins.setPath(path);
        EXPECT_TRUE(plugins.getPluginHashes().empty());
        plugins.executeBootstrapScripts(plugins.getPluginHashesItem(), true);
        EXPECT_THAT(log.take(), IsEmpty());
    }
}

TEST_F(PluginsTest, WhatEverybodyMayWriteToIsRefused) {
    for (const char* name : {"a", "b", "c", "d"}) add(name, "autoexec.sq", "step(\"" + std::string(name) + "\")");
    add("d/deep/er", "module.sq");
    const Item all = plugins.getPluginHashesItem();
    if (!support::letEverybodyWrite(folder.path("p/b"))) GTEST_SKIP() << "the rights can't be set here";
    ASSERT_TRUE(support::letEverybodyWrite(folder.path("p/c/autoexec.sq")));
    ASSERT_TRUE(support::letEverybodyWrite(folder.path("p/d/deep/er/module.sq")));
    const auto refused = ElementsAre("[PLUGINS] [b] is left out: everybody may write to it",
                                     "[PLUGINS] [c] is left out: everybody may write to autoexec.sq",
                                     "[PLUGINS] [d] is left out: everybody may write to deep/er/module.sq");
    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_THAT(log.take(), refused);
    plugins.executeBootstrapScripts(all, false);
    EXPECT_THAT(steps(), ElementsAre("a"));
    EXPECT_THAT(log.take(), refused);
    ASSERT_TRUE(support::letEverybodyWrite(folder.path("p")));
    plugins.executeBootstrapScripts(all, false);
    EXPECT_THAT(steps(), IsEmpty());
    EXPECT_THAT(log.takeOne(), HasSubstr("no plug-in of it is used"));
}

// ---- Booting.

TEST_F(PluginsTest, AllAutoexecsRunBeforeAnyMainWhateverFails) {
    for (const char* name : {"b", "a"}) {
        add(name, "autoexec.sq", "step(\"autoexec \" + \"" + std::string(name) + "\")");
        add(name, "main.sq", "std.sleep(0); step(\"main " + std::string(name) + "\"); return vargv.len()");
    }
    add("aa", "autoexec.sq", "step(\"aa\"); throw \"tired\"");
    add("ab", "autoexec.sq", "step(\"ab\"); std.sleep(100000); std.sleep_forever(); step(\"ab again\")");
    add("ac", "autoexec.sq", "x <- ;");
    add("ac", "main.sq", "step(\"main ac\"); nothing()");
    add("ad", "autoexec.sq", std::string("step(\"ad\")\0step(\"hidden\")", 25));
    add("ae", "main.sq", "x <- ;");
    add("af", "autoexec.sq", "\xEF\xBB\xBFstep(\"af\")");
    for (const bool verify : {false, true}) {
        plugins.executeBootstrapScripts(verify);
        EXPECT_THAT(steps(), ElementsAre("autoexec a", "aa", "ab", "ab again", "af", "autoexec b"));
        const Lines lines = log.take();
        EXPECT_THAT(lines, AllOf(Contains("[SQ.INTERPRETER] tired"), Contains(StartsWith("[SQ.COMPILER] ac(1): ")),
                                 Contains(StartsWith("[SQ.COMPILER] ad(1): ")),
                                 Contains(StartsWith("[SQ.COMPILER] ae(1): ")), Contains("[b] starting main")));
        vm->processEvents();
        EXPECT_THAT(steps(), ElementsAre("main ac"));
        clock.advance(1);
        vm->processEvents();
        EXPECT_THAT(steps(), ElementsAre("main a", "main b"));
        log.take();
    }
    EXPECT_EQ(plugins.getNumberOfBoots(), 2u);
    EXPECT_EQ(plugins.getBooted().size(), 8u);
    EXPECT_EQ(vm->getLibrary().getSearchPaths().size(), 8u) << "each path once, however often it is booted";
}

TEST_F(PluginsTest, FindsModulesFirstInTheFirstPluginAndResourcesInTheLast) {
    for (const std::string name : {"aaa", "b"}) {
        add(name, "own.sq", "step(\"module of " + name + "\")");
        folder.write("p/" + name + "/kiv.GUID.sq", "step(\"not that of the library\")");
        folder.write("p/" + name + "/text", name);
    }
    folder.write("p/b/autoexec.sq", "import(\"own\"); import(\"kiv.GUID\"); step(kiv.GUID().getClassName())");
    plugins.executeBootstrapScripts(false);
    EXPECT_THAT(steps(), ElementsAre("module of aaa", "GUID"));
    Buffer content;
    EXPECT_TRUE(resources->fetch("text", content) && content.getSize() == 1);
    EXPECT_TRUE(resources->fetch("own.sq", content));
}

TEST_F(PluginsTest, OnlyWhatIsAsItWasIsBootedWhereDigestsAreVerified) {
    add("a", "autoexec.sq",
        "step(\"a\"); string.write_to_file(@\"" + folder.utf8("p/c/autoexec.sq") + "\", \"step(0)\")");
    for (const char* name : {"b", "c", "d"}) add(name, "autoexec.sq", "step(\"" + std::string(name) + "\")");
    Item map = plugins.getPluginHashesItem();
    map.addString("gone");
    map.add(1);
    folder.write("p/b/module.sq", "");
    std::filesystem::remove(folder.path("p/d/autoexec.sq"));
    plugins.executeBootstrapScripts(map, true);
    EXPECT_THAT(steps(), ElementsAre("a", "c")) << "c is changed when it was read already";
    EXPECT_THAT(log.take(), ElementsAre("[PLUGINS] [b] is left out: its digest is another",
                                        "[PLUGINS] [d] is left out: its digest is another",
                                        "[PLUGINS] [gone] is left out: its digest is another"));
    EXPECT_THAT(plugins.getBooted(), ElementsAre("a", "c"));
    plugins.executeBootstrapScripts(map, false);
    EXPECT_THAT(steps(), ElementsAre("a", "b", "0"));
    EXPECT_THAT(log.take(), IsEmpty());
    vm.reset();
    plugins.executeBootstrapScripts(map, false);
    EXPECT_EQ(log.takeOne(), "[PLUGINS] there is no VM to boot them in");
}

TEST_F(PluginsTest, ReceivedMapsLeadNowhereElse) {
    add("good", "autoexec.sq", "step(\"good\")");
    std::filesystem::create_directories(folder.path("evil"));
    folder.write("evil/autoexec.sq", "step(\"evil\")");
    folder.write("p/autoexec.sq", "step(\"evil\")");
    const bool hasLink = link("evil", "p/link");
    const std::string absolute = folder.utf8("evil"), device = "C:" + absolute, share = "//?/" + absolute;
    for (const std::string& name :
         {std::string("../evil"), std::string("good/../../evil"), std::string(".."), std::string("."), std::string(),
          std::string("..\\evil"), absolute, device, share, std::string("C:"), std::string("good/"), std::string(".. "),
          std::string("a\nb"), std::string("\x1B[2J"), std::string("NUL"), std::string("good:stream"),
          std::string(256, 'n'), std::string(hasLink ? "link" : "../link")}) {
        Item map(name);
        map.add(0);
        map.addString("good");
        map.add(0xFFFFFFFF);
        plugins.executeBootstrapScripts(map, false);
        EXPECT_THAT(steps(), ElementsAre("good")) << name;
        const std::string line = log.takeOne();
        EXPECT_THAT(line, AllOf(StartsWith("[PLUGINS] ["), HasSubstr("] is left out: "))) << name;
        EXPECT_TRUE(line.size() < 160 && std::none_of(line.begin(), line.end(), [](char c) { return c == '\x1B'; }));
    }

    // One plug-in, where case does not count.
    Item twice("GOOD");
    twice.add(0);
    twice.addString("good");
    twice.add(0);
    plugins.executeBootstrapScripts(twice, false);
    EXPECT_THAT(steps(), ElementsAre("good"));
    log.take();

    // Keys that are no texts, values that are no digests, half a pair; the first of equal names counts.
    Item map(5);
    map.add(1);
    map.addPrefix("table");
    map.addItem(Item("good"));
    for (const Item& value :
         {Item(-1), Item(int64_t{1} << 32), Item(1.5), Item("1"), Item(true), Item(Item::NILType())}) {
        map.addString("good");
        map.concatItem(value);
    }
    map.addString("good");
    map.add(Directory::getDirectoryHash(folder.utf8("p/good")).value());
    map.addString("good");
    map.add(7);
    map.addString("half");
    plugins.executeBootstrapScripts(map, true);
    EXPECT_THAT(steps(), ElementsAre("good"));
    EXPECT_EQ(log.take().size(), 9u);

    // Damaged bytes.
    std::mt19937 random(5);
    std::string bytes(reinterpret_cast<const char*>(map.getPlainBytePointer()), map.getPlainSize());
    for (int i = 0; i < 2000; ++i) {
        std::string damaged = bytes.substr(0, 1 + random() % bytes.size());
        for (int k = 0; k < 4; ++k) damaged[random() % damaged.size()] = static_cast<char>(random());
        const auto* const from = reinterpret_cast<const uint8_t*>(damaged.data());
        plugins.executeBootstrapScripts(Item(Item::PlainMode(), {from, static_cast<unsigned>(damaged.size())}), true);
    }
    steps();
    log.take();

    // More than anybody has, in few lines.
    Item huge;
    for (int i = 0; i < 100'000; ++i) {
        huge.addString(i % 2 ? std::to_string(i).c_str() : "..");
        huge.add(0);
    }
    plugins.executeBootstrapScripts(huge, true);
    EXPECT_TRUE(plugins.getBooted().empty());
    EXPECT_LT(log.take().size(), 30u + Plugins::maximumNumber);
}

TEST_F(PluginsTest, ProcessesAgreeOnTheirPackets) {
    const auto& scheme = ProcessProtocol::PluginsHashes;
    EXPECT_EQ(PacketSchemeRegistry::find("ProcessProtocol::PluginsHashes"), &scheme);
    EXPECT_EQ(PacketSchemeRegistry::find(1), &ProcessProtocol::Terminate);
    EXPECT_TRUE(scheme.getID() == 1003 && ProcessProtocol::Terminate.getElements().empty());
    Lines elements;
    for (const PacketElement& element : scheme.getElements())
        elements.push_back(std::string(element.name) + std::to_string(static_cast<int>(element.kind)) +
                           (element.isDynamic() ? "" : " of " + std::to_string(element.elementSize * element.count)));
    EXPECT_THAT(elements, ElementsAre("pluginsHashes5", "initScript3", "startupScript3", "index0 of 4"));
}

// ---- Listeners.

TEST_F(PluginsTest, ListenersOutliveFailuresAndNotTheirVM) {
    const auto bind = [this] {
        kivSq::Object root = vm->getRootTable();
        Plugins::bindSqVM(&root);
        Plugins::bindSqVM(&root);
        root.set("plugins", kivSq::Object::from(SmartPointer<Plugins>(&plugins)));
    };
    plugins.increaseReferenceCount(); // it is no counted one here
    bind();
    for (const char* wrong : {"5", "null", "print", "{ _call = 1 }"}) {
        vm->executeString(("plugins.addListener(\"e\", " + std::string(wrong) + ")").c_str(), "test");
        EXPECT_THAT(log.take(), Contains("[SQ.INTERPRETER] trying to add a listener of non-closure type")) << wrong;
    }
    EXPECT_FALSE(plugins.hasListeners("e"));
    vm->executeString(R"(step(plugins.getClassName())
plugins.addListener("e", function(x) { step("1 " + x.len()); plugins.addListener("e", @(x) step("late")) })
plugins.addListener("e", function(x) { throw "tired" })
plugins.addListener("e", function() { step("too few parameters") })
plugins.addListener("e", @(x) step("4"))
plugins.addListener("other", @(x) step("other")))",
                      "test");
    EXPECT_TRUE(plugins.hasListeners("e") && !plugins.hasListeners("none"));
    plugins.callListeners("e", Item());
    EXPECT_THAT(steps(), ElementsAre("Plugins", "1 0", "4"));
    EXPECT_THAT(log.take(),
                AllOf(Contains("[SQ.INTERPRETER] tired"), Contains("[SQ.INTERPRETER] wrong number of parameters")));
    plugins.callListeners(nullptr, Item());
    plugins.callListeners("e", Item("text"));
    EXPECT_THAT(steps(), ElementsAre("1 4", "4", "late"));
    log.take();

    // Those that fail in each pass, and for ever.
    vm->executeString(R"(calls <- 0
plugins.addListener("tick", function(x) { if (++calls != 20) throw "tired" })
plugins.addListener("tick", @(x) null))",
                      "test");
    for (int i = 0; i < 100; ++i) plugins.callListeners("tick", Item());
    vm->executeString("step(calls)", "test");
    EXPECT_THAT(steps(), ElementsAre("40"));
    const Lines told = log.take();
    EXPECT_EQ(std::count(told.begin(), told.end(), "[SQ.INTERPRETER] tired"), 39);
    EXPECT_EQ(told.back(), "[PLUGINS] a listener of 'tick' is dropped: it has failed 20 times in a row");

    Plugins copy(plugins), moved(std::move(copy));
    moved.callListeners("other", Item());
    EXPECT_THAT(steps(), ElementsAre("other"));
    vm.reset();
    log.take();
    plugins.callListeners("e", Item());
    startVM();
    bind();
    for (const char* event : {"other", "tick"}) plugins.callListeners(event, Item());
    vm->executeString("plugins.addListener(\"e\", @(x) step(\"new\"))", "test");
    plugins.callListeners("e", Item());
    EXPECT_THAT(steps(), ElementsAre("new"));
    EXPECT_THAT(log.take(), IsEmpty());
    vm.reset();
}

} // namespace
} // namespace kiv
