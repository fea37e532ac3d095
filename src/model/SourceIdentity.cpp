#include "model/SourceIdentity.h"

#include <QtNumeric>
#include <cmath>
#include <limits>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

bool isCased(char32_t c)
{
    return QChar::isLower(c) || QChar::isUpper(c) || QChar::isTitleCase(c);
}

// Characters skipped when looking for the letters around a capital sigma.
bool isCaseIgnorable(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
    case QChar::Letter_Modifier:
    case QChar::Symbol_Modifier:
        return true;
    default:
        break;
    }
    switch (c) {
    case 0x0027:
    case 0x002E:
    case 0x003A:
    case 0x00B7:
    case 0x0387:
    case 0x055F:
    case 0x05F4:
    case 0x2018:
    case 0x2019:
    case 0x2024:
    case 0x2027:
    case 0xFE13:
    case 0xFE52:
    case 0xFE55:
    case 0xFF07:
    case 0xFF0E:
    case 0xFF1A:
        return true;
    default:
        return false;
    }
}

// Final_Sigma: a cased letter before (skipping case-ignorables), none after.
bool isFinalSigma(const QList<uint>& text, qsizetype at)
{
    qsizetype i = at - 1;
    while (i >= 0 && isCaseIgnorable(text[i]))
        --i;
    if (i < 0 || !isCased(text[i]))
        return false;
    qsizetype j = at + 1;
    while (j < text.size() && isCaseIgnorable(text[j]))
        ++j;
    return j >= text.size() || !isCased(text[j]);
}

} // namespace

QString unicodeLowercased(const QString& text)
{
    // QString::toLower applies the unconditional full mappings (İ -> i̇,
    // ẞ -> ß) but not the context-dependent final sigma, added here.
    if (!text.contains(QChar(0x03A3)))
        return text.toLower();
    const QList<uint> codePoints = text.toUcs4();
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < codePoints.size(); ++i) {
        const char32_t c = codePoints[i];
        if (c == 0x03A3 && isFinalSigma(codePoints, i))
            result.append(QChar(0x03C2));
        else
            result.append(QString::fromUcs4(&c, 1).toLower());
    }
    return result;
}

QString AppIdentity::id() const
{
    if (bundleIdentifier)
        return *bundleIdentifier;
    return u"name:"_s + unicodeLowercased(applicationName);
}

size_t qHash(const AppIdentity& identity, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, identity.bundleIdentifier.has_value());
    seed = combine(seed, identity.bundleIdentifier.value_or(QString()));
    return combine(seed, identity.applicationName);
}

WindowIdentity::WindowIdentity(AppIdentity app, QString title, std::optional<quint32> windowID)
    : application(std::move(app)), windowTitle(std::move(title)), lastWindowID(windowID)
{
}

WindowIdentity::WindowIdentity(const ShareableWindow& window)
    : application(window.application), windowTitle(window.title), lastWindowID(window.id)
{
}

QString WindowIdentity::id() const
{
    const QString suffix =
        lastWindowID ? QString::number(*lastWindowID) : unicodeLowercased(windowTitle);
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

bool rectsEqual(const QRectF& a, const QRectF& b) noexcept
{
    return a.x() == b.x() && a.y() == b.y() && a.width() == b.width() && a.height() == b.height();
}

bool sizesEqual(const QSizeF& a, const QSizeF& b) noexcept
{
    return a.width() == b.width() && a.height() == b.height();
}

bool operator==(const ShareableWindow& a, const ShareableWindow& b)
{
    return a.id == b.id && a.title == b.title && rectsEqual(a.frame, b.frame) &&
           a.isOnScreen == b.isOnScreen && a.isActive == b.isActive &&
           a.application == b.application;
}

bool operator==(const ShareableDisplay& a, const ShareableDisplay& b)
{
    return a.id == b.id && a.name == b.name && rectsEqual(a.frame, b.frame) &&
           sizesEqual(a.logicalSize, b.logicalSize) && sizesEqual(a.pixelSize, b.pixelSize);
}

QString ShareableWindow::displayTitle() const
{
    const QString trimmed = title.trimmed();
    return trimmed.isEmpty() ? u"Untitled Window"_s : trimmed;
}

size_t qHashRect(const QRectF& rect, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    // +0.0 == -0.0, so both must hash alike.
    const auto normal = [](double v) {
        return v == 0.0 ? 0.0 : v;
    };
    seed = combine(seed, normal(rect.x()));
    seed = combine(seed, normal(rect.y()));
    seed = combine(seed, normal(rect.width()));
    return combine(seed, normal(rect.height()));
}

size_t qHashSize(const QSizeF& size, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    const auto normal = [](double v) {
        return v == 0.0 ? 0.0 : v;
    };
    seed = combine(seed, normal(size.width()));
    return combine(seed, normal(size.height()));
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
