// SPDX-License-Identifier: MIT
// Something to be done later on another thread.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace quillet {

// A callable without arguments, kept inside the object: making and moving one needs no memory and can't fail.
class Task {
  public:
    template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Task>>>
    Task(F&& callable) : m_Operations(&kOperationsOf<std::decay_t<F>>) {
        using Callable = std::decay_t<F>;
        static_assert(sizeof(Callable) <= kSize && alignof(Callable) <= kAlignment);
        static_assert(std::is_nothrow_move_constructible_v<Callable>);
        ::new (static_cast<void*>(m_Storage)) Callable(std::forward<F>(callable));
    }
    Task(Task&& other) noexcept : m_Operations(other.m_Operations) {
        if (m_Operations != nullptr) m_Operations->move(other.m_Storage, m_Storage);
    }
    ~Task() { Drop(); }
    Task& operator=(const Task&) = delete;

    void operator()() { m_Operations->run(m_Storage); }
    // Destroys the callable: the task isn't run again.
    void Drop() noexcept {
        if (const Operations* operations = std::exchange(m_Operations, nullptr)) operations->destroy(m_Storage);
    }

  private:
    // A line of the log with its text fits, and a task fills three cache lines.
    static constexpr size_t kSize = 184;
    static constexpr size_t kAlignment = alignof(void*);

    struct Operations {
        void (*run)(void* callable);
        void (*move)(void* from, void* to) noexcept;
        void (*destroy)(void* callable) noexcept;
    };
    template <typename T>
    static constexpr Operations kOperationsOf = {
        [](void* callable) { (*static_cast<T*>(callable))(); },
        [](void* from, void* to) noexcept { ::new (to) T(std::move(*static_cast<T*>(from))); },
        [](void* callable) noexcept { static_cast<T*>(callable)->~T(); }};

    const Operations* m_Operations;
    alignas(kAlignment) unsigned char m_Storage[kSize];
};

}  // namespace quillet
