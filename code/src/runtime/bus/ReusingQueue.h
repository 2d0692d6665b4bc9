#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace VelmoraMobile {

/// A first-in first-out queue that keeps its storage once the items are taken, so that a queue
/// which keeps running empty costs no allocation per item (std::deque frees and allocates its
/// blocks as the items pass). Not thread-safe: its owner guards it.
template <typename T>
class ReusingQueue {
public:
    bool empty() const { return head_ == items_.size(); }
    void push_back(T&& item) { items_.push_back(std::move(item)); }
    T& front() { return items_[head_]; }
    /// Call after moving the front item out.
    void pop_front() {
        items_[head_] = T();
        if (++head_ == items_.size()) {
            items_.clear();
            head_ = 0;
        } else if (head_ >= COMPACT_AFTER && head_ * 2 >= items_.size()) {
            // A queue that never runs empty is moved down now and then, so it does not grow.
            items_.erase(items_.begin(), items_.begin() + static_cast<std::ptrdiff_t>(head_));
            head_ = 0;
        }
    }
    void swap(ReusingQueue& other) {
        items_.swap(other.items_);
        std::swap(head_, other.head_);
    }
    void clear() {
        items_.clear();
        head_ = 0;
    }

private:
    static constexpr size_t COMPACT_AFTER = 64;

    std::vector<T> items_;
    size_t head_{0};
};

}  // namespace VelmoraMobile
