#include "control/MainControlWindow.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QVBoxLayout>

namespace vistrel {

MainControlWindow::MainControlWindow(MainViewModel& model, WindowRegistry& registry,
                                     PopoverHub& hub, ControlDeck::Actions actions, QWidget* parent)
    : QWidget(parent, Qt::Window), m_deck(nullptr), m_menu(actions.menu)
{
    setBackgroundRole(QPalette::Window);
    setAutoFillBackground(true);
    m_deck = new ControlDeck(model, registry, hub, std::move(actions), this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_deck);
    connect(m_deck, &ControlDeck::noticeDueChanged, this,
            [this] { Q_EMIT preferredHeightChanged(preferredHeight()); });
}

qreal MainControlWindow::preferredHeight() const
{
    return m_deck->isNoticeDue() ? noticeHeight : compactHeight;
}

void MainControlWindow::contextMenuEvent(QContextMenuEvent* event)
{
    if (m_menu)
        m_menu->popup(event->globalPos());
}

} // namespace vistrel
