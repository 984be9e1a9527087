#include "tests/support/SystemFaults.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <csignal>
#include <sys/resource.h>
#endif

namespace support {

#if defined(_WIN32)

bool hasRegistry() {
    return true;
}

bool writeRegistryText(const char* keyPath, const char* valueName) {
    return ::RegSetKeyValueA(HKEY_LOCAL_MACHINE, keyPath, valueName, REG_SZ, "text", 5) == ERROR_SUCCESS;
}

bool deleteRegistryKey(const char* keyPath) {
    return ::RegDeleteKeyA(HKEY_LOCAL_MACHINE, keyPath) == ERROR_SUCCESS;
}

FileSizeLimit::FileSizeLimit(uint64_t) {}
FileSizeLimit::~FileSizeLimit() = default;

#else

bool hasRegistry() {
    return false;
}

bool writeRegistryText(const char*, const char*) {
    return false;
}

bool deleteRegistryKey(const char*) {
    return false;
}

FileSizeLimit::FileSizeLimit(uint64_t size) {
    rlimit limit;
    ::getrlimit(RLIMIT_FSIZE, &limit);
    m_before = limit.rlim_cur;
    std::signal(SIGXFSZ, SIG_IGN);
    limit.rlim_cur = size;
    m_isInForce = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

FileSizeLimit::~FileSizeLimit() {
    rlimit limit;
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = m_before;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_DFL);
}

#endif

} // namespace support
