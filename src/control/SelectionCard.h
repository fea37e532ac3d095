#pragma once

// A titled group inside a popover: a small bold title (with an optional
// trailing note, such as a count), then its rows on a faint card.

#include <QFrame>

class QLabel;
class QVBoxLayout;

namespace vistrel {

class SelectionCard : public QFrame {
    Q_OBJECT

public:
    SelectionCard(const QString& title, QWidget* parent);

    QVBoxLayout* contentLayout() const { return m_content; }
    // Shown beside the title; empty hides it.
    void setNote(const QString& note);

private:
    QLabel* m_note;
    QVBoxLayout* m_content;
};

} // namespace vistrel
