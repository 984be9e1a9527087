#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/rpc/RpcContext.h"

#include <functional>

namespace kiv {

// The remote calls that a program answers: handlers by name. How calls arrive and who may make them is a transport's
// business (RpcChannel is one): a handler asks its context.
// Ownership: counted. Threads: one, usually the main thread. A handler that throws is logged, and its call finished
// with an empty result.
class KIV_API RpcProvider : public Object {
    KIV_OBJECT(RpcProvider, Object)
public:
    using Handler = std::function<void(const RpcContext&)>;

    // For listings.
    struct Call {
        String name;
        String category;
        String description;
        String parameters;
    };

    RpcProvider();
    RpcProvider(const RpcProvider&) = delete;
    RpcProvider& operator=(const RpcProvider&) = delete;
    ~RpcProvider() override;

    // Registers or replaces what answers `name`, in the category that is set. The texts are for listings and copied;
    // null is empty. Requires: name and handler are not null; else logged and ignored.
    void addRPC(const char* name, const Handler& handler, const char* description, const char* parameters);
    void addRPC(const char* name, Handler&& handler, const char* description, const char* parameters);
    void removeRPC(const char* name);
    bool hasRPC(const char* name) const;
    // Of the calls that are added next. The pointer itself is kept: the text must outlive its use.
    void setCategory(const char* category) { m_category = category; }

    // Calls the handler; false, and nothing done, when there is none. It may remove or replace itself.
    bool call(const RpcContext& context);
    // By category, then by name.
    Vector<Call> getCalls() const;

private:
    struct Entry {
        Handler handler;
        Call call;
    };

    Map<String, Entry> m_entries;
    const char* m_category = nullptr;
};

} // namespace kiv
