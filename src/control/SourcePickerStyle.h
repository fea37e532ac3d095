#pragma once

// The source picker's colours and row background, in one place so the
// badges and rows agree.
//
// Main thread only.

#include "control/SourcePickerRows.h"

#include <QColor>
#include <QPalette>

class QWidget;

namespace vistrel {

// Text colour between the window text and the background: hints and counts.
QColor secondaryTextColor(const QPalette& palette);
// Green shown, secondary for hidden, orange partial.
QColor visibilityTint(SourceVisibilityState state, const QPalette& palette);
// Neutral in the secondary colour, accent in the highlight, warning orange.
QColor toneTint(BadgeTone tone, const QPalette& palette);
// A light highlight behind a row while the pointer is over it; the row
// needs Qt::WA_Hover so entering and leaving repaint it.
void paintRowHover(QWidget& row);

} // namespace vistrel
