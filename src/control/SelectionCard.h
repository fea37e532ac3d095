#pragma once

// A titled group inside a popover: a small bold title, then its rows on a
// faint card.

#include <QFrame>

class QVBoxLayout;

namespace vistrel {

class SelectionCard : public QFrame {
    Q_OBJECT

public:
    SelectionCard(const QString& title, QWidget* parent);

    QVBoxLayout* contentLayout() const { return m_content; }

private:
    QVBoxLayout* m_content;
};

} // namespace vistrel
