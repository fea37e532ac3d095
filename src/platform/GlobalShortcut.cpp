#include "platform/GlobalShortcut.h"

#include <QCoreApplication>

namespace vistrel {

QString GlobalShortcut::problem() const
{
    switch (status()) {
    case GlobalShortcutStatus::active:
        return {};
    case GlobalShortcutStatus::taken:
        return QCoreApplication::translate("GlobalShortcut",
                                           "%1 is taken by another application; the panic key "
                                           "works only inside Vistrel")
            .arg(keyText());
    case GlobalShortcutStatus::unavailable:
        return QCoreApplication::translate("GlobalShortcut",
                                           "%1 cannot be set up on this display; the panic key "
                                           "works only inside Vistrel")
            .arg(keyText());
    }
    return {};
}

} // namespace vistrel
