#pragma once

// One preset in the presets popover: its symbol and title with the
// category and "Active" badges, the summary, the "Saved …" line beside the
// stored content and frame badges, and Apply, Save Current and Reset. A
// custom preset's card also has a menu to move, rename or delete it.
//
// The card only shows a PresetCardState and reports what was asked for; the
// popover acts on the view model. Main thread only.

#include "control/PresetCards.h"

#include <QFrame>

class QLabel;
class QMenu;
class QPushButton;
class QToolButton;

namespace vistrel {

class ElidedLabel;
class SourceBadgeView;

class PresetCardView : public QFrame {
    Q_OBJECT

public:
    explicit PresetCardView(QWidget* parent);

    const PresetCardState& state() const { return m_state; }
    void setState(const PresetCardState& state);

    // The card's controls in reading order, for the popover's Tab order.
    QList<QWidget*> focusOrder() const;

    QPushButton* applyButton() const { return m_apply; }
    QPushButton* saveButton() const { return m_save; }
    QPushButton* resetButton() const { return m_reset; }
    // Hidden on built-in cards.
    QToolButton* menuButton() const { return m_menuButton; }
    QAction* moveUpAction() const { return m_moveUp; }
    QAction* moveDownAction() const { return m_moveDown; }
    QAction* renameAction() const { return m_rename; }
    QAction* deleteAction() const { return m_delete; }

Q_SIGNALS:
    void applyRequested();
    void saveRequested();
    void resetRequested();
    void moveRequested(bool downward);
    void renameRequested();
    void deleteRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    PresetCardState m_state;
    QLabel* m_symbol;
    ElidedLabel* m_title;
    SourceBadgeView* m_category;
    SourceBadgeView* m_active;
    SourceBadgeView* m_content;
    SourceBadgeView* m_frame;
    QLabel* m_summary;
    QLabel* m_status;
    QPushButton* m_apply;
    QPushButton* m_save;
    QPushButton* m_reset;
    QToolButton* m_menuButton;
    QMenu* m_menu;
    QAction* m_moveUp;
    QAction* m_moveDown;
    QAction* m_rename;
    QAction* m_delete;
};

} // namespace vistrel
