#include "Silence.h"

#include "kiv/platform/File.h"
#include "kiv/store/StoreFile.h"
#include "kiv/store/StoreFileReader.h"

#include <cstdlib>
#include <filesystem>
#include <random>

namespace {

const std::string path =
    (std::filesystem::temp_directory_path() / ("kiv-store-" + std::to_string(std::random_device()()))).string();

std::string written(const std::string& bytes) {
    if (!kiv::platform::writeWholeFile(path, bytes.data(), bytes.size())) std::abort();
    return path;
}

std::string contents() {
    std::string bytes;
    const auto space = [&bytes](uint64_t size) { return bytes.resize(size), bytes.data(); };
    if (kiv::platform::readWholeFile(path, 1 << 30, space).status != kiv::platform::FileStatus::Ok) std::abort();
    return bytes;
}

} // namespace

// The input is a store file. What is taken for whole is written again byte for byte; of anything else the store has
// nothing, and the place of the damage is in the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    kiv::StoreFileReader reader(written(bytes));
    kiv::MemoryStore read(false), loaded(false);
    kiv::Item key, value;
    while (reader.read(key, value)) read.set(key, value);
    if (reader.getOffset() > size) std::abort();
    if (kiv::StoreFile::load(&loaded, path) != reader.isWhole()) std::abort();
    if (!reader.isWhole() && (reader.getReason().empty() || loaded.first(key))) std::abort();
    // Right or not: with a trailer of its own it is a file that can be read.
    if (!kiv::StoreFile::save(&read, path) || !kiv::StoreFile::load(&loaded, path)) std::abort();
    if (reader.isWhole() && contents() != bytes) std::abort();
    std::filesystem::remove(path);
    return 0;
}
