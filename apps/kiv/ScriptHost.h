#pragma once

#include "kiv/platform/Console.h"
#include "kiv/platform/Waker.h"
#include "kiv/script/VM.h"
#include "kiv/system/System.h"

#include <string>
#include <string_view>
#include <vector>

namespace kiv::app {

// A process that runs scripts: the System with its VM and the main pump. What scripts print goes to standard output as
// it is, the log to standard error. At the root scripts also find the names of the engine's own libraries, where its
// plain interpreter has them. One at a time; main thread, but for wake().
class ScriptHost : private internal::OutputSink {
public:
    ScriptHost();
    ScriptHost(const ScriptHost&) = delete;
    ScriptHost& operator=(const ScriptHost&) = delete;
    ~ScriptHost() override;

    kivSq::VM& getVM() { return *System::getVM(); }
    // Null when the text is wrong; not logged.
    kivSq::Object tryToCompile(const std::string& text, const char* name);
    // The array "vargv" at the root; gives its values.
    Vector<kivSq::Object> setArguments(const std::vector<std::string>& arguments);
    // One pass of the pump; then waits a moment, or until wake(), unless a script thread wants to go on at once.
    void pump();
    void wake() { m_waker.wake(); }
    // To standard output, in order with what scripts print.
    static void print(std::string_view text);
    // A line feed where what was printed last does not end with one.
    static void finishLine();
    // Says that the user sees a prompt, so that output begins a line of its own; false once it has.
    static void setPrompting(bool isPrompting);
    static bool isPrompting();
    // Log lines without the local variables of call stacks.
    void setCompact() { m_isCompact = true; }

private:
    // What is logged.
    bool write(std::string_view text) override;

    platform::Waker m_waker;
    internal::OutputSink* m_sinkBefore;
    bool m_isCompact = false;
    bool m_isQuiet = false; // on the main thread
};

} // namespace kiv::app
