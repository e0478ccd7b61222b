// Messages to a thread; there are no windows.
#include "simulation/kernel/Messages.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

using namespace sim;

namespace {

/// A thread has a queue from its first look at it.
MessageQueue& OwnQueue()
{
    MessageQueue& queue = TheWorld().messages->queues[Current().id];
    if (!queue.arrived) {
        queue.arrived = Ref<EventObject>(new EventObject(false, false));
    }
    return queue;
}

} // namespace

DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds, DWORD kinds)
{
    Call call("MsgWaitForMultipleObjects");
    if (all != FALSE || kinds != QS_ALLINPUT || count >= MAXIMUM_WAIT_OBJECTS) {
        Fault("a wait for messages that is not known here");
    }
    const Ref<EventObject> arrived = OwnQueue().arrived;
    return WaitForAny(handles, count, milliseconds, arrived.get());
}

BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags)
{
    Call call("PeekMessageW");
    if (window != nullptr || first != 0 || last != 0 || flags != PM_REMOVE) {
        Fault("messages are looked at in a way that is not known here");
    }
    MessageQueue& queue = OwnQueue();
    queue.arrived->set = false; // what has been looked at ends no wait
    if (queue.messages.empty()) {
        return FALSE;
    }
    *message = {};
    message->message = queue.messages.front();
    queue.messages.pop_front();
    return TRUE;
}

BOOL PostThreadMessageW(DWORD thread, UINT message, WPARAM /*word*/, LPARAM /*number*/)
{
    Call call("PostThreadMessageW");
    auto& queues = TheWorld().messages->queues;
    const auto found = queues.find(static_cast<int>(thread) - 1);
    if (found == queues.end()) {
        return Call::Refuse(ERROR_INVALID_THREAD_ID);
    }
    found->second.messages.push_back(message);
    SetByWindows(found->second.arrived.get());
    Point("PostThreadMessageW done");
    return TRUE;
}

BOOL TranslateMessage(const MSG* /*message*/)
{
    return FALSE;
}

LRESULT DispatchMessageW(const MSG* /*message*/)
{
    return 0; // without a window it is no window's
}

BOOL PostMessageW(HWND /*window*/, UINT /*message*/, WPARAM /*word*/, LPARAM /*number*/)
{
    Fault("a message to a window: here is none");
}

BOOL SendNotifyMessageW(HWND /*window*/, UINT /*message*/, WPARAM /*word*/, LPARAM /*number*/)
{
    Fault("a message to a window: here is none");
}

BOOL SendMessageCallbackW(HWND /*window*/, UINT /*message*/, WPARAM /*word*/, LPARAM /*number*/,
                          SENDASYNCPROC /*answer*/, ULONG_PTR /*data*/)
{
    Fault("a message to a window: here is none");
}
