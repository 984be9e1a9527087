#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/TextArg.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

class Buffer;

// Finds resources by name in a list of directories, the one added last first, so that a later one overrides what is in
// the earlier ones. Names are relative paths with "/" on every system, and lead out of no directory.
// The first one made is current() until it dies.
// Ownership: counted. Threads: any. A resource that is not found is the caller's to report.
class KIV_API ResourceLocator : public Object {
    KIV_OBJECT(ResourceLocator, Object)
public:
    // Null when there is none. Takes no reference.
    static ResourceLocator* current();

    ResourceLocator();
    ResourceLocator(const ResourceLocator&) = delete;
    ResourceLocator& operator=(const ResourceLocator&) = delete;
    ~ResourceLocator() override;

    // One that was added before moves to the front. False for an empty path; whether the directory exists is looked at
    // with each resource.
    bool addDirectory(TextArg path);
    // The whole file into `out`. False, and `out` empty, when the name is none or no directory has a file of that name
    // that can be read.
    bool fetch(TextArg name, Buffer& out) const;

    // True for parts that are separated by "/", none of them empty, ending in "." or " " (so neither "." nor ".."),
    // the name of a device like "con" or "Nul.txt", or with a control character or one of \ : * ? " < > |.
    static bool isResourceName(std::string_view name);

private:
    using Directories = std::vector<std::string>;

    mutable std::mutex m_mutex;
    std::shared_ptr<const Directories> m_directories; // guarded by the mutex; in the order of searching
};

} // namespace kiv
