#include "FormOptions.h"

#include <CLI/CLI.hpp>

#include <map>

namespace kiv::app {

namespace {

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

} // namespace

void addSourceForm(CLI::App& app, ItemForm& form) {
    app.add_option("-f,--from", form, "What the texts are: json (unless given), base16, base64, base64crc")
        ->type_name("FORM")
        ->transform(formOf(readableForms));
}

void addTargetForm(CLI::App& app, ItemForm& form) {
    std::map<std::string, ItemForm> writable = readableForms;
    writable.insert({{"pretty", ItemForm::Pretty}, {"debug", ItemForm::Debug}, {"path", ItemForm::Path}});
    app.add_option("-t,--to", form,
                   "What to make of them: json (unless given), pretty, base16, base64, base64crc, debug, path")
        ->type_name("FORM")
        ->transform(formOf(writable));
}

} // namespace kiv::app
