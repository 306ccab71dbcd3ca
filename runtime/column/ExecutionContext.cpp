#include "column/ExecutionContext.h"

#include <utility>

namespace kv::runtime {

namespace {

thread_local const ExecutionContext* contextOfThread = nullptr;

}  // namespace

const ExecutionContext* currentContext() noexcept { return contextOfThread; }

ContextScope::ContextScope(const ExecutionContext& context) noexcept
    : pool_(context.pool), outer_(std::exchange(contextOfThread, &context)) {}

ContextScope::~ContextScope() { contextOfThread = outer_; }

}  // namespace kv::runtime
