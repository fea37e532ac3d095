#pragma once

// Identities of shareable sources (persisted, survive restarts) and the
// records discovery produces on each pass (never persisted).
//
// Frames are in global coordinates, points, y-down (origin top-left of the
// virtual desktop).

#include <QHashFunctions>
#include <QList>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <optional>

namespace vistrel {

// The full Unicode lower-case mapping of the whole string, context-dependent
// final sigma included; nothing else is normalised (no trimming, no folding).
QString unicodeLowercased(const QString& text);

// The persistent identity of an application.
struct AppIdentity {
    std::optional<QString> bundleIdentifier;
    QString applicationName;

    // Stable list key: the bundle identifier, or "name:" + lower-cased name.
    QString id() const;

    friend bool operator==(const AppIdentity&, const AppIdentity&) = default;
};
size_t qHash(const AppIdentity& identity, size_t seed = 0) noexcept;

struct ShareableWindow;

// The persistent identity of one window, as stored in a window rule.
struct WindowIdentity {
    AppIdentity application;
    QString windowTitle; // as discovered, untrimmed
    std::optional<quint32> lastWindowID;

    WindowIdentity() = default;
    WindowIdentity(AppIdentity application, QString windowTitle,
                   std::optional<quint32> lastWindowID);
    // Derived from a live window: always carries the window number.
    explicit WindowIdentity(const ShareableWindow& window);

    // application id + "#" + window number, or + lower-cased title without one.
    QString id() const;

    friend bool operator==(const WindowIdentity&, const WindowIdentity&) = default;
};
size_t qHash(const WindowIdentity& identity, size_t seed = 0) noexcept;

struct ShareableWindow {
    quint32 id = 0;
    QString title; // as reported, may be empty
    QRectF frame;
    bool isOnScreen = false;
    bool isActive = false;
    AppIdentity application;

    // Trimmed title, or "Untitled Window" when nothing is left.
    QString displayTitle() const;

    // Frames compare exactly (QRectF's own == is fuzzy and would not agree with qHash).
    friend bool operator==(const ShareableWindow&, const ShareableWindow&);
};
size_t qHash(const ShareableWindow& window, size_t seed = 0) noexcept;

struct ShareableApp {
    AppIdentity identity;
    qint32 processID = 0;
    QString applicationName;
    std::optional<QString> bundleIdentifier;
    QList<ShareableWindow> windows;

    QString id() const { return identity.id(); }

    friend bool operator==(const ShareableApp&, const ShareableApp&) = default;
};
size_t qHash(const ShareableApp& app, size_t seed = 0) noexcept;

struct ShareableDisplay {
    quint32 id = 0;
    QString name;
    QRectF frame;
    QSizeF logicalSize; // points
    QSizeF pixelSize;

    // Logical width and height truncated toward zero, joined by " x ".
    QString resolutionText() const;

    // Exact comparison of the geometry, consistent with qHash.
    friend bool operator==(const ShareableDisplay&, const ShareableDisplay&);
};
size_t qHash(const ShareableDisplay& display, size_t seed = 0) noexcept;

// Exact geometry comparisons (QRectF/QSizeF's own == are fuzzy).
bool rectsEqual(const QRectF& a, const QRectF& b) noexcept;
bool sizesEqual(const QSizeF& a, const QSizeF& b) noexcept;

// Hash helpers shared by the value types of every layer.
size_t qHashRect(const QRectF& rect, size_t seed) noexcept;
size_t qHashSize(const QSizeF& size, size_t seed) noexcept;

} // namespace vistrel
