#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

namespace wrixel2::bleobjects {

/// First in, first out: the oldest pending callback belongs to the next answer.
template <typename Element>
class FifoQueue {
 public:
  void push(Element element) { elements_.push_back(std::move(element)); }

  /// The oldest element, which leaves the queue; none from an empty queue.
  std::optional<Element> pop() {
    if (elements_.empty()) {
      return std::nullopt;
    }
    std::optional<Element> element(std::move(elements_.front()));
    elements_.pop_front();
    return element;
  }

  std::size_t count() const { return elements_.size(); }
  bool isEmpty() const { return elements_.empty(); }

 private:
  std::deque<Element> elements_;
};

}  // namespace wrixel2::bleobjects
