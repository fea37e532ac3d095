#pragma once

// The date form of the state file: ISO-8601 text in UTC with whole seconds,
// "2025-03-14T09:26:53Z".
//
// Writing keeps whole seconds only (the fraction is dropped, rounding toward
// the earlier second) and handles years 1 to 9999, so the never-saved
// distant past 0001-01-01T00:00:00Z reads back as exactly the same instant.
//
// Reading is strict about the shape but accepts what a hand-edited file
// plausibly holds: "YYYY-MM-DDTHH:MM:SS", an optional fraction of a second
// (dropped, like the writer does), then "Z" or a numeric offset "+HH:MM" /
// "-HH:MM" (converted to UTC). Rejected: a missing zone (local time would be
// ambiguous), lower-case 't'/'z', spaces, impossible fields (month 13,
// February 30, hour 24, leap second 60) and instants outside years 1..9999 UTC.

#include <QDateTime>
#include <QString>
#include <optional>

namespace vistrel {

// nullopt for an invalid date or one outside years 1..9999 in UTC.
std::optional<QString> formatIsoDate(const QDateTime& date);
// A UTC date/time, or nullopt when the text is not of the accepted form.
std::optional<QDateTime> parseIsoDate(QStringView text);

} // namespace vistrel
