#include "tests/support/SystemFaults.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <csignal>
#include <sys/resource.h>
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIV_IS_SANITIZED 1
#elif defined(__has_feature)
#define KIV_IS_SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define KIV_IS_SANITIZED 0
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

MemoryLimit::MemoryLimit() = default;
MemoryLimit::~MemoryLimit() = default;

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

MemoryLimit::MemoryLimit() {
#if !KIV_IS_SANITIZED
    // The stack may not grow either, so it grows now.
    volatile char stack[256 * 1024];
    for (size_t at = 0; at < sizeof(stack); at += 1024) stack[at] = 0;
    rlimit limit;
    ::getrlimit(RLIMIT_AS, &limit);
    m_before = limit.rlim_cur;
    limit.rlim_cur = 0;
    m_isInForce = ::setrlimit(RLIMIT_AS, &limit) == 0;
#endif
}

MemoryLimit::~MemoryLimit() {
    if (!m_isInForce) return;
    rlimit limit;
    ::getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = m_before;
    ::setrlimit(RLIMIT_AS, &limit);
}

#endif

} // namespace support
