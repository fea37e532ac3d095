// What the X server hands out as bytes, decoded without a server: window
// titles in compound text, and monitor names in EDID blocks.

#include "platform/x11/X11KeyGrabs.h"
#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11Text.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel::x11;

class TestX11Decoding : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void compoundText_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("ASCII") << "Notes 2"_ba << u"Notes 2"_s;
        QTest::newRow("Latin-1 right half at the start") << "Caf\xe9"_ba << u"Café"_s;
        QTest::newRow("ISO 8859-7") << "\x1b-F\xc5\xeb\xeb\xdc\xe4\xe1"_ba << u"Ελλάδα"_s;
        QTest::newRow("ISO 8859-5, then back to Latin-1")
            << "\x1b-L\xbf\xe0\xd8\xd2\xd5\xe2 \x1b-A\xe9"_ba << u"Привет é"_s;
        QTest::newRow("ISO 8859-15") << "\x1b-b\xa4 5"_ba << u"€ 5"_s;
        QTest::newRow("UTF-8 segment, then the designations before it")
            << "\x1b-F\xe1 \x1b%G"_ba + u"Отчёт ☕"_s.toUtf8() + "\x1b%@ \xe1"_ba
            << u"α Отчёт ☕ α"_s;
        QTest::newRow("UTF-8 segment to the end") << "a\x1b%G\xc3\xa9"_ba << u"aé"_s;
        QTest::newRow("JIS X 0208 in GL, ASCII again")
            << "\x1b$(B\x46\x7c\x4b\x5c\x1b(B!"_ba << u"日本!"_s;
        QTest::newRow("KS C 5601 in GR") << "\x1b$)C\xc7\xd1"_ba << u"한"_s;
        QTest::newRow("JIS X 0201 katakana in GR") << "\x1b)I\xb1"_ba << u"ｱ"_s;
        QTest::newRow("extended segment") << "\x1b%/1\x80\x88koi8-r\x02\xf0"_ba << u"П"_s;
        QTest::newRow("unknown 96-character set reads as Latin-1") << "\x1b-Z\xe9"_ba << u"é"_s;
        QTest::newRow("unknown extended segment reads as Latin-1")
            << "\x1b%/1\x80\x88nosuch\x02\xe9x"_ba << u"éx"_s;
        QTest::newRow("undefined byte of a set") << "\x1b-F\xae"_ba << u"\ufffd"_s;
        QTest::newRow("tab and newline kept, controls and direction dropped") << "a\tb\n\x07\x9b"
                                                                                 "1]c\x9b]\x7f"_ba
                                                                              << u"a\tb\nc"_s;
        QTest::newRow("cut-off escape") << "ab\x1b-"_ba << u"ab"_s;
    }

    void compoundText()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(decodeCompoundText(bytes), text);
    }

    void edidNames_data()
    {
        QTest::addColumn<QByteArray>("edid");
        QTest::addColumn<QString>("name"); // empty: none
        QByteArray valid(128, '\0');
        valid.replace(0, 8, QByteArray::fromHex("00ffffffffffff00"));
        QByteArray named = valid;
        named[72 + 3] = char(0xfc);
        named.replace(72 + 5, 13, "DELL U2720Q\n ");
        QTest::newRow("named") << named << u"DELL U2720Q"_s;
        QTest::newRow("no name descriptor") << valid << QString();
        QTest::newRow("short") << named.left(100) << QString();
        QByteArray corrupt = named;
        corrupt[1] = 0;
        QTest::newRow("bad header") << corrupt << QString();
        QByteArray blank = valid;
        blank[54 + 3] = char(0xfc);
        blank.replace(54 + 5, 13, "\n            ");
        QTest::newRow("blank name") << blank << QString();
    }

    void edidNames()
    {
        QFETCH(QByteArray, edid);
        QFETCH(QString, name);
        QCOMPARE(edidProductName(edid), name.isEmpty() ? std::nullopt : std::optional(name));
    }

    // The panic key's grabs: keycodes of h or H in the first two columns only
    // (a third-level H is another combination), the lock bits wherever the
    // server put them, and every lock state covered once.
    void keyGrabs()
    {
        using namespace vistrel::x11;
        // Keycodes 8..11, three columns each.
        const QList<quint32> mapping{'a',
                                     'A',
                                     0, //
                                     'h',
                                     'H',
                                     0, //
                                     'x',
                                     'X',
                                     'H', //
                                     keysym::numLock,
                                     0,
                                     0};
        QCOMPARE(keycodesFor({keysym::h, keysym::H}, 8, 3, mapping, 2), QList<quint8>{9});
        QCOMPARE(keycodesFor({keysym::numLock}, 8, 3, mapping, 3), QList<quint8>{11});
        QCOMPARE(keycodesFor({'q'}, 8, 3, mapping, 2), QList<quint8>{});
        QCOMPARE(keycodesFor({'h'}, 8, 0, mapping, 2), QList<quint8>{});

        // Rows Shift, Lock, Control, Mod1..Mod5, two keycodes each: Num Lock
        // (11) on Mod2, nothing for Scroll Lock.
        const QList<quint8> modifiers{50, 62, 66, 0, 37, 105, 64, 0, 0, 11, 0, 0, 0, 0, 0, 0};
        QCOMPARE(modifierMaskFor({11}, 2, modifiers), quint16(XCB_MOD_MASK_2));
        QCOMPARE(modifierMaskFor({78}, 2, modifiers), quint16(0));
        QCOMPARE(modifierMaskFor({0}, 2, modifiers), quint16(0));

        const quint16 caps = XCB_MOD_MASK_LOCK;
        const quint16 num = XCB_MOD_MASK_2;
        const quint16 scroll = XCB_MOD_MASK_5;
        QCOMPARE(lockCombinations(num, scroll),
                 (QList<quint16>{0, caps, num, quint16(caps | num), scroll, quint16(caps | scroll),
                                 quint16(num | scroll), quint16(caps | num | scroll)}));
        QCOMPARE(lockCombinations(num, 0), (QList<quint16>{0, caps, num, quint16(caps | num)}));
        QCOMPARE(lockCombinations(0, 0), (QList<quint16>{0, caps}));
    }
};

QTEST_GUILESS_MAIN(TestX11Decoding)
#include "tst_x11_decoding.moc"
