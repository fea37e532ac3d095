#pragma once

// The application's own windows, and how the output window is presented.

#include <QHashFunctions>
#include <QString>
#include <optional>

namespace vistrel {

// The raw values are also the identifiers of the windows' scenes.
enum class ManagedWindowKind {
    simpleControl, // the control deck window
    output,        // the window the user shares in a meeting
    preview,       // the preview panel; driven by isPreviewVisible, never registered
};

QString rawValue(ManagedWindowKind kind);
// Nothing for anything but the three raw values (case-sensitive).
std::optional<ManagedWindowKind> managedWindowKindFromRaw(QStringView raw);

inline size_t qHash(ManagedWindowKind kind, size_t seed = 0) noexcept
{
    return ::qHash(static_cast<int>(kind), seed);
}

enum class OutputWindowPresentation {
    // Centred on its display at the largest size that fits.
    centered,
    // Moved out of the user's sight but still mapped, so that a meeting
    // application that captures it keeps its source.
    docked,
};

QString caseName(OutputWindowPresentation presentation);

} // namespace vistrel
