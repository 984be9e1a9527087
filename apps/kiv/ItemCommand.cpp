#include "ItemCommand.h"

#include "FormOptions.h"
#include "Text.h"

#include "kiv/data/Item.h"
#include "kiv/platform/Console.h"
#include "kiv/platform/File.h"
#include "kiv/platform/StandardInput.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace kiv::app {

namespace {

constexpr size_t largestFile = size_t{1} << 30;
constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

bool readStandardInput(std::string& out) {
    char piece[1 << 16];
    while (const size_t size = internal::readStandardInput(piece, sizeof(piece))) {
        out.append(piece, size);
        if (out.size() > largestFile) return false;
    }
    return true;
}

bool readFile(const std::string& path, std::string& out) {
    const auto space = [&out](uint64_t size) {
        out.resize(static_cast<size_t>(size));
        return out.data();
    };
    return platform::readWholeFile(path, largestFile, space).status == platform::FileStatus::Ok;
}

class Conversion {
public:
    explicit Conversion(const ItemCommand& command) : m_command(command) {}

    void convertText(const std::string& name, std::string_view text) { convert(name, text, 0, text.size()); }
    void convertFile(const std::string& path);
    int finish();

private:
    // `source` from `begin` to `end` is one input; messages tell the place in the whole of it.
    void convert(const std::string& name, std::string_view source, size_t begin, size_t end);
    void convertTrimmed(const std::string& name, std::string_view source, size_t begin, size_t end);
    bool read(const String& text, Item& item, Item::TextError& error) const;
    void refuse(const std::string& text);

    const ItemCommand& m_command;
    Output m_output;
    size_t m_converted = 0;
    size_t m_refused = 0;
};

bool Conversion::read(const String& text, Item& item, Item::TextError& error) const {
    switch (m_command.from) {
    case ItemForm::Base16:
        return item.setBase16(text, &error);
    case ItemForm::Base64:
        return item.setBase64(text, &error);
    case ItemForm::Base64crc:
        return item.setBase64crc(text, &error);
    default:
        return item.setJSON(text, &error);
    }
}

void Conversion::refuse(const std::string& text) {
    m_output.flush();
    internal::writeStandardError("kiv item: " + text);
    ++m_refused;
}

void Conversion::convert(const std::string& name, std::string_view source, size_t begin, size_t end) {
    Item item;
    Item::TextError error;
    if (!read(String(source.substr(begin, end - begin)), item, error)) {
        refuse(refusalOf(name, source, begin, end, error));
        return;
    }
    if (const std::string loss = lossOf(item, m_command.to); !loss.empty()) {
        refuse(name + ": " + loss + "\n");
        return;
    }
    m_output.write(textOf(item, m_command.to));
    m_output.write("\n");
    ++m_converted;
}

void Conversion::convertTrimmed(const std::string& name, std::string_view source, size_t begin, size_t end) {
    while (begin < end && blanks.find(source[begin]) != blanks.npos) ++begin;
    while (begin < end && blanks.find(source[end - 1]) != blanks.npos) --end;
    if (begin < end || !m_command.linewise) convert(name, source, begin, end);
}

void Conversion::convertFile(const std::string& path) {
    const bool isStandardInput = path == "-";
    const std::string name = isStandardInput ? "standard input" : withoutControls(path);
    std::string source;
    if (!(isStandardInput ? readStandardInput(source) : readFile(path, source))) {
        refuse(name + ": can't be read, or is longer than 1 GiB\n");
        return;
    }
    size_t begin = source.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    if (!m_command.linewise) return convertTrimmed(name, source, begin, source.size());
    while (begin < source.size()) {
        const size_t end = std::min(source.find('\n', begin), source.size());
        convertTrimmed(name, source, begin, end);
        begin = end + 1;
    }
}

int Conversion::finish() {
    m_output.flush();
    if (!m_output.isGood()) refuse("standard output can't be written\n");
    if (m_converted + m_refused > 1)
        internal::writeStandardError(fmt::format("kiv item: {} converted, {} refused\n", m_converted, m_refused));
    return m_refused == 0 ? 0 : 1;
}

} // namespace

void ItemCommand::describe(CLI::App& app) {
    app.add_option("texts", texts, "Texts to convert; behind \"--\" they may begin with a dash")->type_name("TEXT");
    app.add_option("-i,--input", files, "A file to convert, - for standard input; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app.add_flag("-l,--lines", linewise, "Every line of a file is a text of its own");
    addSourceForm(app, from);
    addTargetForm(app, to);
    app.footer(
        "Without texts and files it reads standard input. Each input gives one line on standard output (pretty:\n"
        "several); one that does not decode a message on standard error, and then the exit status is 1.\n"
        "    kiv item --to base64crc '{\"name\": \"head\", \"slices\": 64}'\n"
        "    kiv item --from base64crc --to pretty < values.txt");
}

int ItemCommand::run() const {
    Conversion conversion(*this);
    for (size_t i = 0; i < texts.size(); ++i) conversion.convertText(fmt::format("argument {}", i + 1), texts[i]);
    for (const std::string& path : files) conversion.convertFile(path);
    if (texts.empty() && files.empty()) conversion.convertFile("-");
    return conversion.finish();
}

} // namespace kiv::app
