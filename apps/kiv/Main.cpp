#include "ItemCommand.h"
#include "PacketsCommand.h"

#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>

namespace {

using kiv::app::ItemCommand;
using kiv::app::ItemForm;
using kiv::app::PacketsCommand;

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

void describeItem(CLI::App& app, ItemCommand& command) {
    const std::map<std::string, ItemForm> readable{{"json", ItemForm::JSON},
                                                   {"base16", ItemForm::Base16},
                                                   {"base64", ItemForm::Base64},
                                                   {"base64crc", ItemForm::Base64crc}};
    std::map<std::string, ItemForm> writable = readable;
    writable.insert({{"pretty", ItemForm::Pretty}, {"debug", ItemForm::Debug}, {"path", ItemForm::Path}});

    app.add_option("texts", command.texts, "Texts to convert; behind \"--\" they may begin with a dash")
        ->type_name("TEXT");
    app.add_option("-i,--input", command.files, "A file to convert, - for standard input; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app.add_flag("-l,--lines", command.linewise, "Every line of a file is a text of its own");
    app.add_option("-f,--from", command.from, "What the texts are: json (unless given), base16, base64, base64crc")
        ->type_name("FORM")
        ->transform(formOf(readable));
    app.add_option("-t,--to", command.to,
                   "What to make of them: json (unless given), pretty, base16, base64, base64crc, debug, path")
        ->type_name("FORM")
        ->transform(formOf(writable));
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

// The parser takes "[1,2]" apart, as if a configuration file had said it; a blank in front prevents that.
void protectBracket(std::string& argument) {
    if (argument.starts_with('[')) argument.insert(0, 1, ' ');
}
void unprotectBracket(std::string& argument) {
    if (argument.starts_with(" [")) argument.erase(0, 1);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Looks into the data of kivCore.", "kiv");
    app.require_subcommand(1);
    ItemCommand item;
    PacketsCommand packets;
    CLI::App* itemApp = app.add_subcommand("item", "Turns JSON, base16 and base64 forms of items into each other");
    CLI::App* packetsApp = app.add_subcommand("packets", "Lists the records of a packet file");
    describeItem(*itemApp, item);
    describePackets(*packetsApp, packets);
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        std::for_each(arguments.begin(), arguments.end(), protectBracket);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    std::for_each(item.texts.begin(), item.texts.end(), unprotectBracket);
    std::for_each(item.files.begin(), item.files.end(), unprotectBracket);
    unprotectBracket(packets.file);
    return itemApp->parsed() ? item.run() : packets.run();
}
