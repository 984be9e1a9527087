#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/tasks/TaskQueue.h"

namespace kiv {

// Runs a kernel, cut into parts, on the threads of the pool, and waits for it. It has a parallel queue of its own.
// Ownership: counted. Threads: any may execute kernels at the same time, also from inside a part.
// Failures: what a part throws is logged; the other parts and finish() run nevertheless.
class KIV_API Parallel : public Object {
    KIV_OBJECT(Parallel, Object)
public:
    class Kernel;

    Parallel();
    ~Parallel() override;

    // Returns when all parts have run and finish() has. The caller runs parts itself only when there is just one, or
    // when it is a thread of the pool.
    void execute(Kernel& kernel);

private:
    const SmartPointer<TaskQueue> m_queue;
};

// A piece of work that can be done in parts.
class KIV_API Parallel::Kernel {
public:
    Kernel() = default;
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;
    virtual ~Kernel();

    // `parts` is the number of processors; the kernel may change it. With 0 only finish() is called.
    // Requires: parts <= 0x1FFFFFFF.
    virtual void prepare(unsigned& parts);
    // Once for each index from parts - 1 to 0, on several threads at once.
    virtual void executePart(unsigned index) = 0;
    // On the calling thread, after all parts.
    virtual void finish();
};

} // namespace kiv
