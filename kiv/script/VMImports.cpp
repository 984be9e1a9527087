#include "kiv/script/VMImports.h"

#include "kiv/core/Buffer.h"
#include "kiv/files/File.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/NativeTable.h"

#include <algorithm>
#include <stdexcept>

namespace kivSq {
namespace {

using kiv::logging::MessageStream;

// A module lies below a search path.
bool isModuleName(std::string_view name) {
    if (name.empty() || name.front() == '/' || name.front() == '\\') return false;
    return name.find("..") == std::string_view::npos && name.find(':') == std::string_view::npos;
}

void importModule(const std::string& name) {
    if (name.find('\0') != std::string::npos) throw std::invalid_argument("argument 1: it holds a zero byte");
    internal::requireVM().import(name.c_str());
}

} // namespace

void VM::Imports::import(VM& vm, const std::string& name) {
    // First of all, so that a module that fails, or imports itself, is not tried again.
    if (!names.insert(name).second) return;
    if (const auto found = callbacks.find(name); found != callbacks.end() && found->second.function) {
        const Callback callback = found->second;
        callback.function(&vm, callback.extra.c_str());
    } else {
        importFile(vm, name);
    }
}

void VM::Imports::importFile(VM& vm, const std::string& name) const {
    std::string path;
    if (isModuleName(name)) {
        for (const std::string& folder : searchPaths) {
            std::string candidate = folder + "/" + name + ".sq";
            if (!kiv::File::exists(candidate)) continue;
            path = std::move(candidate);
            break;
        }
    }
    kiv::Buffer content;
    if (path.empty()) {
        MessageStream(3, 2) << "no import found for <" << name << '>';
    } else if (content.loadFromFile(path.c_str(), false)) {
        vm.executeBuffer(reinterpret_cast<const char*>(content.getBytePointer()), content.getSize(), path.c_str());
    } else {
        MessageStream(3, 2) << "import of <" << name << "> failed";
    }
}

// ---- What is registered.

kiv::Vector<kiv::String> VM::ImportLibrary::getSearchPaths() const {
    kiv::Vector<kiv::String> paths;
    for (const std::string& path : m_vm.m_imports->searchPaths) paths.emplace_back(path.c_str());
    return paths;
}

kiv::Vector<kiv::String> VM::ImportLibrary::getCallbackNames() const {
    kiv::Vector<kiv::String> names;
    for (const auto& [name, callback] : m_vm.m_imports->callbacks) names.emplace_back(name.c_str());
    return names;
}

bool VM::ImportLibrary::isImported(const char* name) const {
    return m_vm.m_imports->names.contains(name ? name : "");
}

kiv::Vector<kiv::String> VM::ImportLibrary::getImported() const {
    kiv::Vector<kiv::String> names;
    for (const std::string& name : m_vm.m_imports->names) names.emplace_back(name.c_str());
    std::sort(names.begin(), names.end());
    return names;
}

namespace internal {

void addImportFunction(SQVM* v, const Object& root) {
    NativeTable(v, root).plain<&importModule>("import");
}

} // namespace internal
} // namespace kivSq
