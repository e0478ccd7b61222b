#include "client/RouterHold.h"

#include "win32/Event.h"

#include <array>

namespace clientlib {

namespace {

constexpr DWORD LongestReleaseMs = 10'000;

struct RenewJob
{
    win32::Event done{win32::Event::Kind::ManualReset};
    Registration::Outcome outcome;
};

} // namespace

RouterHold::RouterHold(ComThread& com, const PortRegistration& port)
    : m_com(com), m_registration(std::make_shared<Registration>(port))
{
}

std::optional<Registration::Outcome> RouterHold::Renew(HANDLE closed)
{
    const auto job = std::make_shared<RenewJob>();
    const auto work = [registration = m_registration, job] {
        try {
            job->outcome = registration->Renew();
        } catch (...) {
            job->outcome.result = {MORVANE_E_MEMORY, ERROR_OUTOFMEMORY};
        }
        job->done.Set();
    };
    if (!job->done.Exists() || !m_com.Post(work)) {
        job->outcome.result.code = MORVANE_E_MEMORY;
        return job->outcome;
    }
    const std::array<HANDLE, 2> either = {closed, job->done.Get()};
    if (::WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) != WAIT_OBJECT_0 + 1) {
        return std::nullopt;
    }
    return job->outcome;
}

void RouterHold::Release() noexcept
{
    try {
        const auto done = std::make_shared<win32::Event>(win32::Event::Kind::ManualReset);
        const auto work = [registration = m_registration, done] {
            registration->Release();
            done->Set();
        };
        if (m_com.Post(work)) {
            done->Wait(LongestReleaseMs);
        }
    } catch (...) {
        // Without memory for the job the router is released with the process.
    }
}

} // namespace clientlib
