#include "platform/ManagedWindow.h"

namespace vistrel {

ManagedWindow::ManagedWindow(QObject* parent) : QObject(parent) {}

ManagedWindow::~ManagedWindow() = default;

void ManagedWindow::setCloseGuard(CloseGuard guard)
{
    m_closeGuard = std::move(guard);
}

bool ManagedWindow::shouldClose() const
{
    return !m_closeGuard || m_closeGuard();
}

} // namespace vistrel
