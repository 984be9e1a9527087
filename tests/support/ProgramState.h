#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

// What a test or a program started by one asks the system about itself.
namespace support {

// Open handles, resp. descriptors, of this process.
size_t countOpenHandles();
// A lock on Windows gets one when threads first meet at it: so many may come late.
extern const size_t handlesOfLocks;
size_t countThreads();
// Of this process, in the machine's memory.
uint64_t countResidentBytes();

// Whether there are child processes that nobody has waited for; takes one, when it has ended, from whoever waits for
// it. Never on systems where several may do that.
bool hasChildren();
bool takeEndedChild(int64_t id);

// Whether a write to a pipe that nobody reads ends this program. Systems without such a signal: never.
bool isBrokenPipeIgnored();
void setBrokenPipeIgnored(bool isIgnored);

// Sends an interrupt to this thread, as from the terminal. False, and nothing sent, where it would reach other
// programs.
bool raiseInterrupt();

// What programs started from here on find under this name; null for nothing.
void setEnvironment(const char* name, const char* value);

// Ends this program as if it were killed: no part of it has a last word. The C library's ways out may flush a stream
// that another thread has just written, for a second time.
[[noreturn]] void die();

// Lets everybody on the machine write to a file or a folder; false where that can't be done.
bool letEverybodyWrite(const std::filesystem::path& path);

// Whether Windows is not the real one.
bool isWine();

// Standard streams without conversion of line ends.
void useBinaryStreams();

void closeStandardInput();

// Starts a program that works on the standard streams of this one; what a shell says to that, 0 when it could.
int runInBackground(const std::string& program, const std::string& argument);

} // namespace support
