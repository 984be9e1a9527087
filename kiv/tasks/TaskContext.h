#pragma once

#include "kiv/tasks/TaskQueue.h"

namespace kiv {

// What a run of a task is told about itself. A small value; it may outlive neither the run nor the queue.
class TaskContext {
public:
    TaskContext(TaskQueue* queue, uint32_t index, uint32_t workload)
        : m_queue(queue), m_index(index), m_workload(workload) {}

    TaskQueue* getQueue() const { return m_queue; }
    int getQueueID() const { return m_queue->getQueueID(); }
    // Of a task pushed n times: n - 1 for the first run that starts, 0 for the last.
    uint32_t getIndex() const { return m_index; }
    // The weight of this run.
    uint32_t getWorkload() const { return m_workload; }
    // True while the queue drops its tasks: a long run looks here now and then, and returns.
    bool isAborting() const { return m_queue->isAborting(); }

    // Gives the run another weight, so that the queue's workload changes before the run ends.
    void changeWorkload(uint32_t workload) {
        if (workload == m_workload) return;
        m_queue->finishWeight(m_workload - workload);
        m_workload = workload;
    }

private:
    TaskQueue* m_queue;
    uint32_t m_index;
    uint32_t m_workload;
};

} // namespace kiv
