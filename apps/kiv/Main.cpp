#include "HostCommand.h"
#include "ItemCommand.h"
#include "PackageCommand.h"
#include "PacketsCommand.h"
#include "PluginCommand.h"
#include "ReplCommand.h"
#include "RunCommand.h"
#include "StoreCommand.h"
#include "WorkerCommand.h"

#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>

namespace {

using kiv::app::HostCommand;
using kiv::app::ItemCommand;
using kiv::app::ItemForm;
using kiv::app::PackageAction;
using kiv::app::PackageCommand;
using kiv::app::PacketsCommand;
using kiv::app::PluginCommand;
using kiv::app::ReplCommand;
using kiv::app::RunCommand;
using kiv::app::StoreAction;
using kiv::app::StoreCommand;
using kiv::app::WorkerCommand;

constexpr int wrongUsage = 2;

// The parser's own check of names would print their numbers, too.
CLI::Validator formOf(std::map<std::string, ItemForm> forms) {
    return CLI::Validator(
        [forms](std::string& name) {
            const auto found = forms.find(CLI::detail::to_lower(name));
            if (found == forms.end()) return '"' + name + "\" is none of the forms";
            name = std::to_string(static_cast<int>(found->second));
            return std::string();
        },
        "");
}

const std::map<std::string, ItemForm> readableForms{{"json", ItemForm::JSON},
                                                    {"base16", ItemForm::Base16},
                                                    {"base64", ItemForm::Base64},
                                                    {"base64crc", ItemForm::Base64crc}};

void addTargetForm(CLI::App& app, ItemForm& form) {
    std::map<std::string, ItemForm> writable = readableForms;
    writable.insert({{"pretty", ItemForm::Pretty}, {"debug", ItemForm::Debug}, {"path", ItemForm::Path}});
    app.add_option("-t,--to", form,
                   "What to make of them: json (unless given), pretty, base16, base64, base64crc, debug, path")
        ->type_name("FORM")
        ->transform(formOf(writable));
}

void describeItem(CLI::App& app, ItemCommand& command) {
    app.add_option("texts", command.texts, "Texts to convert; behind \"--\" they may begin with a dash")
        ->type_name("TEXT");
    app.add_option("-i,--input", command.files, "A file to convert, - for standard input; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app.add_flag("-l,--lines", command.linewise, "Every line of a file is a text of its own");
    app.add_option("-f,--from", command.from, "What the texts are: json (unless given), base16, base64, base64crc")
        ->type_name("FORM")
        ->transform(formOf(readableForms));
    addTargetForm(app, command.to);
    app.footer(
        "Without texts and files it reads standard input. Each input gives one line on standard output (pretty:\n"
        "several); one that does not decode a message on standard error, and then the exit status is 1.\n"
        "    kiv item --to base64crc '{\"name\": \"head\", \"slices\": 64}'\n"
        "    kiv item --from base64crc --to pretty < values.txt");
}

void describePackets(CLI::App& app, PacketsCommand& command) {
    app.add_option("file", command.file, "The packet file")->type_name("FILE")->required();
    app.add_option("-p,--preview", command.preview, "Bytes of each payload to show")
        ->type_name("BYTES")
        ->check(CLI::Range(0, 4096).description(""))
        ->capture_default_str();
    app.footer(
        "One line for each record: its offset in the file, the size of its payload, the fields of its header, the\n"
        "version of its scheme, and the first bytes. Of a damaged file (exit status 1) all records before the\n"
        "damage are listed, and a message gives the offset of the first damaged byte.");
}

CLI::App& addStoreAction(CLI::App& app, StoreCommand& command, StoreAction action, const char* name,
                         const char* description, const char* file) {
    CLI::App& sub = *app.add_subcommand(name, description);
    sub.add_option(file, command.file, "A store file")->required();
    sub.final_callback([&command, action] { command.action = action; });
    return sub;
}

void describeStore(CLI::App& app, StoreCommand& command) {
    const auto add = [&](StoreAction action, const char* name, const char* description,
                         const char* file = "FILE") -> CLI::App& {
        return addStoreAction(app, command, action, name, description, file);
    };
    app.require_subcommand(1);
    add(StoreAction::Dump, "dump", "Lists all entries, a line each: key = value, as debug texts");
    CLI::App& tree = add(StoreAction::Tree, "tree", "Shows the tree of keys, or the part of it at and below a key");
    tree.add_option("KEY", command.key, "Where to begin");
    tree.add_option("-d,--depth", command.depth, "Show so many levels below it")->type_name("LEVELS");
    CLI::App& get = add(StoreAction::Get, "get", "Prints the value of an entry");
    get.add_option("KEY", command.key, "Of the entry")->required();
    addTargetForm(get, command.form);
    CLI::App& set = add(StoreAction::Set, "set", "Adds or changes an entry; makes the file when it is not there");
    set.add_option("KEY", command.key, "Of the entry; what is missing above it is added, too")->required();
    set.add_option("VALUE", command.value, "JSON; behind \"--\" it may begin with a dash")->required();
    CLI::App& copy = add(StoreAction::Copy, "copy", "Copies a store", "FROM");
    copy.add_option("TO", command.secondFile, "The file to make or replace")->required();
    copy.add_option("-x,--exclude", command.excluded, "Leave out this key and all below it; may be repeated")
        ->type_name("KEY")
        ->allow_extra_args(false);
    CLI::App& compare = add(StoreAction::Compare, "compare", "Lists what differs between two stores", "A");
    compare.add_option("B", command.secondFile, "The other store file")->required();
    app.footer("A KEY is a JSON array of its elements, or a text, which is a key of one element.\n"
               "The exit status is 1 when a file is damaged or can't be read or written, when there is no such entry,\n"
               "and when stores differ. A file that is written is replaced at once, or stays as it was.\n"
               "    kiv store set settings.store '[\"viewer\", \"gamma\"]' 2.2\n"
               "    kiv store get settings.store '[\"viewer\", \"gamma\"]'\n"
               "    kiv store tree settings.store viewer");
}

void describeRun(CLI::App& app, RunCommand& command) {
    app.add_option("script", command.script, "The script's file")->type_name("SCRIPT")->required();
    app.footer(
        "What follows SCRIPT is for the script, which finds it in the array vargv. It runs as a script thread, until\n"
        "that and all it has started have ended. Modules to import are looked for beside it; the names of the "
        "engine's\n"
        "libraries are found at the root, too. What it prints goes to standard output, the log to standard error. The\n"
        "exit status is the integer that it returns, 1 when it fails or does not compile, 130 after an interrupt; a\n"
        "second interrupt ends a script that never pauses.");
}

// What follows the script's name is for the script, whatever it looks like.
void takeScriptArguments(std::vector<std::string>& arguments, RunCommand& command) {
    if (arguments.empty() || arguments[0] != "run") return;
    const auto script = std::find_if(arguments.begin() + 1, arguments.end(),
                                     [](const std::string& argument) { return !argument.starts_with('-'); });
    if (script == arguments.end()) return;
    command.arguments.assign(script + 1, arguments.end());
    arguments.erase(script + 1, arguments.end());
}

void describeRepl(CLI::App& app) {
    app.footer(
        "What is typed is run as a script thread, and the value of an expression shown; the last one is _. While\n"
        "brackets are open the input goes on in the next line. \".help\" tells more. When standard input is no\n"
        "terminal there are no prompts, and the exit status is 1 when any input has failed.");
}

void describePlugin(CLI::App& app, PluginCommand& command) {
    app.require_subcommand(1);
    CLI::App& make = *app.add_subcommand("new", "Writes a plug-in that boots, with comments on what is what");
    make.add_option("NAME", command.name, "Its name, and that of its directory")->required();
    make.add_option("-p,--plugins", command.plugins, "The directory of plug-ins, made when it is not there")
        ->type_name("DIR")
        ->capture_default_str();
    app.footer("The exit status is 1 when the name is none that a plug-in can have, when there is something of that\n"
               "name, or when it can't be written.\n"
               "    kiv plugin new camera --plugins plugins");
}

void describeHost(CLI::App& app, HostCommand& command) {
    app.add_option("-p,--plugins", command.plugins, "The directory that the plug-ins are directories of")
        ->type_name("DIR")
        ->required();
    app.add_option("-s,--store", command.store, "Where options are kept; made when it is not there")->type_name("FILE");
    app.add_option("-w,--worker", command.worker, "The workers' program (this one)")->type_name("PATH");
    app.add_option("-n,--workers", command.workers, "How many, from now on: the option host:workers (1 at first)")
        ->type_name("N")
        ->check(CLI::Range(0, 64).description(""));
    app.add_option("--set", command.settings, "Gives an option this value, from now on; may be repeated")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("--trace", command.trace, "Write what happened when, as Chrome trace events")->type_name("FILE");
    app.add_flag("--child", command.isChild, "Standard input is the pipe of a parent that speaks packets");
    app.footer(
        "Boots the plug-ins, first autoexec.sq of all, then main.sq of all, keeps the workers running, which boot the\n"
        "same plug-ins, and runs until it is interrupted, a script calls host.end(why) or, with --child, the parent\n"
        "asks it to end or is gone. It then asks the workers to end, gives them five seconds, and writes the store; a\n"
        "second interrupt ends it at once. The store is also written when an option changes; whenever this program is\n"
        "killed the file is the old or the new one. Plug-ins are code with all rights of the user who starts this.\n"
        "A program of --worker is started with --plugins DIR, and is told by packets what to boot.\n"
        "The exit status is 0 when it has ended in good order, after an interrupt as well, 1 when the store can't be\n"
        "read or written, an option is unknown or a path wrong, 2 for wrong usage.\n"
        "    kiv host --plugins plugins --store settings.store --set host:workers=2");
}

void describeWorker(CLI::App& app, WorkerCommand& command) {
    app.add_option("-p,--plugins", command.plugins, "The directory that the plug-ins are directories of")
        ->type_name("DIR");
    app.footer("Started by kiv host: boots what that names, and ends when it is asked to, or when standard input\n"
               "ends. The exit status is 0.");
}

void describePackage(CLI::App& app, PackageCommand& command) {
    const auto add = [&](PackageAction action, const char* name, const char* description,
                         const char* file) -> CLI::App& {
        CLI::App& sub = *app.add_subcommand(name, description);
        sub.add_option(file, command.file, "The package")->required();
        sub.final_callback([&command, action] { command.action = action; });
        return sub;
    };
    const auto addKey = [&command](CLI::App& sub, const char* what) {
        sub.add_option("-k,--key", command.key, what)->type_name("FILE")->required();
    };
    app.require_subcommand(1);
    add(PackageAction::Key, "key", "Makes the two keys NAME.secret and NAME.public", "NAME");
    CLI::App& create = add(PackageAction::Create, "create", "Packs a folder", "PACKAGE");
    create.add_option("FOLDER", command.folder, "With all files in it and below it, none of them a link")->required();
    create.add_option("-p,--product", command.product, "The product's name")->type_name("TEXT")->required();
    create.add_option("-v,--version", command.version, "Its version")->type_name("TEXT")->required();
    addKey(create, "The secret key to sign it with");
    addKey(add(PackageAction::Verify, "verify", "Checks all of a package, and lists its files", "PACKAGE"),
           "The public key");
    CLI::App& unpack = add(PackageAction::Unpack, "unpack", "Unpacks a package that is right", "PACKAGE");
    unpack.add_option("FOLDER", command.folder, "Which is made, and must not be there")->required();
    addKey(unpack, "The public key");
    app.footer("The exit status is 1 when a package is not right or something can't be read or written; nothing is\n"
               "left of it then.\n"
               "    kiv package key maker\n"
               "    kiv package create viewer.package build/viewer -p Viewer -v 1.2 -k maker.secret\n"
               "    kiv package unpack viewer.package viewer -k maker.public");
}

// The parser takes "[1,2]" apart, as if a configuration file had said it; a blank in front prevents that.
void protectBracket(std::string& argument) {
    if (argument.starts_with('[')) argument.insert(0, 1, ' ');
}
void unprotectBracket(std::string& argument) {
    if (argument.starts_with(" [")) argument.erase(0, 1);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Looks into the data of kivCore, and runs scripts.", "kiv");
    app.require_subcommand(1);
    ItemCommand item;
    PacketsCommand packets;
    StoreCommand store;
    RunCommand run;
    PluginCommand plugin;
    PackageCommand package;
    HostCommand host;
    WorkerCommand worker;
    CLI::App* itemApp = app.add_subcommand("item", "Turns JSON, base16 and base64 forms of items into each other");
    CLI::App* packetsApp = app.add_subcommand("packets", "Lists the records of a packet file");
    CLI::App* storeApp = app.add_subcommand("store", "Looks into store files and changes them");
    CLI::App* runApp = app.add_subcommand("run", "Runs a script");
    CLI::App* replApp = app.add_subcommand("repl", "A prompt for scripts");
    CLI::App* pluginApp = app.add_subcommand("plugin", "Makes plug-ins");
    CLI::App* packageApp = app.add_subcommand("package", "Makes and unpacks product packages");
    CLI::App* hostApp = app.add_subcommand("host", "Runs plug-ins, with options and worker processes");
    CLI::App* workerApp = app.add_subcommand("worker", "What kiv host starts");
    describeItem(*itemApp, item);
    describePackets(*packetsApp, packets);
    describeStore(*storeApp, store);
    describeRun(*runApp, run);
    describeRepl(*replApp);
    describePlugin(*pluginApp, plugin);
    describePackage(*packageApp, package);
    describeHost(*hostApp, host);
    describeWorker(*workerApp, worker);
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        takeScriptArguments(arguments, run);
        std::for_each(arguments.begin(), arguments.end(), protectBracket);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    std::for_each(item.texts.begin(), item.texts.end(), unprotectBracket);
    std::for_each(item.files.begin(), item.files.end(), unprotectBracket);
    std::for_each(host.settings.begin(), host.settings.end(), unprotectBracket);
    std::for_each(store.excluded.begin(), store.excluded.end(), unprotectBracket);
    for (std::string* text :
         {&packets.file, &store.file, &store.secondFile, &store.key, &store.value, &run.script, &plugin.name,
          &plugin.plugins, &host.plugins, &host.store, &host.worker, &host.trace, &worker.plugins, &package.file,
          &package.folder, &package.key, &package.product, &package.version})
        unprotectBracket(*text);
    if (runApp->parsed()) return run.run();
    if (replApp->parsed()) return ReplCommand().run();
    if (pluginApp->parsed()) return plugin.runNew();
    if (packageApp->parsed()) return package.run();
    if (hostApp->parsed()) return host.run();
    if (workerApp->parsed()) return worker.run();
    return itemApp->parsed() ? item.run() : packetsApp->parsed() ? packets.run() : store.run();
}
