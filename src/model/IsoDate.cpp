#include "model/IsoDate.h"

#include <QTimeZone>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

// Reads exactly `count` ASCII digits at `pos`; -1 when any is not a digit.
int digits(QStringView text, qsizetype pos, int count)
{
    if (pos + count > text.size())
        return -1;
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const char16_t c = text[pos + i].unicode();
        if (c < u'0' || c > u'9')
            return -1;
        value = value * 10 + (c - u'0');
    }
    return value;
}

bool isAt(QStringView text, qsizetype pos, char16_t c)
{
    return pos < text.size() && text[pos].unicode() == c;
}

} // namespace

std::optional<QString> formatIsoDate(const QDateTime& date)
{
    if (!date.isValid())
        return std::nullopt;
    const QDateTime utc = date.toUTC();
    const QDate day = utc.date();
    const QTime time = utc.time();
    if (day.year() < 1 || day.year() > 9999)
        return std::nullopt;
    return u"%1-%2-%3T%4:%5:%6Z"_s.arg(day.year(), 4, 10, QChar(u'0'))
        .arg(day.month(), 2, 10, QChar(u'0'))
        .arg(day.day(), 2, 10, QChar(u'0'))
        .arg(time.hour(), 2, 10, QChar(u'0'))
        .arg(time.minute(), 2, 10, QChar(u'0'))
        .arg(time.second(), 2, 10, QChar(u'0'));
}

std::optional<QDateTime> parseIsoDate(QStringView text)
{
    // Fixed part: YYYY-MM-DDTHH:MM:SS (19 characters).
    const int year = digits(text, 0, 4);
    const int month = digits(text, 5, 2);
    const int day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2);
    const int minute = digits(text, 14, 2);
    const int second = digits(text, 17, 2);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0)
        return std::nullopt;
    if (!isAt(text, 4, u'-') || !isAt(text, 7, u'-') || !isAt(text, 10, u'T') ||
        !isAt(text, 13, u':') || !isAt(text, 16, u':'))
        return std::nullopt;
    qsizetype pos = 19;
    if (isAt(text, pos, u'.')) {
        ++pos;
        const qsizetype fractionStart = pos;
        while (pos < text.size() && digits(text, pos, 1) >= 0)
            ++pos;
        if (pos == fractionStart)
            return std::nullopt;
    }
    int offsetSeconds = 0;
    if (isAt(text, pos, u'Z')) {
        ++pos;
    } else if (isAt(text, pos, u'+') || isAt(text, pos, u'-')) {
        const int sign = isAt(text, pos, u'-') ? -1 : 1;
        const int offsetHours = digits(text, pos + 1, 2);
        const int offsetMinutes = digits(text, pos + 4, 2);
        if (offsetHours < 0 || offsetHours > 23 || !isAt(text, pos + 3, u':') ||
            offsetMinutes < 0 || offsetMinutes > 59)
            return std::nullopt;
        offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
        pos += 6;
    } else {
        return std::nullopt; // no zone
    }
    if (pos != text.size())
        return std::nullopt;

    if (year < 1 || !QDate::isValid(year, month, day) || !QTime::isValid(hour, minute, second))
        return std::nullopt;
    const QDateTime local(QDate(year, month, day), QTime(hour, minute, second), QTimeZone::utc());
    const QDateTime utc = local.addSecs(-offsetSeconds);
    if (!utc.isValid() || utc.date().year() < 1 || utc.date().year() > 9999)
        return std::nullopt;
    return utc;
}

} // namespace vistrel
