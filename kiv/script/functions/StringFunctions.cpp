#include "kiv/core/String.h"
#include "kiv/files/File.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"

namespace kivSq::internal {
namespace {

using kiv::ConstByteSpan;
using kiv::File;
using kiv::String;
using Text = std::string_view;

bool contains(Text text, Text part) {
    return text.find(part) != Text::npos;
}

bool beginsWith(Text text, Text part) {
    return text.starts_with(part);
}

bool endsWith(Text text, Text part) {
    return text.ends_with(part);
}

String replaceAll(const String& text, Text from, Text to) {
    return text.replace_all_copy(from, to);
}

bool appendToFile(Text path, const String& text) {
    return File::appendFile(path, text.getConstByteSpan());
}

bool writeToFile(Text path, const String& text) {
    return File::writeFile(path, text.getConstByteSpan());
}

Object readFromFile(Text path) {
    String text;
    return text.loadFromFile(path, true) ? Object::from(text) : Object();
}

// One text to another.
template <String (String::*function)() const>
SQInteger convert(SQVM* v) {
    String text;
    if (sq_gettop(v) != 2 || !Access<String>::get(v, 2, text)) return sq_throwerror(v, "wrong argument type");
    Access<String>::push(v, (text.*function)());
    return 1;
}

} // namespace

void addStringFunctions(SQVM* v, const Object& table) {
    NativeTable(v, table)
        .plain<&contains>("contains")
        .plain<&beginsWith>("begins_with")
        .plain<&endsWith>("ends_with")
        .carried("replace_all", &replaceAll)
        .carried("append_to_file", &appendToFile)
        .carried("write_to_file", &writeToFile)
        .carried("read_from_file", &readFromFile)
        .plain<&convert<&String::utf8_lowercase>>("utf8_lowercase", 0)
        .plain<&convert<&String::utf8_uppercase>>("utf8_uppercase", 0)
        .plain<&convert<&String::utf8_escape_filepath>>("utf8_escape_filepath", 0)
        .plain<&convert<&String::trim_spaces>>("trim_spaces", 0);
}

} // namespace kivSq::internal
