// What the X server hands out as bytes, decoded without a server: window
// titles in compound text, monitor names in EDID blocks, and which of
// discovery's cached facts each event makes stale.

#include "platform/x11/X11DiscoveryInvalidation.h"
#include "platform/x11/X11KeyGrabs.h"
#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11Text.h"

#include <QTest>
#include <cstring>
#include <xcb/randr.h>

using namespace Qt::StringLiterals;
using namespace vistrel::x11;

namespace {

constexpr xcb_window_t root = 0x100, frame = 0x200, client = 0x300, check = 0x400;
constexpr quint8 randrBase = 89;

// An event as libxcb hands it out (32 bytes and the full sequence number),
// zeroed but for its type and what `fill` sets.
template<class Event, class Fill> QByteArray wire(quint8 type, Fill fill)
{
    static_assert(sizeof(Event) <= sizeof(xcb_generic_event_t));
    Event event;
    std::memset(&event, 0, sizeof event);
    event.response_type = type;
    fill(event);
    QByteArray bytes(sizeof(xcb_generic_event_t), '\0');
    std::memcpy(bytes.data(), &event, sizeof event);
    return bytes;
}

// Structure events name the window they were selected on and the window concerned.
template<class Event> QByteArray notify(quint8 type, xcb_window_t event, xcb_window_t window)
{
    return wire<Event>(type, [&](Event& e) {
        e.event = event;
        e.window = window;
    });
}

QByteArray propertyChanged(xcb_window_t window, xcb_atom_t atom)
{
    return wire<xcb_property_notify_event_t>(XCB_PROPERTY_NOTIFY, [&](auto& e) {
        e.window = window;
        e.atom = atom;
    });
}

QByteArray created(xcb_window_t parent, xcb_window_t window)
{
    return wire<xcb_create_notify_event_t>(XCB_CREATE_NOTIFY, [&](auto& e) {
        e.parent = parent;
        e.window = window;
    });
}

QByteArray reparented(xcb_window_t event, xcb_window_t window, xcb_window_t parent)
{
    return wire<xcb_reparent_notify_event_t>(XCB_REPARENT_NOTIFY, [&](auto& e) {
        e.event = event;
        e.window = window;
        e.parent = parent;
    });
}

QByteArray bare(quint8 type)
{
    return wire<xcb_generic_event_t>(type, [](auto&) {});
}

// "top-levels root displays facts 0x.. structure 0x..", in that order.
QString summary(const DiscoveryStaleness& stale)
{
    QStringList parts;
    if (stale.topLevels)
        parts << u"top-levels"_s;
    if (stale.rootProperties)
        parts << u"root"_s;
    if (stale.displays)
        parts << u"displays"_s;
    for (const auto& [name, windows] :
         {std::pair{u"facts"_s, stale.facts}, std::pair{u"structure"_s, stale.structure}}) {
        if (windows.isEmpty())
            continue;
        parts << name;
        for (xcb_window_t w : windows)
            parts << u"0x%1"_s.arg(w, 0, 16);
    }
    return parts.join(u' ');
}

X11Atoms fakeAtoms()
{
    X11Atoms a;
    xcb_atom_t next = 300;
    for (xcb_atom_t* atom : {&a.wmState, &a.netWmName, &a.netClientListStacking, &a.netActiveWindow,
                             &a.netCurrentDesktop, &a.netSupportingWmCheck, &a.netWmState,
                             &a.netWmDesktop, &a.netWmPid, &a.netWmWindowType, &a.gtkApplicationId,
                             &a.kdeNetWmDesktopFile, &a.utf8String})
        *atom = next++;
    return a;
}

} // namespace

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

    // Each event names what discovery must read again, and nothing more:
    // an idle desktop sends none, a change costs the windows it names.
    void discoveryStaleness_data()
    {
        QTest::addColumn<QByteArray>("event");
        QTest::addColumn<QString>("stale");
        const X11Atoms a = fakeAtoms();
        constexpr xcb_window_t decoration = 0x201;

        // The tree: top-levels come and go; what happens inside a frame is
        // the frame's business.
        QTest::newRow("error, e.g. a selection on a window already gone") << bare(0) << u""_s;
        QTest::newRow("created on the root") << created(root, frame) << u"top-levels"_s;
        QTest::newRow("created inside a frame")
            << created(frame, decoration) << u"structure 0x200"_s;
        QTest::newRow("top-level destroyed")
            << notify<xcb_destroy_notify_event_t>(XCB_DESTROY_NOTIFY, root, frame)
            << u"top-levels structure 0x200"_s;
        QTest::newRow("client destroyed inside its frame")
            << notify<xcb_destroy_notify_event_t>(XCB_DESTROY_NOTIFY, frame, client)
            << u"structure 0x300 0x200"_s;
        QTest::newRow("client destroyed, its own notice")
            << notify<xcb_destroy_notify_event_t>(XCB_DESTROY_NOTIFY, client, client)
            << u"structure 0x300"_s;
        QTest::newRow("window manager gone: its check window destroyed")
            << notify<xcb_destroy_notify_event_t>(XCB_DESTROY_NOTIFY, root, check)
            << u"top-levels root structure 0x400"_s;
        QTest::newRow("frame mapped")
            << notify<xcb_map_notify_event_t>(XCB_MAP_NOTIFY, root, frame) << u"structure 0x200"_s;
        QTest::newRow("client unmapped inside its frame")
            << notify<xcb_unmap_notify_event_t>(XCB_UNMAP_NOTIFY, frame, client)
            << u"structure 0x300 0x200"_s;
        QTest::newRow("client reparented into a frame")
            << reparented(root, client, frame) << u"top-levels structure 0x300 0x200"_s;
        QTest::newRow("client back on the root, seen from its frame")
            << reparented(frame, client, root) << u"top-levels structure 0x300 0x200"_s;
        QTest::newRow("top-level moved, resized or restacked")
            << notify<xcb_configure_notify_event_t>(XCB_CONFIGURE_NOTIFY, root, frame)
            << u"top-levels facts 0x200"_s;
        QTest::newRow("client resized inside its frame, synthetic")
            << notify<xcb_configure_notify_event_t>(XCB_CONFIGURE_NOTIFY | 0x80, client, client)
            << u"facts 0x300"_s;
        QTest::newRow("restacked by circulation")
            << notify<xcb_circulate_notify_event_t>(XCB_CIRCULATE_NOTIFY, root, frame)
            << u"top-levels"_s;
        QTest::newRow("exposed: nothing discovery reads") << bare(XCB_EXPOSE) << u""_s;

        // Monitors: RandR's own events, and the root's configure that
        // setting or deleting a monitor sends.
        QTest::newRow("monitor set or deleted")
            << notify<xcb_configure_notify_event_t>(XCB_CONFIGURE_NOTIFY, root, root)
            << u"displays"_s;
        QTest::newRow("RandR screen change")
            << bare(randrBase + XCB_RANDR_SCREEN_CHANGE_NOTIFY) << u"displays"_s;
        QTest::newRow("RandR output change") << bare(randrBase + XCB_RANDR_NOTIFY) << u"displays"_s;

        // Properties: the root's that discovery reads, a client's, and
        // WM_STATE, which says which window is the client.
        for (const auto& [name, atom] : {std::pair{"client list", a.netClientListStacking},
                                         std::pair{"active window", a.netActiveWindow},
                                         std::pair{"current desktop", a.netCurrentDesktop},
                                         std::pair{"window manager check", a.netSupportingWmCheck}})
            QTest::addRow("root: %s", name) << propertyChanged(root, atom) << u"root"_s;
        QTest::newRow("root: another property") << propertyChanged(root, a.utf8String) << u""_s;
        QTest::newRow("check window: its check")
            << propertyChanged(check, a.netSupportingWmCheck) << u"root"_s;
        for (const auto& [name, atom] :
             {std::pair{"WM_NAME", xcb_atom_t(XCB_ATOM_WM_NAME)}, std::pair{"title", a.netWmName},
              std::pair{"class", xcb_atom_t(XCB_ATOM_WM_CLASS)}, std::pair{"state", a.netWmState},
              std::pair{"desktop", a.netWmDesktop}, std::pair{"type", a.netWmWindowType},
              std::pair{"pid", a.netWmPid}, std::pair{"application id", a.gtkApplicationId},
              std::pair{"desktop file", a.kdeNetWmDesktopFile}})
            QTest::addRow("client: %s", name) << propertyChanged(client, atom) << u"facts 0x300"_s;
        QTest::newRow("client: WM_STATE")
            << propertyChanged(client, a.wmState) << u"structure 0x300"_s;
        QTest::newRow("client: a property discovery does not read")
            << propertyChanged(client, a.utf8String) << u""_s;
    }

    void discoveryStaleness()
    {
        QFETCH(QByteArray, event);
        QFETCH(QString, stale);
        const X11DiscoveryInvalidation invalidation(root, fakeAtoms(), randrBase);
        const auto* e = reinterpret_cast<const xcb_generic_event_t*>(event.constData());
        QCOMPARE(summary(invalidation.staleAfter(e, check)), stale);
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
