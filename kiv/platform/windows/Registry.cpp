#include "kiv/platform/Registry.h"

#include "kiv/platform/windows/WideText.h"

#include <windows.h>

namespace kiv::platform {

namespace {

class RegistryKey {
public:
    RegistryKey() = default;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() {
        if (m_key) ::RegCloseKey(m_key);
    }

    bool create(const std::wstring& path) {
        const REGSAM access = KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
        return ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                 &m_key, nullptr) == ERROR_SUCCESS;
    }
    bool open(const std::wstring& path) {
        return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE, &m_key) == ERROR_SUCCESS;
    }
    HKEY get() const { return m_key; }

private:
    HKEY m_key = nullptr;
};

} // namespace

bool writeRegistryValue(const std::string& keyPath, const std::string& valueName, const void* bytes, size_t size) {
    std::wstring path, name;
    RegistryKey key;
    return size <= MAXDWORD && wideText(keyPath, path) && wideText(valueName, name) && key.create(path) &&
           ::RegSetValueExW(key.get(), name.c_str(), 0, REG_BINARY, static_cast<const BYTE*>(bytes),
                            static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

bool readRegistryValue(const std::string& keyPath, const std::string& valueName, const RegistrySpace& space) {
    std::wstring path, name;
    RegistryKey key;
    if (!wideText(keyPath, path) || !wideText(valueName, name) || !key.open(path)) return false;
    DWORD type = REG_NONE, size = 0;
    if (::RegQueryValueExW(key.get(), name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return false;
    if (type != REG_BINARY || size == 0) return false;
    // Someone may write in between: a value that has grown is no success, one that has shrunk tells another size.
    DWORD read = size;
    return ::RegQueryValueExW(key.get(), name.c_str(), nullptr, &type, static_cast<BYTE*>(space(size)), &read) ==
               ERROR_SUCCESS &&
           type == REG_BINARY && read == size;
}

} // namespace kiv::platform
