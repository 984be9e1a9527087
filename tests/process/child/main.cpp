// The program that the tests of processes start: its first argument says how it behaves.

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/platform/StandardInput.h"
#include "kiv/process/Process.h"
#include "kiv/process/ProcessLockFile.h"
#include "kiv/store/StoreKeeper.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/process/child/PacketCommands.h"
#include "tests/process/child/RpcCommand.h"
#include "tests/support/ProgramState.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

void say(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

// As long as the parent holds the other end.
int waitForEndOfInput() {
    while (std::getchar() != EOF) {
    }
    return 0;
}

// Until somebody ends it; not for ever should a test be stopped.
int stay() {
    std::this_thread::sleep_for(std::chrono::minutes(2));
    return 1;
}

int writeMany(std::FILE* stream, size_t count, const std::string& text) {
    for (size_t i = 0; i < count; ++i)
        if (std::fwrite(text.data(), 1, text.size(), stream) != text.size()) return 1;
    return std::fflush(stream);
}

// Each piece at once.
int copyInput() {
    std::vector<char> bytes(1 << 16);
    while (const size_t count = kiv::internal::readStandardInput(bytes.data(), bytes.size()))
        if (std::fwrite(bytes.data(), 1, count, stdout) != count || std::fflush(stdout) != 0) return 1;
    return 0;
}

int report(const Arguments& arguments) {
    for (const std::string& argument : arguments) say("<" + argument + ">\n");
    const std::u8string folder = std::filesystem::current_path().u8string();
    say(std::string(folder.begin(), folder.end()) + "\n");
    return 0;
}

int numberLines(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "line " + std::to_string(i) + "\n";
    return writeMany(stderr, 1, text);
}

int endOthers(const std::string& name) {
    const bool isAlone = kiv::Process::terminateProcessesByName(name.c_str(), -1) &&
                         kiv::Process::waitForProcessesToTerminate({name}, 60000);
    say(isAlone ? "alone\n" : "not alone\n");
    return 0;
}

// Two entries that are always the same, in a store file that is saved again and again, and the number that is safe.
int keepStore(const std::string& path) {
    const auto pool = kiv::makeObject<kiv::ThreadPool>();
    kiv::StoreKeeper keeper;
    if (!keeper.open(path)) return 1;
    for (int i = 1;; ++i) {
        for (const char* key : {"a", "b"}) keeper.getStore()->set(key, i);
        keeper.saveSoon();
        if (i % 8 == 0 && keeper.flush()) say(std::to_string(i) + "\n");
    }
}

int holdLock(const std::string& path) {
    kiv::ProcessLockFile lock(path.c_str());
    say(lock.tryLock() ? "locked\n" : "refused\n");
    return waitForEndOfInput();
}

// Its child must be ended by nothing but its own end.
int startBoundChild(const std::string& program) {
    kiv::logging::g_hideVerboseOutputInConsole = true;
    kiv::Process child;
    if (!child.spawn(program, {program, "stay"}, nullptr, true)) return 1;
    say(std::to_string(child.getProcessId()) + "\n");
    return stay();
}

// From a program without a standard input of its own, whose number the pipes may get.
int startFromClosed(const std::string& program) {
    support::closeStandardInput();
    kiv::logging::g_hideVerboseOutputInConsole = true;
    for (const bool isBound : {false, true}) {
        kiv::Process child;
        if (!child.spawn(program, {program, "copy"}, nullptr, isBound) || !child.writeLine("passed on")) return 1;
        kiv::String line;
        while (child.tick() && !child.readLine(line)) {
        }
        say(line + "\n");
        child.terminate(true);
    }
    return 0;
}

} // namespace

int main(int count, char** values) {
    support::useBinaryStreams();
    Arguments arguments = kiv::platform::commandLineArguments(count, values);
    if (arguments.empty()) return runWorker();
    const std::string command = arguments.front();
    arguments.erase(arguments.begin());
    if (command == "exit") return std::stoi(arguments.at(0));
    if (command == "wait") return waitForEndOfInput();
    if (command == "stay") return stay();
    if (command == "deaf") return support::closeStandardInput(), say("deaf\n"), stay();
    if (command == "flood") return writeMany(stdout, std::stoul(arguments.at(0)), std::string(1 << 20, 'x'));
    if (command == "errors") return numberLines(std::stoi(arguments.at(0)));
    if (command == "half") return say("whole\r\nhalf"), std::_Exit(3), 0;
    if (command == "prompt") return say("what is your name? "), waitForEndOfInput();
    if (command == "copy") return copyInput();
    if (command == "report") return report(arguments);
    if (command == "handles") return say(std::to_string(support::countOpenHandles()) + "\n"), waitForEndOfInput();
    if (command == "signal") return say(support::isBrokenPipeIgnored() ? "ignored\n" : "default\n"), 0;
    if (command == "alone") return endOthers(arguments.at(0));
    if (command == "keep") return keepStore(arguments.at(0));
    if (command == "lock") return holdLock(arguments.at(0));
    if (command == "parent") return startBoundChild(arguments.at(0));
    if (command == "leave") return support::runInBackground(arguments.at(0), "wait");
    if (command == "closed") return startFromClosed(arguments.at(0));
    if (command == "rpc") return answerRemoteCalls();
    return runPacketCommand(command, arguments).value_or(99);
}
