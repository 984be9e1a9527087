#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace kiv {

class RpcContext;

// One remote call as its transport sees it: what is called with which arguments, what is answered, and on whose behalf.
// A transport derives from it (see RpcChannel) and hands it to RpcProvider::call() as an RpcContext.
// Ownership: counted; whoever holds an RpcContext keeps it, so a handler may answer later. When the last one goes
// without finish(), the transport is to answer with a failure. Threads: one at a time, that of the provider.
class KIV_API RpcContextInternal : public Object {
    KIV_OBJECT(RpcContextInternal, Object)
public:
    using EventHandler = std::function<bool(const RpcContext&)>;
    using Files = Vector<Pair<String, String>>;

    RpcContextInternal(const char* method, Item arguments);
    // The iterator refers to the arguments here.
    RpcContextInternal(const RpcContextInternal&) = delete;
    RpcContextInternal& operator=(const RpcContextInternal&) = delete;
    ~RpcContextInternal() override;

    // Sends the result; what comes after the first time does nothing.
    virtual void finish() = 0;
    // Where files of this kind go, as "update_package": a directory. Empty when there is no such place.
    virtual String getFileTransferTargetPath(const char* kind) = 0;
    // Begins to move files, one after another; event handlers hear of the progress and of the end, later, and the call
    // is kept until then. `direction` is one of RpcContext's; the pairs are a name that the caller knows and a path
    // here. What is on its way when the call is finished is dropped.
    virtual void initiateFileTransfer(int direction, const Files& files) = 0;
    // True while a transfer is known, also once it is over. `percent` is 0 to 100 or, after a failure, -1; `text` is
    // then the reason, else the path of the (first) file.
    virtual bool getFileTransferStatus(int& percent, String& text) = 0;
    virtual bool hasRight(const char* right) = 0;
    // Who calls; not owned, null when the transport knows no callers.
    virtual Object* getCaller() = 0;

    // For transports.
    const String& getMethodName() const { return m_method; }
    const Item& getArguments() const { return m_arguments; }
    const Item& getResult() const { return m_result; }
    uint64_t getTransferLimit() const { return m_transferLimit; }
    // Calls every event handler; one that returns false, or throws, is removed.
    void callEventHandlers();
    // For good: what is added behind that is dropped, lest a handler keeps its own call.
    void clearEventHandlers();

private:
    friend class RpcContext;

    void addEventHandler(EventHandler&& handler);
    bool keepsHandler(const EventHandler& handler, const RpcContext& context) const;

    const String m_method;
    const Item m_arguments;
    Item m_result;
    Item::Iterator m_args; // on the arguments
    List<EventHandler> m_eventHandlers;
    std::atomic<int> m_eventHandlerCount{0};
    bool m_isOver = false;
    bool m_isFinished = false; // by a handle
    uint64_t m_transferLimit = UINT64_MAX;
};

// What a handler of a remote call is given: a handle of the call, to be copied and kept as long as it is answered.
// Everything forwards to RpcContextInternal. Requires: made of a context, or nothing here is called.
class KIV_API RpcContext {
public:
    enum FileTransferDirection { FetchFromCaller = 0, SendToCaller = 1 };

    RpcContext() = default;
    explicit RpcContext(RpcContextInternal* context) : m_context(context) {}

    const String& getMethodName() const;
    const Item& getArguments() const;
    // One iterator for all copies: what one reader has taken the next goes on behind.
    Item::Iterator& args() const;
    Item& result() const;
    // The transport's, the first time.
    void finish() const;
    bool hasRight(const char* right) const;
    Object* getCaller() const;
    void initiateFileTransfer(int direction, const Vector<Pair<String, String>>& files) const;
    // Files of more bytes together are not fetched from the caller. A transport has limits of its own.
    void setTransferLimit(uint64_t bytes) const;
    bool getFileTransferStatus(int& percent, String& text) const;
    String getFileTransferTargetPath(const char* kind) const;
    // Called whenever something about the call changes (a transfer goes on or ends, the caller goes); returns whether
    // it wants to be called again. Dropped when the call is finished.
    void addEventHandler(std::function<bool(const RpcContext&)>&& handler) const;

private:
    SmartPointer<RpcContextInternal> m_context;
};

} // namespace kiv
