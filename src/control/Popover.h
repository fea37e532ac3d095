#pragma once

// A popover: a frameless popup anchored under the widget that opened it and
// kept on that widget's screen. It closes on a click outside, on Escape, when
// its content asks (a selection) and when the application asks every popover
// to close.
//
// A popover that takes drops cannot be a grabbing popup on X11: the press
// that starts a drag in a file manager would close it. That kind is a tool
// window above the others instead; it ignores other applications and closes
// on a press in any of Vistrel's windows outside it (a press on its anchor
// only closes it, so the anchor toggles it), on Escape and when asked.
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
    enum class Dismissal { onOutsideClick, staysOpenForDrops };

    Popover(const QString& title, PopoverHub& hub, QWidget* parent,
            Dismissal dismissal = Dismissal::onOutsideClick);
    ~Popover() override;

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
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QVBoxLayout* m_content;
    Dismissal m_dismissal;
    QPointer<QWidget> m_anchor;
};

} // namespace vistrel
