#pragma once

// The one application-level object that carries "close the popovers": any
// window (the preview panel, the deck, the menu) asks through it, and every
// open popover listens. Built once by the application and handed on.
//
// Main thread only.

#include <QObject>

namespace vistrel {

class PopoverHub : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    void requestClosePopovers() { Q_EMIT closePopovers(); }

Q_SIGNALS:
    void closePopovers();
};

} // namespace vistrel
