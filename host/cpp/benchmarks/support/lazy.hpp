#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace orvo::bench {

/// A value that is made when it is first asked for, and kept; copies share it. Inputs that no chosen benchmark needs
/// cost nothing.
template <class T>
class Lazy {
 public:
  explicit Lazy(std::function<T()> make) : state_(std::make_shared<State>(State{std::move(make), {}})) {}

  const T& operator*() const {
    if (!state_->value) state_->value.emplace(state_->make());
    return *state_->value;
  }
  const T* operator->() const { return &**this; }

 private:
  struct State {
    std::function<T()> make;
    std::optional<T> value;
  };
  std::shared_ptr<State> state_;
};

}  // namespace orvo::bench
