#pragma once

// The state of the output as the capture engine publishes it: a tagged union
// whose payload cases compare by payload.

#include "capture/CapturePlan.h"

#include <QDebug>
#include <QMetaType>
#include <QString>
#include <optional>

namespace vistrel {

class StreamStatus {
public:
    enum class Kind {
        idle,     // nothing has been asked yet
        starting, // a new stream is starting, or started and showed no frame yet
        running,  // frames reach the renderer
        blank,    // the output shows nothing, for blankReason()
        failed,   // start, update or the stream itself failed; see failureMessage()
    };

    StreamStatus() = default;

    static StreamStatus idle() { return StreamStatus(Kind::idle); }
    static StreamStatus starting() { return StreamStatus(Kind::starting); }
    static StreamStatus running() { return StreamStatus(Kind::running); }
    static StreamStatus blank(OutputBlankReason reason);
    static StreamStatus failed(const QString& message);

    Kind kind() const { return m_kind; }
    bool isBlank() const { return m_kind == Kind::blank; }
    bool isFailed() const { return m_kind == Kind::failed; }
    // Set only for blank.
    std::optional<OutputBlankReason> blankReason() const { return m_blankReason; }
    // The error's localized description for failed; empty otherwise.
    QString failureMessage() const { return m_failureMessage; }

    friend bool operator==(const StreamStatus&, const StreamStatus&) = default;

private:
    explicit StreamStatus(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::idle;
    std::optional<OutputBlankReason> m_blankReason;
    QString m_failureMessage;
};

size_t qHash(const StreamStatus& status, size_t seed = 0) noexcept;

// "idle", "starting", "running", "blank(<reason>)" or "failed(<message>)", for
// logs and test failures. (Not toString: that name belongs to QtTest's
// char* printers, which tests provide.)
QString describe(const StreamStatus& status);
QDebug operator<<(QDebug debug, const StreamStatus& status);

} // namespace vistrel

Q_DECLARE_METATYPE(vistrel::StreamStatus)
