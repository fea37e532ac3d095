#pragma once

// Text properties (WM_NAME and the like) as X clients write them, to Unicode.
//
// Pure functions; any thread.

#include <QByteArrayView>
#include <QString>

namespace vistrel::x11 {

enum class TextEncoding {
    latin1,      // STRING, and any type not known here
    utf8,        // UTF8_STRING
    compoundText // COMPOUND_TEXT
};

QString decodeText(QByteArrayView bytes, TextEncoding encoding);

// COMPOUND_TEXT, the ISO 2022 subset X uses. GL starts as ASCII and GR as
// the right half of ISO 8859-1; escape sequences designate other sets: the
// ISO 8859 parts and JIS X 0201 to GR, the two-byte GB 2312, JIS X 0208 and
// KS C 5601 to either half. ESC % G ... ESC % @ encloses UTF-8, and an
// extended segment (ESC % / ...) names its encoding. Bytes of a set not
// known here read as Latin-1; bytes a set does not define become U+FFFD.
// Tab and newline are kept, other controls and direction changes dropped.
QString decodeCompoundText(QByteArrayView bytes);

} // namespace vistrel::x11
