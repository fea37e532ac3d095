#pragma once

// The arithmetic of a passive key grab, apart from the connection: which
// keycodes produce a key, which modifier bit a lock key sits on, and the
// lock combinations a grab must cover (X matches modifiers exactly, so a
// grab of Ctrl+Shift+H misses the key while Caps Lock or Num Lock is on
// unless those states are grabbed too).

#include <QList>
#include <QtGlobal>

namespace vistrel::x11 {

namespace keysym {
inline constexpr quint32 h = 0x68;
inline constexpr quint32 H = 0x48;
inline constexpr quint32 numLock = 0xff7f;
inline constexpr quint32 scrollLock = 0xff14;
} // namespace keysym

// The keycodes that hold one of `keysyms` in their first `columns` columns of
// a keyboard mapping (`perKeycode` keysyms per keycode, from `firstKeycode`).
QList<quint8> keycodesFor(const QList<quint32>& keysyms, quint8 firstKeycode, int perKeycode,
                          const QList<quint32>& mapping, int columns);

// The modifier bit (1 << row) whose row of the modifier mapping holds one of
// `keycodes`; 0 when none does.
quint16 modifierMaskFor(const QList<quint8>& keycodes, int perModifier,
                        const QList<quint8>& modifierMapping);

// Every combination of Caps Lock and the given Num Lock and Scroll Lock bits,
// none first, without repeats (a missing lock's bit is 0).
QList<quint16> lockCombinations(quint16 numLock, quint16 scrollLock);

} // namespace vistrel::x11
