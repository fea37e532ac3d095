#pragma once

// What the source picker shows, as plain values: the summary line, one row
// per listed application (with its window rows while expanded), or the empty
// state that replaces the list. Pure, so the wording and the states are
// checked without widgets; the view only applies these values.

#include "model/SourceIdentity.h"
#include "model/VisibilityPolicy.h"

#include <QCoreApplication>
#include <QList>
#include <QSet>
#include <QString>
#include <optional>

namespace vistrel {

enum class BadgeTone {
    neutral,
    accent,
    warning,
};

struct SourceBadge {
    QString text;
    BadgeTone tone = BadgeTone::neutral;

    friend bool operator==(const SourceBadge&, const SourceBadge&) = default;
};

struct SourcePickerWindowRow {
    ShareableWindow window; // what the action toggles
    QString title;
    std::optional<SourceBadge> focusedBadge;
    SourceBadge screenBadge; // "On Screen" or "Off Screen"
    SourceVisibilityState visibility = SourceVisibilityState::hidden;
    QString actionLabel;
    bool isSelected = false;

    friend bool operator==(const SourcePickerWindowRow&, const SourcePickerWindowRow&) = default;
};

struct SourcePickerApplicationRow {
    QString key;      // stable across refreshes: AppIdentity::id()
    ShareableApp app; // as listed (search may have reduced its windows)
    QString name;
    QString detail;
    QString windowCount;
    SourceVisibilityState visibility = SourceVisibilityState::hidden;
    QString actionLabel;
    bool isSelected = false;
    bool hasExpandControl = false;
    bool isExpanded = false;
    QString expandSymbol;
    QList<SourcePickerWindowRow> windows; // empty while collapsed

    friend bool operator==(const SourcePickerApplicationRow&,
                           const SourcePickerApplicationRow&) = default;
};

struct SourcePickerEmptyState {
    QString symbol;
    QString title;
    QString text;

    friend bool operator==(const SourcePickerEmptyState&, const SourcePickerEmptyState&) = default;
};

struct SourcePickerContent {
    QString summary;
    QList<SourcePickerApplicationRow> applications;
    std::optional<SourcePickerEmptyState> emptyState; // set exactly when nothing is listed

    friend bool operator==(const SourcePickerContent&, const SourcePickerContent&) = default;
};

struct SourcePickerInput {
    QList<ShareableApp> applications;    // the filtered list, in order
    QList<ShareableApp> allApplications; // unfiltered: selection counts every window
    VisibilityPolicy policy;
    QSet<QString> expandedKeys;
    QString searchText;
    QString sourceSummary; // "<n> apps • <m> windows"
};

class SourcePickerRows {
    Q_DECLARE_TR_FUNCTIONS(vistrel::SourcePickerRows)

public:
    static SourcePickerContent build(const SourcePickerInput& input);
    // "Show" in allow-list mode, "Hide" in block-list mode.
    static QString actionLabel(VisibilityMode mode);
    static QString visibilityText(SourceVisibilityState state);
};

} // namespace vistrel
