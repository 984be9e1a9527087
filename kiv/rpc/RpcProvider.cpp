#include "kiv/rpc/RpcProvider.h"

#include "kiv/logging/ForeignText.h"
#include "kiv/logging/MessageStream.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace kiv {

RpcProvider::RpcProvider() = default;

RpcProvider::~RpcProvider() = default;

void RpcProvider::addRPC(const char* name, const Handler& handler, const char* description, const char* parameters) {
    addRPC(name, Handler(handler), description, parameters);
}

void RpcProvider::addRPC(const char* name, Handler&& handler, const char* description, const char* parameters) {
    if (!name || !handler) {
        logging::MessageStream(3, 2) << "[RPC:" << name << "] a call needs a name and a handler";
        return;
    }
    Entry entry{std::move(handler), {name, m_category, description, parameters}};
    // Whatever was there goes last: its destructor may come back here.
    std::swap(m_entries[name], entry);
}

void RpcProvider::removeRPC(const char* name) {
    const auto dropped = m_entries.extract(String(name));
}

bool RpcProvider::hasRPC(const char* name) const {
    return m_entries.contains(String(name));
}

bool RpcProvider::call(const RpcContext& context) {
    const auto found = m_entries.find(context.getMethodName());
    if (found == m_entries.end()) return false;
    // Copies, since the handler may remove itself, or end this provider or the owner of the context.
    const Handler handler = found->second.handler;
    const RpcContext call = context;
    const auto fail = [&](const char* message) {
        // It may well be about the arguments.
        logging::MessageStream(3, 2) << "[RPC:" << call.getMethodName() << "] " << logging::foreignText(message);
        call.result().clear();
        call.finish();
    };
    try {
        handler(call);
    } catch (const std::exception& failure) {
        fail(failure.what());
    } catch (...) {
        fail("unknown exception");
    }
    return true;
}

Vector<RpcProvider::Call> RpcProvider::getCalls() const {
    Vector<Call> calls;
    for (const auto& [name, entry] : m_entries) calls.push_back(entry.call);
    std::stable_sort(calls.begin(), calls.end(),
                     [](const Call& a, const Call& b) { return a.category.view() < b.category.view(); });
    return calls;
}

} // namespace kiv
