#include "kiv/script/VMOutput.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/HostCall.h"
#include "kiv/script/TypeName.h"
#include "kiv/script/Watchdog.h"

#include <fmt/format.h>

#include <cstdio>

namespace kivSq::internal {
namespace {

using kiv::logging::MessageStream;

constexpr SQInteger mostLevels = 64;
constexpr SQUnsignedInteger mostLocals = 32;

void logFormatted(int level, const SQChar* format, va_list arguments) noexcept {
    try {
        MessageStream(level, 2) << formatText(format, arguments);
    } catch (...) { // out of memory
    }
}

void print(SQVM*, const SQChar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logFormatted(1, format, arguments);
    va_end(arguments);
}

void printError(SQVM*, const SQChar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logFormatted(3, format, arguments);
    va_end(arguments);
}

const char* orUnknown(const char* text) {
    return text ? text : "unknown";
}

void compilerError(SQVM*, const SQChar* description, const SQChar* source, SQInteger line, SQInteger) noexcept {
    try {
        MessageStream(3, 2) << "[SQ.COMPILER] " << orUnknown(source) << '(' << line << "): " << orUnknown(description);
    } catch (...) { // out of memory
    }
}

// Whole, with what is behind a zero.
std::string_view errorText(SQVM* v, SQInteger index) {
    std::string_view text;
    return sq_gettop(v) >= index && Access<std::string_view>::get(v, index, text) ? text : "unknown";
}

SQInteger runtimeError(SQVM* v) {
    showInterruptedPlace(v);
    MessageStream(3, 2) << "[SQ.INTERPRETER] " << errorText(v, 2) << '\n' << callStackText(v);
    return 0;
}

SQInteger guardedRuntimeError(SQVM* v) noexcept {
    try {
        countHandledError();
        return runtimeError(v);
    } catch (...) { // out of memory
        return 0;
    }
}

void appendLocals(SQVM* v, SQInteger level, std::string& text) {
    for (SQUnsignedInteger i = 0;; ++i) {
        const StackGuard guard(v);
        const SQChar* name = sq_getlocal(v, static_cast<SQUnsignedInteger>(level), i);
        if (!name) return;
        if (i == mostLocals) {
            text += "* ...\n";
            return;
        }
        text += fmt::format("   {}={}\n", name, describeValue(v, -1));
    }
}

} // namespace

std::string formatText(const SQChar* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string text(256, '\0');
    const int size = std::vsnprintf(text.data(), text.size(), format, arguments);
    if (size >= static_cast<int>(text.size())) {
        text.resize(static_cast<size_t>(size) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
    }
    va_end(again);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

std::string callStackText(SQVM* v) {
    std::string text;
    SQStackInfos infos;
    for (SQInteger level = 1; SQ_SUCCEEDED(sq_stackinfos(v, level, &infos)); ++level) {
        if (level == 1) text += "CALLSTACK:\n";
        if (level > mostLevels) {
            text += "* ...\n";
            break;
        }
        text += fmt::format("* {}() [{}:{}]\n", orUnknown(infos.funcname), orUnknown(infos.source), infos.line);
        appendLocals(v, level, text);
    }
    return text;
}

void logNativeFailure(SQVM* v) {
    const StackGuard guard(v);
    sq_getlasterror(v);
    MessageStream(3, 2) << "[SQ.INTERPRETER] " << errorText(v, -1) << '\n' << callStackText(v);
}

void installOutput(SQVM* v) {
    sq_setprintfunc(v, &print, &printError);
    sq_setcompilererrorhandler(v, &compilerError);
}

void installErrorHandler(SQVM* v) {
    const StackGuard guard(v);
    sq_newclosure(v, &guardedRuntimeError, 0);
    sq_setnativeclosurename(v, -1, "error handler");
    sq_seterrorhandler(v); // pops it
}

} // namespace kivSq::internal
