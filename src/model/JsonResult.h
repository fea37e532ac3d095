#pragma once

// Outcome of reading or writing a model value as JSON: the value, or an error
// that names where it failed ("presets[1].policy.mode") and why.

#include <QString>
#include <utility>
#include <variant>

namespace vistrel {

struct JsonError {
    QString path;   // key path inside the document; empty for the document itself
    QString reason; // what was wrong there

    // "<path>: <reason>", or the reason alone at the document level.
    QString description() const
    {
        return path.isEmpty() ? reason : path + QStringLiteral(": ") + reason;
    }

    friend bool operator==(const JsonError&, const JsonError&) = default;
};

template<class T> class JsonResult {
public:
    JsonResult(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    JsonResult(JsonError error) : m_state(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }

    // Preconditions: ok() for value(), !ok() for error().
    const T& value() const& { return std::get<0>(m_state); }
    T&& value() && { return std::get<0>(std::move(m_state)); }
    const T* operator->() const { return &std::get<0>(m_state); }
    const JsonError& error() const { return std::get<1>(m_state); }

private:
    std::variant<T, JsonError> m_state;
};

} // namespace vistrel
