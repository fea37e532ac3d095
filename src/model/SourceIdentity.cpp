#include "model/SourceIdentity.h"

#include <QtNumeric>

#include <cmath>
#include <limits>

namespace vistrel {

using namespace Qt::StringLiterals;

QString AppIdentity::id() const
{
    if (bundleIdentifier)
        return *bundleIdentifier;
    // QString::toLower applies the full Unicode case mapping, special casing included.
    return u"name:"_s + applicationName.toLower();
}

size_t qHash(const AppIdentity& identity, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, identity.bundleIdentifier.has_value());
    seed = combine(seed, identity.bundleIdentifier.value_or(QString()));
    return combine(seed, identity.applicationName);
}

WindowIdentity::WindowIdentity(AppIdentity application, QString windowTitle,
                               std::optional<quint32> lastWindowID)
    : application(std::move(application)), windowTitle(std::move(windowTitle)),
      lastWindowID(lastWindowID)
{
}

WindowIdentity::WindowIdentity(const ShareableWindow& window)
    : application(window.application), windowTitle(window.title), lastWindowID(window.id)
{
}

QString WindowIdentity::id() const
{
    const QString suffix =
        lastWindowID ? QString::number(*lastWindowID) : windowTitle.toLower();
    return application.id() + u'#' + suffix;
}

size_t qHash(const WindowIdentity& identity, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, identity.application);
    seed = combine(seed, identity.windowTitle);
    seed = combine(seed, identity.lastWindowID.has_value());
    return combine(seed, identity.lastWindowID.value_or(0));
}

QString ShareableWindow::displayTitle() const
{
    const QString trimmed = title.trimmed();
    return trimmed.isEmpty() ? u"Untitled Window"_s : trimmed;
}

size_t qHashRect(const QRectF& rect, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, rect.x());
    seed = combine(seed, rect.y());
    seed = combine(seed, rect.width());
    return combine(seed, rect.height());
}

size_t qHashSize(const QSizeF& size, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, size.width());
    return combine(seed, size.height());
}

size_t qHash(const ShareableWindow& window, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, window.id);
    seed = combine(seed, window.title);
    seed = qHashRect(window.frame, seed);
    seed = combine(seed, window.isOnScreen);
    seed = combine(seed, window.isActive);
    return combine(seed, window.application);
}

size_t qHash(const ShareableApp& app, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, app.identity);
    seed = combine(seed, app.processID);
    seed = combine(seed, app.applicationName);
    seed = combine(seed, app.bundleIdentifier.value_or(QString()));
    for (const ShareableWindow& window : app.windows)
        seed = combine(seed, window);
    return seed;
}

namespace {
// Truncation toward zero that cannot overflow: non-finite or out-of-range
// sizes never come from a real display, so any readable text will do.
QString truncatedText(double value)
{
    if (!std::isfinite(value))
        return std::isnan(value) ? u"nan"_s : (value > 0 ? u"inf"_s : u"-inf"_s);
    const double truncated = std::trunc(value);
    if (std::fabs(truncated) >= 9.2e18)
        return QString::number(truncated, 'f', 0);
    return QString::number(static_cast<qint64>(truncated));
}
} // namespace

QString ShareableDisplay::resolutionText() const
{
    return truncatedText(logicalSize.width()) + u" x "_s + truncatedText(logicalSize.height());
}

size_t qHash(const ShareableDisplay& display, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, display.id);
    seed = combine(seed, display.name);
    seed = qHashRect(display.frame, seed);
    seed = qHashSize(display.logicalSize, seed);
    return qHashSize(display.pixelSize, seed);
}

} // namespace vistrel
