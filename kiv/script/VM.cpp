#include "kiv/script/VM.h"

#include "kiv/core/Buffer.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/AdapterData.h"
#include "kiv/script/Call.h"
#include "kiv/script/EngineState.h"
#include "kiv/script/HostCall.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/SourceCheck.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TypeName.h"
#include "kiv/script/VMImports.h"
#include "kiv/script/VMOutput.h"
#include "kiv/script/VMThreads.h"
#include "kiv/script/Watchdog.h"

#include <sqstdblob.h>
#include <sqstdio.h>
#include <sqstdmath.h>
#include <sqstdstring.h>

#include <cstring>

namespace kivSq {
namespace {

using kiv::logging::MessageStream;

constexpr SQInteger initialStack = 1024;

constexpr const char* startupScript =
    R"(std.safe_tointeger <- function (x) { try { return x.tointeger() } catch (e) {} return 0 }
std.safe_tofloat   <- function (x) { try { return x.tofloat() } catch (e) {} return 0.0 }
std.isnull         <- function (v) { return        v == null      }
std.isinteger      <- function (v) { return typeof v == "integer" }
std.isbool         <- function (v) { return typeof v == "bool"    }
std.isfloat        <- function (v) { return typeof v == "float"   }
std.isarray        <- function (v) { return typeof v == "array"   }
std.isstring       <- function (v) { return typeof v == "string"  }
std.istable        <- function (v) { return typeof v == "table"   }
std.isblob         <- function (v) { return typeof v == "blob"    }
std.isguid         <- function (v) { try { return v.getClassName() == "GUID" } catch (e) {} return false }
)";

Object addTable(SQVM* v, const Object& root, const char* name) {
    const StackGuard guard(v);
    sq_newtable(v);
    Object table(v, -1);
    root.set(name, table);
    return table;
}

// One of the engine's own libraries, into a table.
void registerInto(SQVM* v, const Object& table, SQRESULT (*library)(SQVM*)) {
    const StackGuard guard(v);
    table.push(v);
    library(v);
}

// For natives of others, which may throw: the type tag of their data is the function.
SQInteger callWithData(SQVM* v) noexcept {
    SQUserPointer data = nullptr;
    SQUserPointer tag = nullptr;
    sq_getuserdata(v, -1, &data, &tag);
    return internal::guarded(v, [v, tag] { return reinterpret_cast<SQFUNCTION>(tag)(v); });
}

} // namespace

VM* VM::current() {
    return internal::currentVM();
}

VM::VM() : m_vm(sq_open(initialStack)) {
    internal::watchdogLimit = 0; // it may be that of a VM before this one
    internal::installEngine(m_vm, this);
    try {
        build();
    } catch (...) { // out of memory
        closeEngine();
        throw;
    }
}

void VM::build() {
    sq_enabledebuginfo(m_vm, SQTrue);
    sq_setsharedforeignptr(m_vm, this);
    m_threads = std::make_unique<Threads>(m_vm);
    m_imports = std::make_unique<Imports>();
    internal::installOutput(m_vm);
    seterrorhandlers(m_vm);

    const Object root = getRootTable();
    addTable(m_vm, root, "global");
    const Object std = addTable(m_vm, root, "std");
    internal::addThreadFunctions(m_vm, std);
    internal::addProcessFunctions(m_vm, std);
    internal::addStdFunctions(m_vm, std);
    internal::addLogFunctions(m_vm, std);
    internal::addJSONFunctions(m_vm, std);
    registerInto(m_vm, std, &sqstd_register_bloblib);
    registerInto(m_vm, std, &sqstd_register_iolib);
    registerInto(m_vm, addTable(m_vm, root, "math"), &sqstd_register_mathlib);
    const Object string = addTable(m_vm, root, "string");
    internal::addStringFunctions(m_vm, string);
    registerInto(m_vm, string, &sqstd_register_stringlib);
    internal::installGuards(m_vm);
    executeString(startupScript, "squirrelStartup");
    initImport();
}

VM::~VM() {
    if (isRunning()) {
        MessageStream(4, 2) << "[SQ] the VM is destroyed inside a running script";
        internal::uninstallEngine();
        sq_setsharedforeignptr(m_vm, nullptr);
        AdapterData::forgetAll(); // another VM binds its own classes
        // Still in use further up.
        static auto* const abandoned = new std::vector<std::pair<std::unique_ptr<Threads>, std::unique_ptr<Imports>>>;
        abandoned->emplace_back(std::move(m_threads), std::move(m_imports));
        return;
    }
    closeEngine();
}

// What runs at the end of script values finds no VM any more.
void VM::closeEngine() {
    internal::uninstallEngine();
    AdapterData::forgetAll();
    sq_close(m_vm);
}

void VM::seterrorhandlers(SQVM* v) {
    internal::installErrorHandler(v);
}

bool VM::isRunning() const {
    return m_threads->isInPass() || sq_getvmstate(m_vm) != SQ_VMSTATE_IDLE;
}

int64_t VM::collectGarbage() {
    return isRunning() ? 0 : m_threads->collectGarbage();
}

// ---- Values.

Object VM::getRootTable() const {
    const StackGuard guard(m_vm);
    sq_pushroottable(m_vm);
    return Object(m_vm, -1);
}

Object VM::getConstTable() const {
    const StackGuard guard(m_vm);
    sq_pushconsttable(m_vm);
    return Object(m_vm, -1);
}

Object VM::getNamespace(const char* name) const {
    const Object root = getRootTable();
    Object table = root.rawget(name);
    return table.isTable() ? table : addTable(m_vm, root, name);
}

Object VM::newArray(int64_t size) const {
    const StackGuard guard(m_vm);
    sq_newarray(m_vm, size > 0 ? size : 0);
    return Object(m_vm, -1);
}

Object VM::newTable() const {
    const StackGuard guard(m_vm);
    sq_newtable(m_vm);
    return Object(m_vm, -1);
}

Object VM::newClosure(const char* source, unsigned length, const char* name) const {
    const StackGuard guard(m_vm);
    if (const char* reason = internal::refuseSource(source, length)) {
        const bool hasZero = std::memchr(source, 0, length) != nullptr; // for the others there is no line
        MessageStream(3, 2) << "[SQ.COMPILER] " << name << (hasZero ? "(1): " : ": ") << reason;
        sq_throwerror(m_vm, reason);
        return {};
    }
    sq_reseterror(m_vm);
    std::string_view text = internal::withoutMark({source, length});
    std::string watched;
    if (internal::watchdogLimit != 0) text = watched = internal::withWatchedLoops(text, internal::watchedLoop);
    const auto size = static_cast<SQInteger>(text.size());
    return SQ_SUCCEEDED(sq_compilebuffer(m_vm, text.data(), size, name, SQTrue)) ? Object(m_vm, -1) : Object();
}

Object VM::newClosure(const kiv::ConstByteSpan& bytecode) const {
    const StackGuard guard(m_vm);
    kiv::ConstByteSpan rest = bytecode;
    const auto read = [](SQUserPointer from, SQUserPointer to, SQInteger size) noexcept -> SQInteger {
        auto& bytes = *static_cast<kiv::ConstByteSpan*>(from);
        if (size < 0 || size > static_cast<SQInteger>(bytes.getSize())) return -1;
        const auto count = static_cast<unsigned>(size);
        if (count > 0) std::memcpy(to, bytes.getBytePointer(), count);
        bytes = kiv::ConstByteSpan(bytes.getBytePointer() + count, bytes.getSize() - count);
        return size;
    };
    if (SQ_SUCCEEDED(sq_readclosure(m_vm, read, &rest))) return Object(m_vm, -1);
    sq_reseterror(m_vm);
    MessageStream(2, 2) << "[SQ] cannot deserialize squirrel bytecode";
    return {};
}

Object VM::newClosure(SQFUNCTION function, const void* userData, size_t userDataSize) const {
    return newClosureOf(function, userData, userDataSize, nullptr, nullptr);
}

Object VM::newClosureOf(SQFUNCTION function, const void* userData, size_t size, void (*copy)(void*, const void*),
                        SQRELEASEHOOK release) const {
    const StackGuard guard(m_vm);
    void* const block = sq_newuserdata(m_vm, size);
    if (copy) {
        copy(block, userData);
        sq_setreleasehook(m_vm, -1, release); // of a whole copy only
    } else if (size > 0) {
        std::memcpy(block, userData, size);
    }
    sq_settypetag(m_vm, -1, reinterpret_cast<SQUserPointer>(function));
    sq_newclosure(m_vm, &callWithData, 1);
    return Object(m_vm, -1);
}

Object VM::construct(const char* className) const {
    Object found = getRootTable();
    for (std::string_view rest = className ? className : ""; found;) {
        const size_t dot = rest.find('.');
        found = found.rawget(rest.substr(0, dot));
        if (dot == std::string_view::npos) break;
        rest.remove_prefix(dot + 1);
    }
    if (!found) {
        MessageStream(3, 2) << "[SQ] no class found to construct: " << className;
        return {};
    }
    return internal::callScript(m_vm, found, getRootTable());
}

// ---- Running.

bool VM::executeBuffer(const char* source, unsigned length, const char* name) {
    const Object closure = newClosure(source, length, name);
    if (!closure) return false;
    const StackGuard guard(m_vm);
    closure.push(m_vm);
    sq_pushroottable(m_vm);
    SQVM* const v = m_vm; // the script may destroy this
    if (!internal::callTop(v, 1, false)) return false;
    sq_reseterror(v); // what it has caught
    return true;
}

bool VM::executeString(const char* source, const char* name) {
    return executeBuffer(source, static_cast<unsigned>(std::strlen(source)), name);
}

bool VM::executeFile(const char* path) {
    kiv::Buffer content;
    return content.loadFromFile(path, false) &&
           executeBuffer(reinterpret_cast<const char*>(content.getBytePointer()), content.getSize(), path);
}

kiv::String VM::getLastError() const {
    const StackGuard guard(m_vm);
    sq_getlasterror(m_vm);
    kiv::String text;
    if (sq_gettype(m_vm, -1) != OT_NULL && !Access<kiv::String>::get(m_vm, -1, text))
        text = internal::describeValue(m_vm, -1).c_str();
    return text;
}

// ---- Script threads: see VMThreads.cpp. Imports: see VMImports.cpp.

VM::Thread& VM::createThread(const Object& closure) {
    return createThread(closure, {});
}

VM::Thread& VM::createThread(const Object& closure, ThreadEnd onEnd) {
    return m_threads->create(closure, std::move(onEnd), nullptr);
}

VM::Thread& VM::createThread(const Object& closure, const kiv::Vector<Object>& arguments, ThreadEnd onEnd) {
    Thread& thread = createThread(closure, std::move(onEnd));
    const auto count = static_cast<SQInteger>(arguments.size());
    // They stay below the result when it ends after a sleep.
    constexpr SQInteger free = 15;
    sq_reservestack(thread.engine, count + free);
    for (const Object& argument : arguments) argument.push(thread.engine);
    thread.argumentCount += count;
    return thread;
}

void VM::processEvents() {
    internal::releaseParkedHandles();
    if (!isRunning()) m_threads->runPass();
}

bool VM::isCurrentThreadsAsyncQueueAborting() const {
    return m_threads->isCurrentAborting();
}

bool VM::threadsActive() const {
    return !m_threads->isEmpty();
}

unsigned VM::getIdleTime(unsigned longest) const {
    return m_threads->getIdleTime(longest);
}

VM::Thread* VM::getCurrentThread() const {
    return m_threads->getCurrent();
}

SQInteger VM::suspend(SQVM* v, WakeCondition condition) {
    return m_threads->suspend(v, std::move(condition));
}

void VM::setWatchdog(unsigned milliseconds) {
    internal::watchdogLimit = milliseconds;
    if (milliseconds != 0)
        internal::NativeTable(m_vm, getRootTable()).plain<&internal::watchLoop>(internal::watchedLoop, 1);
    m_threads->watchAll();
}

void VM::addImportSearchPath(const char* path) {
    m_imports->searchPaths.emplace_back(path ? path : "");
}

void VM::setImportCallback(const char* name, ImportCallback callback, const char* extra) {
    m_imports->callbacks[name ? name : ""] = {callback, extra ? extra : ""};
}

void VM::import(const char* name) {
    m_imports->import(*this, name ? name : "");
}

VM::ImportLibrary VM::getLibrary() const {
    return ImportLibrary(*this);
}

void VM::initImport() {
    internal::addImportFunction(m_vm, getRootTable());
    getNamespace("kiv");
    getNamespace("util");
    kiv::CoreImports(this);
}

} // namespace kivSq
