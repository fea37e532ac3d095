// What the X server hands out as bytes, decoded without a server: monitor
// names in EDID blocks.

#include "platform/x11/X11Monitors.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel::x11;

class TestX11Decoding : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
};

QTEST_GUILESS_MAIN(TestX11Decoding)
#include "tst_x11_decoding.moc"
