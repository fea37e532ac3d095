#pragma once

// WindowSystem for the scripted desktop: it keeps what it is told, per
// window, and the pointer buttons are whatever the script says.

#include "platform/WindowSystem.h"

#include <QHash>
#include <QSet>

namespace vistrel {

class SimWindowSystem final : public WindowSystem {
public:
    void setStateHints(quint32 window, const WindowStateHints& hints) override
    {
        m_hints.insert(window, hints);
    }
    bool isPointerButtonPressed() const override { return m_pointerButtonPressed; }
    void keepContentsReadable(quint32 window) override { m_readable.insert(window); }

    WindowStateHints hints(quint32 window) const { return m_hints.value(window); }
    bool isKeptReadable(quint32 window) const { return m_readable.contains(window); }
    void setPointerButtonPressed(bool pressed) { m_pointerButtonPressed = pressed; }

private:
    QHash<quint32, WindowStateHints> m_hints;
    QSet<quint32> m_readable;
    bool m_pointerButtonPressed = false;
};

} // namespace vistrel
