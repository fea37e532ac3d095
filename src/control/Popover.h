#pragma once

// A popover: a frameless popup anchored under the widget that opened it and
// kept on that widget's screen. It closes on a click outside, on Escape, when
// its content asks (a selection) and when the application asks every popover
// to close.
//
// Main thread only. Coordinates: global, y-down.

#include <QFrame>
#include <QPointer>

class QLabel;
class QVBoxLayout;

namespace vistrel {

class PopoverHub;

class Popover : public QFrame {
    Q_OBJECT

public:
    Popover(const QString& title, PopoverHub& hub, QWidget* parent);

    // Where the content goes, under the title.
    QVBoxLayout* contentLayout() const { return m_content; }
    // Shows the popover under `anchor`, moved in so that it stays on the
    // anchor's screen.
    void showUnder(QWidget* anchor);

    // The origin for a popover of `size` under `anchor` (global), kept inside
    // `screen`: pure, so the rule is checked without windows.
    static QPoint placement(const QRect& anchor, const QSize& size, const QRect& screen);

Q_SIGNALS:
    void closed();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    QVBoxLayout* m_content;
};

} // namespace vistrel
