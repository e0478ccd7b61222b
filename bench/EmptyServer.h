// The least that an automation server out of process can be.
#pragma once

namespace bench {

/// Registers it for this machine while it lives. Throws std::runtime_error when it can't.
class EmptyServerRegistration
{
public:
    EmptyServerRegistration();
    ~EmptyServerRegistration();
    EmptyServerRegistration(const EmptyServerRegistration&) = delete;
    EmptyServerRegistration& operator=(const EmptyServerRegistration&) = delete;

    /// Seconds from the activation to the first answered call; returns when the server has ended. Throws
    /// std::runtime_error when it does not come or does not go. COM must have been initialised on this thread.
    double ActivationSeconds() const;
};

} // namespace bench
