#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/Containers.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"
#include "kiv/script/Object.h"

#include <functional>
#include <memory>
#include <new>
#include <type_traits>

namespace kivSq {

class AsyncQueue;
class WakeCondition;

// The host of the process's one script engine: root tables, imports, script threads, and what the engine says, in the
// log. While it lives it is VM::current().
// Ownership: System's; a program without a System makes its own. Requires: there is no other VM.
// Threads: the one that makes it is the main thread for scripts; everything here and all script values belong to it.
// Failures: errors of scripts are logged with their call stack and give false or null; the VM stays usable.
class KIV_API VM {
public:
    class Thread;
    class ImportLibrary;
    using ImportCallback = void (*)(VM* vm, const char* extra);

    // Null when there is none.
    static VM* current();

    VM();
    VM(const VM&) = delete;
    VM& operator=(const VM&) = delete;
    // Releases all script values. Handles may outlive it. Inside a running script it is refused: logged, and the engine
    // is left as it is for good.
    ~VM();

    SQVM* getSquirrelVM() const { return m_vm; }
    Object getRootTable() const;
    Object getConstTable() const;
    // The table of this name in the root table; made when it is not there.
    Object getNamespace(const char* name) const;
    Object newArray(int64_t size) const;
    Object newTable() const;
    Object newNull() const { return {}; }
    // Compiles a text; a byte order mark in front is skipped. Null, and logged, when it is wrong.
    Object newClosure(const char* source, unsigned length, const char* name) const;
    // What ClosureInterface::getBytecode() has given. Null, and logged, when the bytes can't be loaded. The engine does
    // not verify bytecode: damaged bytes can crash the process, so only load what you have written.
    Object newClosure(const kiv::ConstByteSpan& bytecode) const;
    // A native function with a copy of these bytes as its one free variable. What it throws is a script error.
    Object newClosure(SQFUNCTION function, const void* userData, size_t userDataSize) const;
    // The same with a value of any type; the closure owns the copy.
    template <class T>
    Object newClosure(SQFUNCTION function, const T& userData) const {
        static_assert(alignof(T) <= 8, "the engine's user data is aligned to eight bytes");
        if constexpr (std::is_trivially_copyable_v<T>) {
            return newClosure(function, &userData, sizeof userData);
        } else {
            return newClosureOf(
                function, &userData, sizeof userData,
                [](void* to, const void* from) { new (to) T(*static_cast<const T*>(from)); },
                [](SQUserPointer data, SQInteger) -> SQInteger {
                    static_cast<T*>(data)->~T();
                    return 1;
                });
        }
    }
    // Calls the class of this name, a path such as "kiv.GUID" from the root table on. Null, and logged, when there is
    // none or it fails.
    Object construct(const char* className) const;

    // Compiles and runs a text, with the root table as `this`. False, and logged, when either fails.
    bool executeBuffer(const char* source, unsigned length, const char* name);
    bool executeString(const char* source, const char* name);
    // Loads the file whole and runs it. False, and logged, when it can't be read, too.
    bool executeFile(const char* path);
    // The engine's last error as text; empty when what was run last has succeeded.
    kiv::String getLastError() const;
    // Installs the handler that logs errors, on an engine VM or thread.
    static void seterrorhandlers(SQVM* v);

    // As it is given: no normalisation, no check for duplicates.
    void addImportSearchPath(const char* path);
    // Registers or replaces what brings in the module `name`. `extra` is copied and passed to it; null is the empty
    // text.
    void setImportCallback(const char* name, ImportCallback callback, const char* extra);
    // Brings in a module, once per VM, even if it fails: by its callback, or else by running "<search path>/<name>.sq"
    // from the first search path that has it. Names that are empty, absolute or hold ".." are refused. Failures are
    // logged.
    void import(const char* name);
    ImportLibrary getLibrary() const;

    // Makes a script thread and appends it to the list; the next processEvents() runs it, or the one in progress. Valid
    // until it has ended, at least until the next processEvents().
    Thread& createThread(const Object& closure);
    // The same; at its end the function gets what the closure has returned, resp. null and false when it has failed. A
    // thread that ends with the VM is not told.
    using ThreadEnd = std::function<void(const Object& result, bool isGood)>;
    Thread& createThread(const Object& closure, ThreadEnd onEnd);
    // The same with arguments for the closure, which main chunks find in their `vargv`.
    Thread& createThread(const Object& closure, const kiv::Vector<Object>& arguments, ThreadEnd onEnd);
    // One pass: runs every thread whose time has come until it waits again or ends. From inside a script it returns at
    // once.
    void processEvents();
    bool isCurrentThreadsAsyncQueueAborting() const;
    bool threadsActive() const;
    // How many milliseconds a loop around processEvents() may pause, at most `longest`: none when a thread wants to go
    // on at once, until the first one that sleeps, or 1 when one waits for anything else.
    unsigned getIdleTime(unsigned longest) const;
    // The script thread that is running; null outside processEvents().
    Thread* getCurrentThread() const;
    // For native functions, `return vm.suspend(v, ...)`: lets the script thread that calls wait for the condition; the
    // call then returns null to the script. Outside of a script thread, and where the engine can't suspend, it returns
    // at once.
    SQInteger suspend(SQVM* v, WakeCondition condition);
    // Ends a script that has run for so long in one go, native functions that it calls included, by a script error
    // that nothing catches: one that never pauses would stop the process. 0, as at first, for no limit; then it costs
    // nothing. It is seen where a script function is called or a line begins, not in a native function that does not
    // return. Coroutines of scripts that were made before are not watched.
    void setWatchdog(unsigned milliseconds);
    // Whether a script runs.
    bool isRunning() const;
    // Frees script values that only refer to each other; nothing else does. Returns their number. Not in a script.
    int64_t collectGarbage();

protected:
    void initImport();

private:
    friend class AsyncQueue;
    friend class ImportLibrary;
    class Threads;
    class Imports;

    void build();
    void closeEngine();

    Object newClosureOf(SQFUNCTION function, const void* userData, size_t size, void (*copy)(void*, const void*),
                        SQRELEASEHOOK release) const;

    SQVM* m_vm;
    std::unique_ptr<Threads> m_threads;
    std::unique_ptr<Imports> m_imports;
};

// The modules of a VM, in the order of their names; it must outlive this.
class KIV_API VM::ImportLibrary {
public:
    explicit ImportLibrary(const VM& vm) : m_vm(vm) {}

    kiv::Vector<kiv::String> getSearchPaths() const;
    kiv::Vector<kiv::String> getCallbackNames() const;
    // What was asked for, whether it could be brought in or not.
    bool isImported(const char* name) const;
    kiv::Vector<kiv::String> getImported() const;

private:
    const VM& m_vm;
};

} // namespace kivSq

namespace kiv {

// Registers the modules that come with the library: "kiv.System" and one for each class, "kiv.GUID" and so on.
KIV_API void CoreImports(kivSq::VM* vm);

} // namespace kiv
