// LinkedQueue: a queue that owns nothing and never allocates.
#pragma once

#include <cstddef>

namespace airflow::concurrency {

/// First in, first out, linked through the elements' own `next`; an element is in one queue at
/// most. Does not touch its elements when it is destroyed. Not synchronised.
template <typename T>
class LinkedQueue {
public:
    [[nodiscard]] bool empty() const noexcept { return first == nullptr; }
    [[nodiscard]] std::size_t size() const noexcept { return count; }

    void pushBack(T& element) noexcept {
        element.next = nullptr;
        (last ? last->next : first) = &element;
        last = &element;
        ++count;
    }

    void pushFront(T& element) noexcept {
        element.next = first;
        if (!last) last = &element;
        first = &element;
        ++count;
    }

    /// Removes the element at `position`, which must be below size(). Position 0 costs nothing.
    T& take(std::size_t position = 0) noexcept {
        T* before = nullptr;
        T* taken = first;
        for (; position > 0; --position) {
            before = taken;
            taken = taken->next;
        }
        (before ? before->next : first) = taken->next;
        if (last == taken) last = before;
        --count;
        return *taken;
    }

    /// Removes an element that is in the queue.
    void remove(const T& element) noexcept {
        std::size_t position = 0;
        for (const T* other = first; other != &element; other = other->next) ++position;
        take(position);
    }

private:
    T* first = nullptr;
    T* last = nullptr;
    std::size_t count = 0;
};

}  // namespace airflow::concurrency
