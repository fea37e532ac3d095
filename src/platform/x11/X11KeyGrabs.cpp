#include "platform/x11/X11KeyGrabs.h"

#include <xcb/xproto.h>

namespace vistrel::x11 {

QList<quint8> keycodesFor(const QList<quint32>& keysyms, quint8 firstKeycode, int perKeycode,
                          const QList<quint32>& mapping, int columns)
{
    QList<quint8> keycodes;
    if (perKeycode <= 0)
        return keycodes;
    const int count = int(mapping.size()) / perKeycode;
    for (int i = 0; i < count; ++i) {
        for (int column = 0; column < std::min(columns, perKeycode); ++column) {
            if (keysyms.contains(mapping.at(i * perKeycode + column))) {
                keycodes.append(quint8(firstKeycode + i));
                break;
            }
        }
    }
    return keycodes;
}

quint16 modifierMaskFor(const QList<quint8>& keycodes, int perModifier,
                        const QList<quint8>& modifierMapping)
{
    for (int row = 0; row < 8 && perModifier > 0; ++row) {
        for (int i = 0; i < perModifier; ++i) {
            const qsizetype index = qsizetype(row) * perModifier + i;
            if (index < modifierMapping.size() && modifierMapping.at(index) != 0 &&
                keycodes.contains(modifierMapping.at(index)))
                return quint16(1u << row);
        }
    }
    return 0;
}

QList<quint16> lockCombinations(quint16 numLock, quint16 scrollLock)
{
    QList<quint16> combinations;
    for (const quint16 caps : {quint16(0), quint16(XCB_MOD_MASK_LOCK)}) {
        for (const quint16 num : {quint16(0), numLock}) {
            for (const quint16 scroll : {quint16(0), scrollLock}) {
                const quint16 mask = caps | num | scroll;
                if (!combinations.contains(mask))
                    combinations.append(mask);
            }
        }
    }
    std::sort(combinations.begin(), combinations.end());
    return combinations;
}

} // namespace vistrel::x11
