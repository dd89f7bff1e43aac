#pragma once
#include <QString>
#include <optional>
#include <utility>
#include <variant>

namespace velmora {

// Why a step failed, as it travels inside the layers: the error word of the stage (ending
// in ":", such as "XMLHTTP-Send:", or a fixed word such as "cancel") and the platform's
// description. Only the control turns it into its error text.
struct Failure {
  QString word;
  QString description;

  QString text() const { return word + description; }
};

// The outcome of a step that can fail: its value, or the Failure that stopped it.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

  explicit operator bool() const { return state_.index() == 0; }
  T& value() { return std::get<0>(state_); }
  const T& value() const { return std::get<0>(state_); }
  const Failure& failure() const { return std::get<1>(state_); }

 private:
  std::variant<T, Failure> state_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Failure failure) : failure_(std::move(failure)) {}

  explicit operator bool() const { return !failure_; }
  const Failure& failure() const { return *failure_; }

 private:
  std::optional<Failure> failure_;
};

using Outcome = Result<void>;

}  // namespace velmora
