// Joins the trace calls to the tracer and the Debug Options dialog.
#pragma once

#include "diag/CDebugOptionDlg.h"
#include "diag/CDebugThread.h"
#include "host/TraceFrontEnd.h"

#include <atomic>
#include <utility>

class TracerOutput final : public ITraceOutput
{
public:
    /// `dialog` is borrowed and outlives every trace call.
    explicit TracerOutput(const CDebugOptionDlg& dialog) noexcept : m_dialog(dialog) {}

    /// From now on lines go to `tracer`, which is borrowed. Main thread.
    void Attach(CDebugThread* tracer) noexcept { m_tracer.store(tracer); }

    /// No line goes there any more, and none is on its way when this returns: the tracer may be deleted. Main
    /// thread.
    void Detach() noexcept
    {
        m_tracer.store(nullptr);
        // Such a call is a short copy under the tracer's own lock.
        while (m_calls.load() != 0) {
            ::SwitchToThread();
        }
    }

    bool TracerExists() const noexcept override { return m_tracer.load(std::memory_order_relaxed) != nullptr; }
    bool DialogExists() const noexcept override { return m_dialog.Exists(); }
    bool DialogIsVisible() const noexcept override { return m_dialog.IsVisible(); }
    void AddTrace(std::uint32_t mask, std::string text) override
    {
        const Counted call(m_calls);
        if (CDebugThread* const tracer = m_tracer.load(); tracer != nullptr) {
            tracer->AddTrace(mask, std::move(text));
        }
    }

private:
    class Counted
    {
    public:
        explicit Counted(std::atomic<int>& counter) noexcept : m_counter(counter) { ++m_counter; }
        ~Counted() { --m_counter; }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;

    private:
        std::atomic<int>& m_counter;
    };

    const CDebugOptionDlg& m_dialog;
    std::atomic<CDebugThread*> m_tracer{nullptr};
    std::atomic<int> m_calls{0}; // running AddTrace calls; counted before the pointer is read
};
