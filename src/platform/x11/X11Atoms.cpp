#include "platform/x11/X11Atoms.h"

#include "platform/x11/XcbPtr.h"

#include <array>
#include <cstring>
#include <utility>

namespace vistrel::x11 {

X11Atoms X11Atoms::intern(xcb_connection_t* c)
{
    X11Atoms atoms;
    const std::array<std::pair<const char*, xcb_atom_t*>, 31> table{{
        {"WM_STATE", &atoms.wmState},
        {"WM_CHANGE_STATE", &atoms.wmChangeState},
        {"UTF8_STRING", &atoms.utf8String},
        {"COMPOUND_TEXT", &atoms.compoundText},
        {"_NET_WM_NAME", &atoms.netWmName},
        {"_NET_WM_PID", &atoms.netWmPid},
        {"_NET_CLIENT_LIST", &atoms.netClientList},
        {"_NET_CLIENT_LIST_STACKING", &atoms.netClientListStacking},
        {"_NET_ACTIVE_WINDOW", &atoms.netActiveWindow},
        {"_NET_SUPPORTING_WM_CHECK", &atoms.netSupportingWmCheck},
        {"_NET_WM_STATE", &atoms.netWmState},
        {"_NET_WM_STATE_HIDDEN", &atoms.netWmStateHidden},
        {"_NET_WM_DESKTOP", &atoms.netWmDesktop},
        {"_NET_CURRENT_DESKTOP", &atoms.netCurrentDesktop},
        {"_NET_WM_WINDOW_TYPE", &atoms.netWmWindowType},
        {"_NET_WM_WINDOW_TYPE_DESKTOP", &atoms.typeDesktop},
        {"_NET_WM_WINDOW_TYPE_DOCK", &atoms.typeDock},
        {"_NET_WM_WINDOW_TYPE_TOOLBAR", &atoms.typeToolbar},
        {"_NET_WM_WINDOW_TYPE_MENU", &atoms.typeMenu},
        {"_NET_WM_WINDOW_TYPE_UTILITY", &atoms.typeUtility},
        {"_NET_WM_WINDOW_TYPE_SPLASH", &atoms.typeSplash},
        {"_NET_WM_WINDOW_TYPE_DIALOG", &atoms.typeDialog},
        {"_NET_WM_WINDOW_TYPE_DROPDOWN_MENU", &atoms.typeDropdownMenu},
        {"_NET_WM_WINDOW_TYPE_POPUP_MENU", &atoms.typePopupMenu},
        {"_NET_WM_WINDOW_TYPE_TOOLTIP", &atoms.typeTooltip},
        {"_NET_WM_WINDOW_TYPE_NOTIFICATION", &atoms.typeNotification},
        {"_NET_WM_WINDOW_TYPE_COMBO", &atoms.typeCombo},
        {"_NET_WM_WINDOW_TYPE_DND", &atoms.typeDnd},
        {"_NET_WM_WINDOW_TYPE_NORMAL", &atoms.typeNormal},
        {"_GTK_APPLICATION_ID", &atoms.gtkApplicationId},
        {"_KDE_NET_WM_DESKTOP_FILE", &atoms.kdeNetWmDesktopFile},
    }};
    std::array<xcb_intern_atom_cookie_t, table.size()> cookies;
    for (size_t i = 0; i < table.size(); ++i)
        cookies[i] = xcb_intern_atom(c, 0, uint16_t(std::strlen(table[i].first)), table[i].first);
    for (size_t i = 0; i < table.size(); ++i) {
        auto [reply, error] = xcbReply(xcb_intern_atom_reply, c, cookies[i]);
        if (reply)
            *table[i].second = reply->atom;
    }
    return atoms;
}

} // namespace vistrel::x11
