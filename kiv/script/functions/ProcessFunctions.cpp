#include "kiv/logging/MessageStream.h"
#include "kiv/platform/Shell.h"
#include "kiv/process/Process.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VMThread.h"

namespace kivSq::internal {
namespace {

constexpr size_t mostOutput = size_t{64} << 20;

// A command that a script waits for; it ends the program that runs when it is not waited for any more.
class ScriptCommand : public kiv::Process {
public:
    // What is written goes to the log, or is the result.
    enum class Output { Log, Result };

    explicit ScriptCommand(Output output) : m_output(output) {}
    ScriptCommand(const ScriptCommand&) = delete;
    ScriptCommand& operator=(const ScriptCommand&) = delete;
    ~ScriptCommand() override {
        sendBreak(); // to what it has started itself, too
        terminate(false);
    }

    bool start(const kiv::platform::Command& command) {
        if (command.path.empty()) return false;
        const kiv::List<kiv::String> arguments(command.arguments.begin(), command.arguments.end());
        if (!spawn(command.path, arguments, nullptr, true)) return false;
        close_stdin();
        return true;
    }
    // Whether it has ended and everything it has written is here. Throws when that is too much.
    bool hasEnded() {
        const bool isRunning = tick();
        read();
        if (isRunning) return false;
        for (; !isEOF() || !isErrEOF(); read()) tick();
        if (m_output == Output::Log) logLines(true);
        return true;
    }
    void waitForEnd() {
        while (!hasEnded()) waitForBytes(1000);
    }
    void pushResult(SQVM* v) const {
        if (m_output == Output::Log) {
            sq_pushinteger(v, exit_status());
            return;
        }
        sq_newtable(v);
        addSlot(v, "code", static_cast<int64_t>(exit_status()));
        addSlot(v, "out", m_out);
        addSlot(v, "err", m_err);
    }

private:
    template <class T>
    static void addSlot(SQVM* v, const char* name, const T& value) {
        sq_pushstring(v, name, -1);
        Access<T>::push(v, value);
        sq_newslot(v, -3, SQFalse);
    }
    void read() {
        readBytes(m_out);
        readErrBytes(m_err);
        if (m_output == Output::Log) logLines(false);
        if (m_out.size() > mostOutput || m_err.size() > mostOutput)
            throw std::runtime_error("the program writes more than 64 MiB");
    }
    void logLines(bool isEnd) {
        logLines(m_out, 1, isEnd);
        logLines(m_err, 2, isEnd);
    }
    static void logLines(std::string& text, int level, bool isEnd) {
        if (isEnd && !text.empty() && !text.ends_with('\n')) text += '\n';
        size_t from = 0;
        for (size_t end; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
            std::string_view line(text.data() + from, end - from);
            if (line.ends_with('\r')) line.remove_suffix(1);
            kiv::logging::MessageStream(level, 2) << line;
        }
        text.erase(0, from);
    }

    const Output m_output;
    std::string m_out;
    std::string m_err;
};

SQInteger run(SQVM* v, const kiv::platform::Command& command, ScriptCommand::Output output) {
    VM& vm = requireVM(v);
    for (const std::string& argument : command.arguments)
        if (argument.find('\0') != std::string::npos) return sq_throwerror(v, "argument 1: it holds a zero byte");
    const auto child = kiv::makeObject<ScriptCommand>(output);
    if (!child->start(command)) return sq_throwerror(v, "the program can't be started");
    const SQInteger result = vm.suspend(v, WakeCondition([child](SQVM* engine) {
                                            // Null then; the condition goes, and the child with it.
                                            if (requireVM().isCurrentThreadsAsyncQueueAborting()) return true;
                                            if (!child->hasEnded()) return false;
                                            child->pushResult(engine);
                                            return true;
                                        }));
    if (result != 0 && result != SQ_ERROR) return result;
    sq_reseterror(v);
    child->waitForEnd();
    child->pushResult(v);
    return 1;
}

template <ScriptCommand::Output output>
SQInteger runShell(SQVM* v) {
    std::string line;
    if (!Access<std::string>::get(v, 2, line)) return throwMismatch(v, 1, "string", 2);
    return run(v, kiv::platform::shellCommand(line), output);
}

SQInteger runProgram(SQVM* v) {
    std::vector<std::string> arguments;
    for (const Object& value : Object(v, 2).asArray().getValues())
        if (!value.to(arguments.emplace_back())) return throwMismatch(v, 1, "array of strings", 2);
    if (arguments.empty()) return throwMismatch(v, 1, "array of strings", 2);
    return run(v, kiv::platform::programCommand(arguments), ScriptCommand::Output::Result);
}

} // namespace

void addProcessFunctions(SQVM* v, const Object& table) {
    NativeTable(v, table)
        .plain<&runShell<ScriptCommand::Output::Log>>("system", 2)
        .plain<&runShell<ScriptCommand::Output::Result>>("system_ext", 2)
        .plain<&runProgram>("system_ext_array", 2);
}

} // namespace kivSq::internal
