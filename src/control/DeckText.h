#pragma once

// Texts and labels that the deck and all of its popovers share: one
// translation context, and the secondary label styles.

#include <QCoreApplication>
#include <QString>

class QLabel;
class QWidget;

namespace vistrel {

inline QString deckTr(const char* text)
{
    return QCoreApplication::translate("ControlDeck", text);
}

// Wrapped text in the secondary colour: explanations and hints. A maximum
// width of 0 leaves the width to the layout.
QLabel* secondaryText(const QString& text, QWidget* parent, int maximumWidth = 0);

// A group's small title in the secondary colour.
QLabel* sectionTitle(const QString& text, QWidget* parent);

} // namespace vistrel
