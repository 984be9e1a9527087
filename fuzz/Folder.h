#pragma once

#include <filesystem>
#include <random>
#include <string>

// A folder of this process alone, for as long as it runs. Those of a crash stay.
class Folder {
public:
    Folder() { std::filesystem::create_directories(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string path() const { return m_path.string(); }
    std::string path(const char* name) const { return (m_path / name).string(); }

private:
    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / ("kiv-fuzz-" + std::to_string(std::random_device()()));
};
