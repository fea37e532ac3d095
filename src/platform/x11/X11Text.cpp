#include "platform/x11/X11Text.h"

#include <QByteArray>
#include <cerrno>
#include <iconv.h>

namespace vistrel::x11 {

namespace {

constexpr char esc = 0x1b;
constexpr unsigned char csi = 0x9b;

// The set one half (GL or GR) shows: decoded by iconv, or as Latin-1 when
// `iconvName` is null. `highBit`: the set's iconv form wants the bytes of
// the right half (EUC forms of the two-byte sets shown in GL).
struct Charset {
    const char* iconvName = nullptr;
    bool highBit = false;
};

// Half-width katakana (the right half of JIS X 0201), which iconv knows only
// inside other encodings: decoded here.
constexpr const char* katakana = "JIS X 0201 katakana";

// ISO 2022 final bytes of the 96-character sets: the parts of ISO 8859.
const char* iso8859ByFinal(char final)
{
    switch (final) {
    case 'A':
        return "ISO-8859-1";
    case 'B':
        return "ISO-8859-2";
    case 'C':
        return "ISO-8859-3";
    case 'D':
        return "ISO-8859-4";
    case 'F':
        return "ISO-8859-7";
    case 'G':
        return "ISO-8859-6";
    case 'H':
        return "ISO-8859-8";
    case 'L':
        return "ISO-8859-5";
    case 'M':
        return "ISO-8859-9";
    case 'T':
        return "ISO-8859-11";
    case 'V':
        return "ISO-8859-10";
    case 'Y':
        return "ISO-8859-13";
    case '_':
        return "ISO-8859-14";
    case 'b':
        return "ISO-8859-15";
    case 'f':
        return "ISO-8859-16";
    default:
        return nullptr;
    }
}

// The two-byte sets, in their EUC form (both bytes with the high bit).
const char* twoByteByFinal(char final)
{
    switch (final) {
    case 'A':
        return "EUC-CN"; // GB 2312
    case 'B':
        return "EUC-JP"; // JIS X 0208
    case 'C':
        return "EUC-KR"; // KS C 5601
    default:
        return nullptr;
    }
}

// Unknown encodings and bytes an encoding does not define are not an error:
// a title is shown as well as it can be.
QString convert(QByteArrayView bytes, const char* encoding, bool highBit = false)
{
    if (!encoding)
        return QString::fromLatin1(bytes);
    if (encoding == katakana) {
        QString text;
        for (const char c : bytes) {
            const int b = static_cast<unsigned char>(c);
            text += QChar(char16_t(b >= 0xa1 && b <= 0xdf ? 0xff61 + b - 0xa1 : 0xfffd));
        }
        return text;
    }
    iconv_t cd = iconv_open("UTF-8", encoding);
    if (cd == iconv_t(-1))
        return QString::fromLatin1(bytes);
    QByteArray in(bytes.data(), bytes.size());
    if (highBit)
        for (char& c : in)
            c = char(c | 0x80);
    QByteArray out(in.size() * 4 + 4, Qt::Uninitialized);
    char* from = in.data();
    size_t fromLeft = size_t(in.size());
    char* to = out.data();
    size_t toLeft = size_t(out.size());
    while (fromLeft > 0) {
        if (iconv(cd, &from, &fromLeft, &to, &toLeft) != size_t(-1))
            break;
        if (errno == E2BIG || toLeft < 3)
            break; // cannot happen: four bytes out per byte in suffice
        // An invalid or incomplete sequence: one replacement, one byte on.
        *to++ = char(0xef);
        *to++ = char(0xbf);
        *to++ = char(0xbd);
        toLeft -= 3;
        ++from;
        --fromLeft;
    }
    iconv_close(cd);
    out.truncate(to - out.data());
    return QString::fromUtf8(out);
}

// X's names of extended segment encodings as iconv knows them.
QByteArray iconvNameOf(QByteArray name)
{
    name = name.toUpper();
    if (name == "ISO10646-1")
        return "UCS-2BE";
    if (name.endsWith("-0"))
        name.chop(2);
    return name;
}

} // namespace

QString decodeCompoundText(QByteArrayView bytes)
{
    Charset gl; // ASCII
    Charset gr; // the right half of Latin-1
    QString text;
    const qsizetype n = bytes.size();
    const auto at = [&](qsizetype i) {
        return i < n ? static_cast<unsigned char>(bytes[i]) : 0;
    };
    qsizetype i = 0;
    while (i < n) {
        const unsigned char b = at(i);
        if (b == esc) {
            // ESC, intermediate bytes (0x20-0x2F), a final byte (0x30-0x7E).
            qsizetype end = i + 1;
            while (at(end) >= 0x20 && at(end) <= 0x2f)
                ++end;
            if (end >= n || at(end) < 0x30 || at(end) > 0x7e)
                break; // cut off
            const QByteArrayView intermediates = bytes.sliced(i + 1, end - i - 1);
            const char final = char(at(end));
            i = end + 1;
            if (intermediates == "%" && final == 'G') {
                qsizetype stop = bytes.indexOf(QByteArrayView("\x1b%@"), i);
                if (stop < 0)
                    stop = n;
                text += QString::fromUtf8(bytes.sliced(i, stop - i));
                i = qMin(n, stop + 3);
            } else if (intermediates == "%/" && final >= '0' && final <= '4') {
                // Extended segment: two length bytes, then "name STX data".
                const qsizetype start = qMin(n, i + 2);
                const qsizetype length =
                    qMin<qsizetype>((at(i) & 0x7f) * 128 + (at(i + 1) & 0x7f), n - start);
                const QByteArrayView segment = bytes.sliced(start, length);
                const qsizetype stx = segment.indexOf('\x02');
                if (stx >= 0)
                    text += convert(segment.sliced(stx + 1),
                                    iconvNameOf(segment.first(stx).toByteArray()).constData());
                i = start + length;
            } else if (intermediates == "(") {
                gl = Charset(); // ASCII, and what is not known here
            } else if (intermediates == ")") {
                gr = Charset{final == 'I' ? katakana : nullptr, false};
            } else if (intermediates == "-") {
                gr = Charset{iso8859ByFinal(final), false};
            } else if (intermediates == "$(" || intermediates == "$") {
                gl = Charset{twoByteByFinal(final), true};
            } else if (intermediates == "$)") {
                gr = Charset{twoByteByFinal(final), false};
            }
            continue;
        }
        if (b == csi) { // direction: parameters, intermediates, a final byte
            ++i;
            while (i < n && (at(i) < 0x40 || at(i) > 0x7e))
                ++i;
            ++i;
            continue;
        }
        if (b == '\t' || b == '\n' || b == ' ') {
            text += QChar(char16_t(b));
            ++i;
            continue;
        }
        const bool left = b > 0x20 && b < 0x7f;
        if (!left && b < 0xa0) { // other controls
            ++i;
            continue;
        }
        qsizetype end = i + 1;
        while (end < n && (left ? at(end) > 0x20 && at(end) < 0x7f : at(end) >= 0xa0))
            ++end;
        const Charset& set = left ? gl : gr;
        text += convert(bytes.sliced(i, end - i), set.iconvName, set.highBit);
        i = end;
    }
    return text;
}

QString decodeText(QByteArrayView bytes, TextEncoding encoding)
{
    switch (encoding) {
    case TextEncoding::utf8:
        return QString::fromUtf8(bytes);
    case TextEncoding::compoundText:
        return decodeCompoundText(bytes);
    case TextEncoding::latin1:
        break;
    }
    return QString::fromLatin1(bytes);
}

} // namespace vistrel::x11
