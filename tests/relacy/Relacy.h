// The model checker, and the standard library's atomics and deque as objects of it. To be included before the
// product's sources, which then use these under their usual names.
#pragma once

// Its Windows and POSIX calls are macros; standin/windows.h has functions instead.
#define RL_WINDOWS_HPP
#define RL_PTHREAD_HPP
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#include <relacy/relacy.hpp>
#pragma GCC diagnostic pop
// Its macros would break what is included after it.
#undef new
#undef delete
#undef malloc
#undef calloc
#undef realloc
#undef free
#undef assert
#undef errno
#undef memory_order_relaxed
#undef memory_order_consume
#undef memory_order_acquire
#undef memory_order_release
#undef memory_order_acq_rel
#undef memory_order_seq_cst

// All that the modelled sources include, before the names change.
#include <algorithm>
#include <array>
#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace relacytest {

/// For classes whose memory the model checker need not watch: it tries each order once more for each freed block.
class Unwatched
{
public:
    static void* operator new(std::size_t size) { return ::malloc(size); }
    static void operator delete(void* memory) { ::free(memory); }
};

inline rl::memory_order OrderOf(std::memory_order order) noexcept
{
    switch (order) {
    case std::memory_order_relaxed: return rl::mo_relaxed;
    case std::memory_order_consume: return rl::mo_consume;
    case std::memory_order_acquire: return rl::mo_acquire;
    case std::memory_order_release: return rl::mo_release;
    case std::memory_order_acq_rel: return rl::mo_acq_rel;
    case std::memory_order_seq_cst: break;
    }
    return rl::mo_seq_cst;
}

} // namespace relacytest

// A model may do what a program may not: the product's sources name these as members of std.
namespace std {

template <class T>
class modelled_atomic
{
    // The checker keeps pointers as void*.
    using Stored = conditional_t<is_pointer_v<T>, add_pointer_t<remove_const_t<remove_pointer_t<T>>>, T>;

public:
    modelled_atomic() noexcept : modelled_atomic(T()) {}
    modelled_atomic(T value) noexcept : m_value((Stored)value) {}
    modelled_atomic(const modelled_atomic&) = delete;
    modelled_atomic& operator=(const modelled_atomic&) = delete;

    T load(memory_order order = memory_order_seq_cst) const noexcept
    {
        return m_value.load(relacytest::OrderOf(order), RL_INFO);
    }
    void store(T value, memory_order order = memory_order_seq_cst) noexcept
    {
        m_value.store((Stored)value, relacytest::OrderOf(order), RL_INFO);
    }
    T exchange(T value, memory_order order = memory_order_seq_cst) noexcept
    {
        return rl::atomic_proxy<T>(m_value, RL_INFO).exchange(value, relacytest::OrderOf(order));
    }
    T fetch_add(T value) noexcept { return rl::atomic_proxy<T>(m_value, RL_INFO).fetch_add(value); }

private:
    mutable rl::atomic<Stored> m_value;
};

/// A deque of a few items whose every use is a read or a write that the model checker watches for data races. It
/// has no memory of its own: the checker tries each order once more for each block that is freed.
template <class T>
class modelled_deque
{
public:
    using value_type = T;
    using size_type = size_t;
    using reference = T&;
    using const_reference = const T&;

    bool empty() const { return size() == 0; }
    size_t size() const
    {
        static_cast<void>(static_cast<int>(m_witness(RL_INFO)));
        return m_size;
    }
    T& front()
    {
        Touch();
        return m_items[0];
    }
    void push_back(const T& value)
    {
        Touch();
        RL_ASSERT(m_size < m_items.size());
        m_items[m_size++] = value;
    }
    void pop_front()
    {
        Touch();
        std::move(m_items.begin() + 1, m_items.end(), m_items.begin());
        --m_size;
    }
    void clear()
    {
        Touch();
        m_size = 0;
    }
    void swap(modelled_deque& other)
    {
        Touch();
        other.Touch();
        std::swap(m_items, other.m_items);
        std::swap(m_size, other.m_size);
    }
    auto begin() { return m_items.begin(); }
    auto end() { return m_items.begin() + m_size; }

private:
    void Touch() { m_witness(RL_INFO) = 1; }

    std::array<T, 4> m_items{};
    size_t m_size = 0;
    mutable rl::var<int> m_witness{0};
};

} // namespace std

#define atomic modelled_atomic
#define deque  modelled_deque
