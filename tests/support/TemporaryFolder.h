#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>

namespace support {

// A folder for one test, outside of ASCII, for paths are UTF-8 on every system.
class TemporaryFolder {
public:
    TemporaryFolder()
        : m_folder(std::filesystem::temp_directory_path() /
                   std::filesystem::path(u8"kiv-\u00e4\u4e16-" + digits(std::random_device()()))) {
        std::filesystem::create_directories(m_folder);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    // The name is UTF-8.
    std::filesystem::path path(const std::string& name) const {
        return m_folder / std::u8string(name.begin(), name.end());
    }
    // Also of what is no UTF-8.
    std::string utf8(const std::string& name) const {
        const std::u8string folder = (m_folder / "").u8string();
        return std::string(folder.begin(), folder.end()) + name;
    }

    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
    }
    std::string read(const std::string& name) const {
        std::ifstream stream(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }
    std::set<std::string> names() const {
        std::set<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder))
            all.insert(entry.path().filename().string());
        return all;
    }

private:
    static std::u8string digits(unsigned number) {
        const std::string text = std::to_string(number);
        return std::u8string(text.begin(), text.end());
    }

    const std::filesystem::path m_folder;
};

} // namespace support
