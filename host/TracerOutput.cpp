#include "host/TracerOutput.h"

namespace {

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

} // namespace

void TracerOutput::AddTrace(std::uint32_t mask, std::string text)
{
    const Counted call(m_calls);
    CDebugThread* const tracer = m_tracer.load();
    if (tracer != nullptr) {
        tracer->AddTrace(mask, std::move(text));
    }
}

void TracerOutput::Detach() noexcept
{
    m_tracer.store(nullptr);
    // Such a call is a short copy under the tracer's own lock.
    while (m_calls.load() != 0) {
        ::SwitchToThread();
    }
}
