#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/tasks/TaskContext.h"

#include <type_traits>
#include <utility>

namespace kiv {

// Calls a plain function or a callable without arguments, and ignores what it returns.
template <class Function>
class LambdaNoContextTask : public TaskQueue::Task {
    KIV_OBJECT(LambdaNoContextTask, TaskQueue::Task)
public:
    explicit LambdaNoContextTask(Function function) : m_function(std::move(function)) {}

    void run(TaskContext&) override { static_cast<void>(m_function()); }

private:
    Function m_function;
};

// Calls a callable with the context of the run.
template <class Function>
class LambdaTask : public TaskQueue::Task {
    KIV_OBJECT(LambdaTask, TaskQueue::Task)
public:
    explicit LambdaTask(Function function) : m_function(std::move(function)) {}

    void run(TaskContext& context) override { static_cast<void>(m_function(context)); }

private:
    Function m_function;
};

// Wraps a callable, with a TaskContext& parameter or without. For a callable that is run several times at once, on a
// parallel queue, it is one object for all runs.
template <class Function>
SmartPointer<TaskQueue::Task> makeTask(Function function) {
    if constexpr (std::is_invocable_v<Function&, TaskContext&>) {
        return new LambdaTask<Function>(std::move(function));
    } else {
        return new LambdaNoContextTask<Function>(std::move(function));
    }
}

} // namespace kiv
