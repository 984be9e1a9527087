#include "ScriptHost.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/VMOutput.h"

#include <sqstdsystem.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kiv::app {

namespace {

using kivSq::Object;

constexpr unsigned longestPause = 10; // milliseconds: what else the pump has to do does not wake it

// Of standard output; main thread.
bool g_isAtLineStart = true;
bool g_isPrompting = false;

void leavePrompt() {
    if (!std::exchange(g_isPrompting, false)) return;
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// The standard stream, which scripts have, too: as "stdout".
void printFormatted(SQVM*, const SQChar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ScriptHost::print(kivSq::internal::formatText(format, arguments));
    va_end(arguments);
}

// The engine's names of the tables in which the VM has put its libraries.
void spreadEngineLibraries(SQVM* v, const Object& root) {
    const auto spread = [&](const char* table, std::initializer_list<const char*> names) {
        for (const char* name : names) root.set(name, root.rawget(table).rawget(name));
    };
    spread("std", {"blob", "castf2i", "casti2f", "swap2", "swap4", "swapfloat", "file", "stdin", "stdout", "stderr",
                   "loadfile", "dofile", "writeclosuretofile"});
    spread("string",
           {"regexp", "format", "printf", "strip", "lstrip", "rstrip", "split", "escape", "startswith", "endswith"});
    for (const auto& [name, function] : root.rawget("math").asTable().getKeyValuePairs()) root.set(name, function);
    const kivSq::StackGuard guard(v);
    root.push(v);
    sqstd_register_systemlib(v);
}

// Of a call stack only the functions. Values that hold line feeds go with the variables they belong to. That a thread
// has failed was told by its error.
std::string compact(std::string_view text) {
    if (text.find("] squirrel thread failed (") != text.npos) return {};
    constexpr std::string_view caption = "CALLSTACK:\n";
    size_t position = text.find(caption);
    if (position == text.npos) return std::string(text);
    std::string shown(text.substr(0, position));
    for (position += caption.size(); position < text.size();) {
        const std::string_view line = text.substr(position, text.find('\n', position) + 1 - position);
        if (line.starts_with("* ")) shown += "    " + std::string(line.substr(2));
        position += line.size();
    }
    return shown;
}

} // namespace

ScriptHost::ScriptHost() {
    logging::g_hideTimeInConsole = true;
    logging::g_hideVerboseOutputInConsole = true;
    internal::writeStandardError({}); // has a console take UTF-8, from scripts as well
    m_sinkBefore = internal::setStandardOutputSink(this);
    System::initialize();
    System::catchInterrupts();
    SQVM* v = getVM().getSquirrelVM();
    sq_setprintfunc(v, &printFormatted, sq_geterrorfunc(v));
    spreadEngineLibraries(v, getVM().getRootTable());
}

ScriptHost::~ScriptHost() {
    System::deinitialize();
    internal::setStandardOutputSink(m_sinkBefore);
}

Object ScriptHost::tryToCompile(const std::string& text, const char* name) {
    m_isQuiet = true;
    Object closure = getVM().newClosure(text.c_str(), static_cast<unsigned>(text.size()), name);
    m_isQuiet = false;
    return closure;
}

Vector<Object> ScriptHost::setArguments(const std::vector<std::string>& arguments) {
    const Object array = getVM().newArray(0);
    for (const std::string& argument : arguments) array.asArray().append(Object::from(argument));
    getVM().getRootTable().set("vargv", array);
    return array.asArray().getValues();
}

void ScriptHost::pump() {
    System::processEvents();
    if (const unsigned pause = getVM().getIdleTime(longestPause)) m_waker.wait(pause);
}

void ScriptHost::print(std::string_view text) {
    if (text.empty()) return;
    leavePrompt();
    g_isAtLineStart = text.back() == '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void ScriptHost::setPrompting(bool isPrompting) {
    g_isPrompting = isPrompting;
    g_isAtLineStart = true;
}

bool ScriptHost::isPrompting() {
    return g_isPrompting;
}

void ScriptHost::finishLine() {
    if (!g_isAtLineStart) print("\n");
}

bool ScriptHost::write(std::string_view text) {
    if (System::isMainThread()) {
        if (m_isQuiet) return true;
        leavePrompt();
    }
    return internal::writeStandardError(m_isCompact ? compact(text) : text);
}

} // namespace kiv::app
