#pragma once

// What the scripted backend records about its streams and how a test makes
// them misbehave. Shared by the backend and every stream it creates, so the
// counts stay readable after the stream's owner dropped it.
//
// Threading: main thread.

#include "platform/PlatformError.h"

#include <QHash>
#include <QList>
#include <functional>
#include <optional>

namespace vistrel {

enum class SimStreamOperation {
    create,
    addStreamOutput,
    start,
    stop,
    updateConfiguration,
    updateContentFilter,
};

inline size_t qHash(SimStreamOperation operation, size_t seed = 0) noexcept
{
    return ::qHash(static_cast<int>(operation), seed);
}

// Platform calls made on the backend's streams, counted whether they
// succeeded or failed.
struct SimStreamCalls {
    int create = 0;
    int addStreamOutput = 0;
    int start = 0;
    int stop = 0;
    int updateConfiguration = 0;
    int updateContentFilter = 0;

    int total() const
    {
        return create + addStreamOutput + start + stop + updateConfiguration + updateContentFilter;
    }
    friend bool operator==(const SimStreamCalls&, const SimStreamCalls&) = default;
};

class SimStreamLedger {
public:
    void count(SimStreamOperation operation);
    SimStreamCalls calls() const { return m_calls; }

    // Every later call of the operation fails with the error until cleared.
    // Creation itself cannot fail through the port; its count is still kept.
    void setFailure(SimStreamOperation operation, std::optional<PlatformError> error);
    std::optional<PlatformError> failure(SimStreamOperation operation) const;

    // Runs the completion on a later turn of the main loop, or keeps it until
    // release when completions are held.
    void complete(std::function<void()> completion);
    void setHoldsCompletions(bool holds) { m_holdsCompletions = holds; }
    qsizetype heldCompletions() const { return m_held.size(); }
    // Posts every held completion, in call order.
    void releaseCompletions();

private:
    SimStreamCalls m_calls;
    QHash<SimStreamOperation, PlatformError> m_failures;
    bool m_holdsCompletions = false;
    QList<std::function<void()>> m_held;
};

} // namespace vistrel
