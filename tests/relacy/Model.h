// A model: what a few threads do to an object of the product, and what must hold then.
#pragma once

#include "win32/Windows.h"

#include <memory>
#include <span>

namespace relacytest {

/// Created for each order in which the threads may run. What must hold is checked by RL_ASSERT; the model
/// checker itself finds data races, deadlocks, leaks and memory used after it was freed.
class Model : public Unwatched
{
public:
    virtual ~Model() = default;
    /// The threads are numbered from 0.
    virtual void Thread(unsigned index) = 0;
    /// After all threads have ended.
    virtual void After() {}
};

struct Case
{
    enum class Search {
        All,    // every order
        Bound3, // every order with at most three preemptions
        Bound2  // with at most two, where one thread has many steps
    };

    const char* name;
    unsigned threads; // 2 or 3
    Search search;
    std::unique_ptr<Model> (*make)();
};

template <class M>
std::unique_ptr<Model> Make()
{
    return std::make_unique<M>();
}

/// A class of the product with the cases that it passes. A mutant has the same cases and must fail one of them.
struct Subject
{
    const char* name;
    const char* mutation; // what was broken; null for the product's own source
    std::span<const Case> cases;
};

std::span<const Subject> OnDemandEventSubjects();
std::span<const Subject> MirroredEventSubjects();
std::span<const Subject> CommandQueueSubjects();
std::span<const Subject> TraceTableSubjects();
std::span<const Subject> PortTableSubjects();

} // namespace relacytest
