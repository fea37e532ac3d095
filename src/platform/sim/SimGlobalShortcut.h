#pragma once

// The scripted desktop's global shortcut: tests set its status and press it.

#include "platform/GlobalShortcut.h"

namespace vistrel {

class SimGlobalShortcut final : public GlobalShortcut {
public:
    explicit SimGlobalShortcut(GlobalShortcutStatus status = GlobalShortcutStatus::active)
        : m_status(status)
    {
    }

    GlobalShortcutStatus status() const override { return m_status; }
    QString keyText() const override { return QStringLiteral("Ctrl+Shift+H"); }

    void setStatus(GlobalShortcutStatus status)
    {
        if (status == m_status)
            return;
        m_status = status;
        Q_EMIT statusChanged(status);
    }
    void press() { Q_EMIT activated(); }

private:
    GlobalShortcutStatus m_status;
};

} // namespace vistrel
