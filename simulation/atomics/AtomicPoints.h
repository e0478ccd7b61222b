// Put before each file of the build simulation-atomics: every operation on an atomic is a point of the scheduler
// there, like a call. The product names std::atomic as ever.
#pragma once

// All of it, and first: what the standard library itself makes of its atomics stays what it is.
#include <bits/stdc++.h>

namespace sim {

/// Another thread may go on here.
void PointAtAtomic() noexcept;

} // namespace sim

namespace std { // NOLINT(cert-dcl58-cpp): the name that the macro below puts in the place of std::atomic

/// Only the operations that the product uses: another one does not compile.
template <class Type>
class atomic_point
{
public:
    constexpr atomic_point() noexcept = default;
    constexpr atomic_point(Type value) noexcept : m_value(value) {}
    atomic_point(const atomic_point&) = delete;
    atomic_point& operator=(const atomic_point&) = delete;

    Type load(memory_order order = memory_order_seq_cst) const noexcept { return Before().load(order); }
    void store(Type value, memory_order order = memory_order_seq_cst) noexcept { Before().store(value, order); }
    Type exchange(Type value, memory_order order = memory_order_seq_cst) noexcept
    {
        return Before().exchange(value, order);
    }
    bool compare_exchange_strong(Type& expected, Type wanted, memory_order order = memory_order_seq_cst) noexcept
    {
        return Before().compare_exchange_strong(expected, wanted, order);
    }
    Type fetch_add(Type value, memory_order order = memory_order_seq_cst) noexcept
    {
        return Before().fetch_add(value, order);
    }
    Type fetch_sub(Type value, memory_order order = memory_order_seq_cst) noexcept
    {
        return Before().fetch_sub(value, order);
    }
    operator Type() const noexcept { return load(); }
    Type operator=(Type value) noexcept
    {
        store(value);
        return value;
    }
    Type operator++() noexcept { return ++Before(); }
    Type operator++(int) noexcept { return Before()++; }
    Type operator--() noexcept { return --Before(); }
    Type operator+=(Type value) noexcept { return Before() += value; }

private:
    const atomic<Type>& Before() const noexcept
    {
        sim::PointAtAtomic();
        return m_value;
    }
    atomic<Type>& Before() noexcept
    {
        sim::PointAtAtomic();
        return m_value;
    }

    atomic<Type> m_value{};
};

} // namespace std

#define atomic atomic_point
