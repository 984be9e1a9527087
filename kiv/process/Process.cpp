#include "kiv/process/Process.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/OsError.h"
#include "kiv/platform/ProcessList.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

namespace kiv {

namespace {

constexpr size_t ringCapacity = size_t{1} << 20;
constexpr size_t inputLimit = size_t{64} << 20;
constexpr auto timeBetweenLooks = std::chrono::milliseconds(50);

std::mutex& spawnMutex() {
    static std::mutex mutex;
    return mutex;
}

template <class Use>
void forEachProcess(const char* name, const Use& use) {
    for (const platform::RunningProcess& process : platform::listProcesses())
        if (name && platform::isSameProgram(process.name, name)) use(process);
}

} // namespace

const int32_t Process::stillActive;

internal::ProcessEnd::~ProcessEnd() = default;

Process::Process() : m_input(ringCapacity), m_output(ringCapacity), m_errors(ringCapacity) {}

Process::~Process() {
    for (const Attached& attached : m_attached) attached.end->onProcessDestroyed();
}

// ---- Starting and stopping.

bool Process::spawn(String path) {
    return spawn(path, {path}, nullptr, false);
}

bool Process::spawn(String path, const List<String>& arguments, const char* workingDirectory, bool killWithParent) {
    // The child may have ended since the last look at it.
    if (m_child.isStarted()) updateStatus();
    if (m_child.isStarted()) return failSpawn(path, platform::ChildProcess::getBusyError());
    reset();
    m_path = path;
    platform::ChildStart start{path, {arguments.begin(), arguments.end()}, {}, workingDirectory, killWithParent};
    if (arguments.empty()) start.arguments = {path};
    start.commandLine = platform::joinArguments(start.arguments);
    logging::MessageStream(0, 2) << "executing '" << start.commandLine << "'";
    int32_t failure;
    {
        // Handles that are meant for one child must not get into another that is started at the same moment.
        const std::lock_guard lock(spawnMutex());
        failure = m_child.start(start);
    }
    if (failure != 0) return failSpawn(path, failure);
    m_exitStatus = stillActive;
    return true;
}

bool Process::failSpawn(const String& path, int32_t code) {
    set_error(code);
    logging::MessageStream(3, 2) << "can not start subprocess " << path << " error: " << error_text();
    return false;
}

void Process::reset() {
    for (const Pipe pipe : {Pipe::Input, Pipe::Output, Pipe::Error}) m_child.close(pipe);
    m_input.clear();
    for (Incoming* const from : {&m_output, &m_errors}) {
        from->ring.clear();
        from->scanned = 0;
    }
    m_exitStatus = -1;
    m_error = 0;
    m_hasRead = m_hasDroppedErrors = m_isInputFull = false;
    for (const Attached& attached : m_attached) attached.end->onSpawn();
}

bool Process::terminate(bool wait) {
    close_stdin();
    close_stdout();
    close_stderr();
    if (!m_child.isStarted()) return false;
    if (const int32_t failure = m_child.kill(wait)) set_error(failure);
    m_exitStatus = -1;
    return true;
}

bool Process::sendBreak() {
    if (!m_child.isStarted()) return false;
    const int32_t failure = m_child.interrupt();
    if (failure != 0) set_error(failure);
    return failure == 0;
}

// ---- Moving bytes.

bool Process::tick() {
    processIO();
    platform::ChildProcess::collectReleased();
    if (!m_child.isStarted()) return false;
    if (updateStatus()) return true;
    // What it has written between the reading above and its end.
    read_stdout();
    read_stderr();
    return false;
}

bool Process::updateStatus() {
    const platform::ExitStatus status = m_child.getExitStatus();
    if (status.state == platform::ExitStatus::Running) {
        m_exitStatus = stillActive;
        return true;
    }
    if (status.state == platform::ExitStatus::Unknown) set_error(status.error);
    m_exitStatus = status.code;
    close_stdin();
    return false;
}

void Process::processIO() {
    write_stdin();
    read_stdout();
    read_stderr();
}

void Process::write_stdin() {
    while (isInputOpen() && !m_input.empty()) {
        const std::string_view run = m_input.readable();
        const platform::PipeResult result = m_child.write(run.data(), run.size());
        m_input.consume(result.count);
        if (result.status != platform::PipeResult::Open) {
            set_error(result.error);
            return close_stdin();
        }
        if (result.count < run.size()) return;
    }
    // What a large packet took is given back.
    if (m_input.empty() && m_input.capacity() > ringCapacity) m_input.clear();
}

void Process::read_stdout() {
    readPipe(Pipe::Output, m_output.ring);
}

void Process::read_stderr() {
    // One that has ended is stopped by nothing any more.
    if (m_errors.ring.full() && m_child.isStarted()) dropOldErrors();
    readPipe(Pipe::Error, m_errors.ring);
}

void Process::readPipe(Pipe pipe, internal::ByteRing& ring) {
    while (m_child.isOpen(pipe) && !ring.full()) {
        const std::span<char> run = ring.writable();
        const platform::PipeResult result = m_child.read(pipe, run.data(), run.size());
        ring.commit(result.count);
        if (result.count > 0) m_hasRead = true;
        if (result.status == platform::PipeResult::Failed) set_error(result.error);
        if (result.status != platform::PipeResult::Open) return m_child.close(pipe);
        if (result.count == run.size()) continue;
        if (m_child.isStarted()) return;
        // Processes that the child has started may keep the pipe open for long; nobody waits for them.
        if (result.count == 0) return m_child.close(pipe);
    }
}

// Half of them at least, for this is not to happen again with every line.
void Process::dropOldErrors() {
    if (!m_child.isOpen(Pipe::Error)) return;
    if (!m_hasDroppedErrors)
        logging::MessageStream(2, 2) << "[PROCESS] nobody reads the error output of " << m_path
                                     << ", its oldest lines are dropped";
    m_hasDroppedErrors = true;
    const size_t lineEnd = m_errors.ring.find('\n', ringCapacity / 2);
    m_errors.ring.consume(lineEnd == internal::ByteRing::npos ? m_errors.ring.size() : lineEnd + 1);
    m_errors.scanned = 0;
}

void Process::close_stdin() {
    m_child.close(Pipe::Input);
    m_input.clear();
}

void Process::close_stdout() {
    m_child.close(Pipe::Output);
}

void Process::close_stderr() {
    m_child.close(Pipe::Error);
}

char* Process::reserveInput(size_t size) {
    if (!isInputOpen()) return nullptr;
    char* const room = m_input.reserve(size, inputLimit);
    if (!room && !m_isInputFull)
        logging::MessageStream(3, 2) << "[PROCESS] " << m_path << " does not read its input, " << size
                                     << " bytes and what follows are dropped";
    m_isInputFull = !room;
    return room;
}

void Process::consumeOutput(size_t size) {
    m_output.ring.consume(size);
    m_output.scanned = 0;
}

bool Process::canOutputGrow() const {
    return m_child.isOpen(Pipe::Output) && !m_output.ring.full() && getOutput().size() == m_output.ring.size();
}

// ---- Bytes and lines.

bool Process::readBytes(std::string& bytes) {
    return takeBytes(m_output, bytes);
}

bool Process::readErrBytes(std::string& bytes) {
    return takeBytes(m_errors, bytes);
}

bool Process::takeBytes(Incoming& from, std::string& bytes) {
    if (from.ring.empty()) return false;
    while (!from.ring.empty()) {
        const std::string_view run = from.ring.readable();
        bytes += run;
        from.ring.consume(run.size());
    }
    from.scanned = 0;
    return true;
}

bool Process::readLine(String& line) {
    return takeLine(Pipe::Output, m_output, line);
}

bool Process::readErrLine(String& line) {
    return takeLine(Pipe::Error, m_errors, line);
}

bool Process::takeLine(Pipe pipe, Incoming& from, String& line) {
    size_t end = from.ring.find('\n', from.scanned);
    if (end == internal::ByteRing::npos && !m_child.isStarted() && !from.ring.full()) {
        // The child has gone: what it left in the pipe has no tick to wait for.
        from.scanned = from.ring.size();
        readPipe(pipe, from.ring);
        end = from.ring.find('\n', from.scanned);
    }
    const bool isWhole = end != internal::ByteRing::npos;
    from.scanned = from.ring.size();
    if (!isWhole && (from.ring.empty() || (!from.ring.full() && m_child.isOpen(pipe)))) return false;
    std::string text;
    from.ring.take(isWhole ? end + 1 : from.ring.size(), text);
    from.scanned = 0;
    if (isWhole) text.pop_back();
    if (isWhole && text.ends_with('\r')) text.pop_back();
    line = std::move(text);
    return true;
}

bool Process::writeLine(const String& line) {
    char* const room = reserveInput(line.size() + 1);
    if (!room) return false;
    std::memcpy(room, line.c_str(), line.size());
    room[line.size()] = '\n';
    commitInput(line.size() + 1);
    return true;
}

// ---- Queries.

bool Process::isEOF() const {
    return isEnded(Pipe::Output, m_output);
}

bool Process::isErrEOF() const {
    return isEnded(Pipe::Error, m_errors);
}

bool Process::popReadAction() {
    return std::exchange(m_hasRead, false);
}

String Process::error_text() const {
    return platform::systemErrorText(m_error);
}

// ---- Processes of the machine.

int64_t Process::getCurrentProcessId() {
    return platform::getCurrentProcessId();
}

bool Process::processExists(const char* name) {
    bool exists = false;
    forEachProcess(name, [&](const platform::RunningProcess&) { exists = true; });
    return exists;
}

bool Process::processExists(int64_t processId) {
    return platform::isProcessRunning(processId);
}

bool Process::terminateProcessesByName(const char* name, int64_t exceptProcessId) {
    const int64_t self = getCurrentProcessId();
    bool isDone = true;
    forEachProcess(name, [&](const platform::RunningProcess& process) {
        if (process.id != self && process.id != exceptProcessId) isDone &= platform::killProcess(process);
    });
    return isDone;
}

bool Process::waitForProcessesToTerminate(const Set<String>& names, int timeout) {
    const uint32_t start = Clock::current().getTime();
    const int64_t self = getCurrentProcessId();
    const auto isWaitedFor = [&](const platform::RunningProcess& process) {
        return process.id != self && std::any_of(names.begin(), names.end(), [&](const String& name) {
                   return platform::isSameProgram(process.name, name);
               });
    };
    for (;;) {
        const std::vector<platform::RunningProcess> processes = platform::listProcesses();
        if (std::none_of(processes.begin(), processes.end(), isWaitedFor)) return true;
        if (timeout >= 0 && Clock::timeDifference(Clock::current().getTime(), start) >= timeout) return false;
        std::this_thread::sleep_for(timeBetweenLooks);
    }
}

} // namespace kiv
