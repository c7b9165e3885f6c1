#pragma once

#include <utility>
#include <variant>

/// The outcome of an operation that either gives a value or fails with an error value.
template <class Value, class Error>
class Result {
public:
    Result(Value value) : outcome_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : outcome_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return outcome_.index() == 0; }
    /// The value; only when ok().
    const Value& value() const { return std::get<0>(outcome_); }
    /// The error; only when not ok().
    const Error& error() const { return std::get<1>(outcome_); }

    bool operator==(const Result&) const = default;

private:
    std::variant<Value, Error> outcome_;
};
