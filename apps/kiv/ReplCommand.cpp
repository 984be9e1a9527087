#include "ReplCommand.h"

#include "LineInput.h"
#include "ReplInput.h"
#include "ScriptHost.h"
#include "ValueText.h"

#include "kiv/platform/Console.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace kiv::app {

namespace {

using internal::StandardStream;
using kivSq::Object;

constexpr size_t longestInput = 1 << 20;
constexpr const char* sourceName = "input";
constexpr size_t usualColumns = 80;
constexpr const char* help = ".help  this\n"
                             ".quit  ends it, as the end of input does (Ctrl-D, on Windows Ctrl-Z and Enter)\n"
                             "Anything else is a script. The value of an expression is shown and becomes _. Locals\n"
                             "end with their input; what is to stay is a slot: x <- 1. Ctrl-C drops the line, or no\n"
                             "longer waits for the input that runs. import(\"name\") finds name.sq in this folder.\n";

// Reads a line at a time on a thread of its own, when it is asked for one.
class Reader {
public:
    struct Event {
        LineInput::Result result;
        std::string line;
    };

    // `onEvent` is called on that thread.
    Reader(LineInput& input, std::function<void()> onEvent);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    // Waits until the read in progress has ended.
    ~Reader();

    void ask(std::string prompt);
    std::optional<Event> take();

private:
    void work();

    LineInput& m_input;
    const std::function<void()> m_onEvent;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    // Guarded by the mutex.
    std::optional<std::string> m_prompt; // that is asked with
    std::optional<Event> m_event;
    bool m_isEnding = false;
    std::thread m_thread;
};

Reader::Reader(LineInput& input, std::function<void()> onEvent)
    : m_input(input), m_onEvent(std::move(onEvent)), m_thread([this] { work(); }) {}

Reader::~Reader() {
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_one();
    m_input.cancel();
    m_thread.join();
}

void Reader::ask(std::string prompt) {
    {
        const std::lock_guard lock(m_mutex);
        m_prompt = std::move(prompt);
    }
    m_changed.notify_one();
}

std::optional<Reader::Event> Reader::take() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_event, std::nullopt);
}

void Reader::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_prompt || m_isEnding; });
        if (m_isEnding) return;
        const std::string prompt = *std::exchange(m_prompt, std::nullopt);
        lock.unlock();
        Event event;
        event.result = m_input.read(prompt, event.line);
        lock.lock();
        m_event = std::move(event);
        m_onEvent();
    }
}

class Repl {
public:
    Repl();

    int run();

private:
    void ask();
    void restorePrompt();
    void onInterrupt();
    void onEvent(const Reader::Event& event);
    void onLine(const std::string& line);
    void onEnd();
    void complain(std::string_view text);
    Object compile(const std::string& source);
    void evaluate(const std::string& source);
    void show(const Object& result);

    const bool m_isTerminal = internal::isTerminal(StandardStream::Input);
    ScriptHost m_host;
    const std::unique_ptr<LineInput> m_input;
    Reader m_reader;
    std::string m_source;      // of the input so far
    std::string m_prompt;      // empty when no input is asked for
    uint64_t m_evaluation = 0; // the number of the one that is waited for; others have been left alone
    bool m_isEvaluating = false;
    bool m_isOver = false;
    bool m_hasFailed = false;
};

std::unique_ptr<LineInput> makeInput() {
    std::unique_ptr<LineInput> edited = makeEditedInput();
    return edited ? std::move(edited) : makePlainInput();
}

Repl::Repl() : m_input(makeInput()), m_reader(*m_input, [this] { m_host.wake(); }) {
    m_host.setCompact();
    m_host.setArguments({});
    m_host.getVM().addImportSearchPath(".");
}

int Repl::run() {
    if (m_isTerminal) ScriptHost::print("kiv: .help tells what there is, .quit ends\n");
    ask();
    while (!m_isOver) {
        m_host.pump();
        if (System::getHitSIGINT()) onInterrupt();
        restorePrompt();
        if (const std::optional<Reader::Event> event = m_reader.take()) onEvent(*event);
    }
    return m_hasFailed && !m_isTerminal ? 1 : 0;
}

void Repl::ask() {
    ScriptHost::finishLine();
    m_prompt = m_source.empty() ? "> " : "... ";
    ScriptHost::setPrompting(m_isTerminal);
    m_reader.ask(m_prompt);
}

// Script threads have printed where the user is about to type. What is typed already is not shown again.
void Repl::restorePrompt() {
    if (!m_isTerminal || m_prompt.empty() || ScriptHost::isPrompting()) return;
    ScriptHost::finishLine();
    ScriptHost::print(m_prompt);
    ScriptHost::setPrompting(true);
}

void Repl::complain(std::string_view text) {
    internal::writeStandardError(fmt::format("kiv repl: {}\n", text));
    m_hasFailed = true;
}

void Repl::onInterrupt() {
    if (!m_isTerminal) {
        complain("interrupted");
        m_isOver = true;
        return;
    }
    System::setHitSIGINT(false);
    m_source.clear();
    if (m_isEvaluating) {
        m_isEvaluating = false;
        ++m_evaluation;
        ScriptHost::print("it goes on without being waited for\n");
        ask();
    } else {
        m_prompt = "> ";
        ScriptHost::setPrompting(false);
        ScriptHost::print("\n"); // the terminal has dropped the line
    }
}

void Repl::onEvent(const Reader::Event& event) {
    m_prompt.clear();
    ScriptHost::setPrompting(false);
    switch (event.result) {
    case LineInput::Result::Line:
        return onLine(event.line);
    case LineInput::Result::TooLong:
        complain("the line is too long");
        m_source.clear();
        return ask();
    case LineInput::Result::Cancelled:
        System::setHitSIGINT(false);
        m_source.clear();
        return ask();
    case LineInput::Result::End:
        return onEnd();
    }
}

void Repl::onEnd() {
    if (m_isTerminal)
        ScriptHost::print("\n");
    else if (!m_source.empty())
        complain("the input ends too early");
    m_isOver = true;
}

void Repl::onLine(const std::string& line) {
    if (m_source.empty()) {
        if (line == ".quit") return static_cast<void>(m_isOver = true);
        if (line == ".help") return ScriptHost::print(help), ask();
    }
    m_source += line + '\n';
    if (m_source.find_first_not_of(" \t\n") == m_source.npos) m_source.clear();
    if (m_source.size() > longestInput) {
        complain("the input is too long");
        m_source.clear();
    }
    if (m_source.empty() || isIncomplete(m_source)) return ask();
    evaluate(std::exchange(m_source, {}));
}

// As an expression, if it is one; what is wrong is told of the text as it was typed.
Object Repl::compile(const std::string& source) {
    if (Object closure = m_host.tryToCompile("return (" + source + ")", sourceName)) return closure;
    return m_host.getVM().newClosure(source.c_str(), static_cast<unsigned>(source.size()), sourceName);
}

void Repl::evaluate(const std::string& source) {
    const Object closure = compile(source);
    if (!closure) {
        m_hasFailed = true;
        return ask();
    }
    m_isEvaluating = true;
    m_host.getVM().createThread(closure, [this, number = ++m_evaluation](const Object& result, bool isGood) {
        if (!isGood) m_hasFailed = true;
        if (number != m_evaluation) return;
        m_isEvaluating = false;
        if (isGood) show(result);
        ask();
    });
}

void Repl::show(const Object& result) {
    if (result.isNull()) return;
    m_host.getVM().getRootTable().set("_", result);
    const unsigned width = internal::getTerminalWidth(StandardStream::Output);
    ScriptHost::finishLine();
    ScriptHost::print(showValue(result, width > 0 ? width : usualColumns) + '\n');
}

} // namespace

void ReplCommand::describe(CLI::App& app) {
    app.footer(
        "What is typed is run as a script thread, and the value of an expression shown; the last one is _. While\n"
        "brackets are open the input goes on in the next line. \".help\" tells more. When standard input is no\n"
        "terminal there are no prompts, and the exit status is 1 when any input has failed.");
}

int ReplCommand::run() const {
    return Repl().run();
}

} // namespace kiv::app
