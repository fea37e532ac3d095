#include "platform/x11/X11WindowInspector.h"

#include "platform/x11/X11Text.h"
#include "platform/x11/XcbPtr.h"

#include <QFile>
#include <xcb/res.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

namespace {

xcb_get_property_cookie_t getProperty(xcb_connection_t* c, xcb_window_t w, xcb_atom_t property,
                                      xcb_atom_t type, quint32 longLength = 1024)
{
    return xcb_get_property(c, 0, w, property, type, 0, longLength);
}

using PropertyReply = XcbReply<xcb_get_property_reply_t>;

PropertyReply takeProperty(xcb_connection_t* c, xcb_get_property_cookie_t cookie)
{
    auto [reply, error] = xcbReply(xcb_get_property_reply, c, cookie);
    if (!reply || reply->type == XCB_ATOM_NONE)
        return nullptr;
    return std::move(reply);
}

// A 32-bit list property as numbers; empty when the format does not match.
QList<quint32> cardinals(const xcb_get_property_reply_t* reply)
{
    QList<quint32> values;
    if (!reply || reply->format != 32)
        return values;
    const auto* data = static_cast<const quint32*>(xcb_get_property_value(reply));
    const int count = xcb_get_property_value_length(reply) / 4;
    values.reserve(count);
    for (int i = 0; i < count; ++i)
        values << data[i];
    return values;
}

// By the property's type: STRING (and anything unknown) is Latin-1.
std::optional<QString> text(const xcb_get_property_reply_t* reply, const X11Atoms& atoms)
{
    if (!reply || reply->format != 8)
        return std::nullopt;
    const char* data = static_cast<const char*>(xcb_get_property_value(reply));
    const int length = xcb_get_property_value_length(reply);
    QByteArrayView bytes(data, length);
    if (bytes.endsWith('\0'))
        bytes.chop(1);
    return decodeText(bytes, reply->type == atoms.utf8String     ? TextEncoding::utf8
                             : reply->type == atoms.compoundText ? TextEncoding::compoundText
                                                                 : TextEncoding::latin1);
}

// "instance\0class\0": the class part names the application.
QString windowClassOf(const xcb_get_property_reply_t* reply)
{
    if (!reply || reply->format != 8)
        return {};
    const QStringList parts =
        QString::fromLatin1(static_cast<const char*>(xcb_get_property_value(reply)),
                            xcb_get_property_value_length(reply))
            .split(QChar(0));
    return parts.size() > 1 ? parts.at(1) : parts.value(0);
}

std::optional<QString> applicationIdOf(const xcb_get_property_reply_t* gtk,
                                       const xcb_get_property_reply_t* kde, const X11Atoms& atoms)
{
    for (const auto* reply : {gtk, kde}) {
        if (auto id = text(reply, atoms); id && !id->isEmpty())
            return id;
    }
    return std::nullopt;
}

} // namespace

WindowFacts X11Ownership::facts() const
{
    WindowFacts facts;
    facts.windowID = client;
    facts.ownerPid = processID;
    facts.identity.applicationName = windowClass;
    if (windowClass.isEmpty() && processID)
        facts.identity.applicationName = X11WindowInspector::processName(*processID);
    facts.identity.bundleIdentifier = applicationID;
    facts.kind = windowKindForLayer(layer);
    return facts;
}

QString X11WindowInspector::processName(qint32 pid)
{
    QFile comm(u"/proc/%1/comm"_s.arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(comm.readAll()).trimmed();
}

X11WindowInspector::X11WindowInspector(xcb_connection_t* connection, xcb_window_t root,
                                       bool hasResource)
    : m_c(connection), m_root(root), m_hasResource(hasResource),
      m_atoms(X11Atoms::intern(connection))
{
}

std::optional<xcb_window_t> X11WindowInspector::clientBelow(xcb_window_t frame) const
{
    // Breadth first: a frame holds the client one or two levels down.
    QList<xcb_window_t> level{frame};
    for (int depth = 0; depth < 4 && !level.isEmpty(); ++depth) {
        QList<xcb_get_property_cookie_t> cookies;
        for (xcb_window_t w : level)
            cookies << getProperty(m_c, w, m_atoms.wmState, m_atoms.wmState, 2);
        std::optional<xcb_window_t> found;
        for (qsizetype i = 0; i < level.size(); ++i) {
            auto reply = takeProperty(m_c, cookies[i]);
            if (reply && !found)
                found = level[i];
        }
        if (found)
            return found;
        QList<xcb_query_tree_cookie_t> trees;
        for (xcb_window_t w : level)
            trees << xcb_query_tree(m_c, w);
        QList<xcb_window_t> next;
        for (auto cookie : trees) {
            auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, cookie);
            if (!tree)
                continue;
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i)
                next << children[i];
        }
        level = std::move(next);
    }
    return std::nullopt;
}

xcb_window_t X11WindowInspector::clientOf(xcb_window_t topLevel, bool overrideRedirect) const
{
    if (overrideRedirect)
        return topLevel;
    if (const auto marked = clientBelow(topLevel))
        return *marked;
    // Not marked yet (the window manager is still adopting it): the first
    // window below that another X client created, breadth first.
    const quint32 mask = xcb_get_setup(m_c)->resource_id_mask;
    const quint32 base = topLevel & ~mask;
    QList<xcb_window_t> level{topLevel};
    for (int depth = 0; depth < 3 && !level.isEmpty(); ++depth) {
        QList<xcb_window_t> next;
        for (xcb_window_t parent : std::as_const(level)) {
            auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, xcb_query_tree(m_c, parent));
            if (!tree)
                continue;
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
                if ((children[i] & ~mask) != base)
                    return children[i];
                next << children[i];
            }
        }
        level = std::move(next);
    }
    return topLevel;
}

X11Ownership X11WindowInspector::ownership(xcb_window_t topLevel, bool overrideRedirect) const
{
    const X11Atoms& a = m_atoms;
    X11Ownership owner;
    owner.client = clientOf(topLevel, overrideRedirect);
    const auto wmClass = getProperty(m_c, owner.client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    const auto gtkId = getProperty(m_c, owner.client, a.gtkApplicationId, a.utf8String);
    const auto kdeId =
        getProperty(m_c, owner.client, a.kdeNetWmDesktopFile, XCB_GET_PROPERTY_TYPE_ANY);
    const auto type = getProperty(m_c, owner.client, a.netWmWindowType, XCB_ATOM_ATOM);
    auto classReply = takeProperty(m_c, wmClass);
    auto gtkReply = takeProperty(m_c, gtkId);
    auto kdeReply = takeProperty(m_c, kdeId);
    auto typeReply = takeProperty(m_c, type);
    owner.windowClass = windowClassOf(classReply.get());
    owner.applicationID = applicationIdOf(gtkReply.get(), kdeReply.get(), a);
    owner.layer = layerOf(typeReply.get(), overrideRedirect);
    owner.processID = ownerProcessID(owner.client);
    return owner;
}

std::optional<xcb_window_t> X11WindowInspector::frameAbove(xcb_window_t window) const
{
    for (int depth = 0; depth < 16; ++depth) {
        auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, xcb_query_tree(m_c, window));
        if (!tree)
            return std::nullopt;
        if (tree->parent == m_root || tree->parent == XCB_NONE)
            return tree->parent == m_root ? std::optional(window) : std::nullopt;
        window = tree->parent;
    }
    return std::nullopt;
}

std::optional<qint32> X11WindowInspector::ownerProcessID(xcb_window_t window) const
{
    if (m_hasResource) {
        xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        auto [reply, error] =
            xcbReply(xcb_res_query_client_ids_reply, m_c, xcb_res_query_client_ids(m_c, 1, &spec));
        if (reply) {
            for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem;
                 xcb_res_client_id_value_next(&it)) {
                if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) &&
                    xcb_res_client_id_value_value_length(it.data) >= 1)
                    return qint32(*xcb_res_client_id_value_value(it.data));
            }
        }
    }
    auto pid = takeProperty(m_c, getProperty(m_c, window, m_atoms.netWmPid, XCB_ATOM_CARDINAL, 1));
    const auto values = cardinals(pid.get());
    if (!values.isEmpty() && values.first() > 0)
        return qint32(values.first());
    return std::nullopt;
}

int X11WindowInspector::layerOf(const xcb_get_property_reply_t* type, bool overrideRedirect) const
{
    const X11Atoms& a = m_atoms;
    for (quint32 atom : cardinals(type)) { // the first type the reader knows wins
        if (atom == a.typeNormal || atom == a.typeDialog)
            return WindowLayer::Normal;
        if (atom == a.typeDesktop)
            return WindowLayer::Desktop;
        if (atom == a.typeDock)
            return WindowLayer::Dock;
        if (atom == a.typeUtility || atom == a.typeToolbar || atom == a.typeSplash)
            return WindowLayer::Floating;
        if (atom == a.typeNotification)
            return WindowLayer::Notification;
        if (atom == a.typeMenu || atom == a.typeDropdownMenu || atom == a.typePopupMenu ||
            atom == a.typeCombo)
            return WindowLayer::PopupMenu;
        if (atom == a.typeTooltip || atom == a.typeDnd)
            return WindowLayer::Tooltip;
    }
    // Override-redirect windows bypass the window manager: menus and the like.
    return overrideRedirect ? WindowLayer::PopupMenu : WindowLayer::Normal;
}

std::variant<X11WindowInfo, QString> X11WindowInspector::inspect(xcb_window_t client,
                                                                 xcb_window_t frame) const
{
    if (frame == XCB_NONE) {
        const auto above = frameAbove(client);
        if (!above)
            return u"Window 0x%1 no longer exists."_s.arg(client, 0, 16);
        frame = *above;
    }
    const X11Atoms& a = m_atoms;
    const auto frameAttributes = xcb_get_window_attributes(m_c, frame);
    const auto frameGeometry = xcb_get_geometry(m_c, frame);
    const auto clientGeometry = xcb_get_geometry(m_c, client);
    const auto clientOrigin = xcb_translate_coordinates(m_c, client, m_root, 0, 0);
    const auto wmClass = getProperty(m_c, client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    // Any type: a client that writes it as STRING still gets its title read.
    const auto netName = getProperty(m_c, client, a.netWmName, XCB_GET_PROPERTY_TYPE_ANY);
    const auto wmName = getProperty(m_c, client, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY);
    const auto gtkId = getProperty(m_c, client, a.gtkApplicationId, a.utf8String);
    const auto kdeId = getProperty(m_c, client, a.kdeNetWmDesktopFile, XCB_GET_PROPERTY_TYPE_ANY);
    const auto type = getProperty(m_c, client, a.netWmWindowType, XCB_ATOM_ATOM);
    const auto state = getProperty(m_c, client, a.netWmState, XCB_ATOM_ATOM);
    const auto desktop = getProperty(m_c, client, a.netWmDesktop, XCB_ATOM_CARDINAL, 1);

    auto [attributes, e1] = xcbReply(xcb_get_window_attributes_reply, m_c, frameAttributes);
    auto [outer, e2] = xcbReply(xcb_get_geometry_reply, m_c, frameGeometry);
    auto [inner, e3] = xcbReply(xcb_get_geometry_reply, m_c, clientGeometry);
    auto [origin, e4] = xcbReply(xcb_translate_coordinates_reply, m_c, clientOrigin);
    auto classReply = takeProperty(m_c, wmClass);
    auto netNameReply = takeProperty(m_c, netName);
    auto wmNameReply = takeProperty(m_c, wmName);
    auto gtkReply = takeProperty(m_c, gtkId);
    auto kdeReply = takeProperty(m_c, kdeId);
    auto typeReply = takeProperty(m_c, type);
    auto stateReply = takeProperty(m_c, state);
    auto desktopReply = takeProperty(m_c, desktop);
    if (!attributes || !outer || !inner || !origin)
        return u"Window 0x%1 no longer exists."_s.arg(client, 0, 16);

    X11WindowInfo info;
    info.client = client;
    info.frame = frame;
    info.overrideRedirect = attributes->override_redirect;
    info.viewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    const int border = outer->border_width;
    info.frameGeometry =
        QRect(outer->x, outer->y, outer->width + 2 * border, outer->height + 2 * border);
    info.clientGeometry = QRect(origin->dst_x, origin->dst_y, inner->width, inner->height);
    info.windowClass = windowClassOf(classReply.get());
    info.title = text(netNameReply.get(), a);
    if (!info.title || info.title->isEmpty())
        info.title = text(wmNameReply.get(), a);
    info.applicationID = applicationIdOf(gtkReply.get(), kdeReply.get(), a);
    info.layer = layerOf(typeReply.get(), info.overrideRedirect);
    info.hidden = cardinals(stateReply.get()).contains(a.netWmStateHidden);
    if (const auto values = cardinals(desktopReply.get()); !values.isEmpty())
        info.desktop = values.first();
    info.processID = ownerProcessID(client);
    return info;
}

std::optional<QList<xcb_window_t>> X11WindowInspector::clientListStacking() const
{
    auto reply = takeProperty(
        m_c, getProperty(m_c, m_root, m_atoms.netClientListStacking, XCB_ATOM_WINDOW, 65536));
    if (!reply)
        return std::nullopt;
    return cardinals(reply.get());
}

std::optional<xcb_window_t> X11WindowInspector::activeWindow() const
{
    auto reply =
        takeProperty(m_c, getProperty(m_c, m_root, m_atoms.netActiveWindow, XCB_ATOM_WINDOW, 1));
    const auto values = cardinals(reply.get());
    if (values.isEmpty() || values.first() == XCB_NONE)
        return std::nullopt;
    return values.first();
}

std::optional<quint32> X11WindowInspector::currentDesktop() const
{
    auto reply = takeProperty(
        m_c, getProperty(m_c, m_root, m_atoms.netCurrentDesktop, XCB_ATOM_CARDINAL, 1));
    const auto values = cardinals(reply.get());
    return values.isEmpty() ? std::nullopt : std::optional(values.first());
}

std::optional<xcb_window_t> X11WindowInspector::windowManagerCheck() const
{
    // The check window must exist and point at itself, or the property is stale.
    auto rootCheck = takeProperty(
        m_c, getProperty(m_c, m_root, m_atoms.netSupportingWmCheck, XCB_ATOM_WINDOW, 1));
    const auto values = cardinals(rootCheck.get());
    if (values.isEmpty())
        return std::nullopt;
    auto selfCheck = takeProperty(
        m_c, getProperty(m_c, values.first(), m_atoms.netSupportingWmCheck, XCB_ATOM_WINDOW, 1));
    const auto self = cardinals(selfCheck.get());
    if (self.isEmpty() || self.first() != values.first())
        return std::nullopt;
    return values.first();
}

QList<xcb_window_t> X11WindowInspector::topLevels() const
{
    QList<xcb_window_t> windows;
    auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, xcb_query_tree(m_c, m_root));
    if (!tree)
        return windows;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i)
        windows << children[i];
    return windows;
}

} // namespace vistrel::x11
