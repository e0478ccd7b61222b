// The message queues of threads.
#pragma once

#include "simulation/kernel/Objects.h"

#include <deque>
#include <map>

namespace sim {

struct MessageQueue
{
    Ref<EventObject> arrived; // set when a message comes, until the thread looks
    std::deque<UINT> messages;
};

/// By the fiber's number.
struct Messages
{
    std::map<int, MessageQueue> queues;
};

} // namespace sim
