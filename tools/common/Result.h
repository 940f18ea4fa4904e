// The outcome of an operation of the off-device tools that can fail: either its
// value or a message that says what went wrong. A function returns Error{...}
// for a failure and its value (or Ok() for Result<void>) for a success.
#ifndef TOOLS_COMMON_RESULT_H
#define TOOLS_COMMON_RESULT_H

#include <string>
#include <utility>
#include <variant>

struct Error {
    std::string message;
};

template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_outcome(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : m_outcome(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return m_outcome.index() == 0; }
    // The value; only valid when the result holds one.
    T& operator*() { return *std::get_if<0>(&m_outcome); }
    const T& operator*() const { return *std::get_if<0>(&m_outcome); }
    T* operator->() { return std::get_if<0>(&m_outcome); }
    const T* operator->() const { return std::get_if<0>(&m_outcome); }
    // The failure's message; only valid when the result holds no value.
    const std::string& error() const { return std::get_if<1>(&m_outcome)->message; }

private:
    std::variant<T, Error> m_outcome;
};

struct Ok {};

template <>
class [[nodiscard]] Result<void> {
public:
    Result(Ok) {}
    Result(Error error) : m_error(std::move(error.message)), m_failed(true) {}

    explicit operator bool() const { return !m_failed; }
    const std::string& error() const { return m_error; }

private:
    std::string m_error;
    bool m_failed = false;
};

#endif
