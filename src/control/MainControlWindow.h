#pragma once

// The control window "Vistrel": the control deck on the window background,
// 520 wide and 170 high, 290 while the deck has a notice due. It has no title
// bar; the window placement moves it by its background and applies the
// height it asks for. Its context menu is the application menu.
//
// Main thread only.

#include "control/ControlDeck.h"

#include <QWidget>

namespace vistrel {

class MainControlWindow : public QWidget {
    Q_OBJECT

public:
    static constexpr qreal compactHeight = 170;
    static constexpr qreal noticeHeight = 290;

    MainControlWindow(MainViewModel& model, WindowRegistry& registry, PopoverHub& hub,
                      ControlDeck::Actions actions, QWidget* parent = nullptr);

    ControlDeck* deck() const { return m_deck; }
    qreal preferredHeight() const;

Q_SIGNALS:
    void preferredHeightChanged(qreal height);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    ControlDeck* m_deck;
    QMenu* m_menu;
};

} // namespace vistrel
