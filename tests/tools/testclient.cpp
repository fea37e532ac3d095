// vistrel-testclient: an X client that the X11 tests start as a separate
// process, so that discovery and capture see a real foreign application.
//
// Usage: vistrel-testclient [--class NAME]
// Reads one command per line on stdin and answers one line per command on
// stdout. Windows are named by the test; every answer carries the X id.
//
//   window NAME RRGGBB X Y W H [key=value...] [title=TEXT TO END OF LINE]
//       keys: class=WM_CLASS  type=normal|dialog|dock|desktop|utility|splash
//             pid=N|none (_NET_WM_PID, default: own pid)  appid=ID
//             shape=ellipse|eyes (SHAPE bounding region)
//       -> "mapped NAME 0xID" once the window is mapped (after the window
//          manager has framed it)
//   popup NAME PARENT RRGGBB DX DY W H   override-redirect menu at the
//       parent's top-left + (DX, DY) -> "mapped NAME 0xID"
//   color NAME RRGGBB | title NAME TEXT | move NAME X Y | resize NAME W H |
//   raise NAME | activate NAME | close NAME           -> "ok NAME 0xID"
//   map NAME -> "mapped NAME 0xID"      unmap NAME -> "unmapped NAME 0xID"
//   iconify NAME (asks the window manager to minimise) -> "ok NAME 0xID"
//   sync -> "ok"      quit -> exits
// Errors answer "error TEXT". Starts by printing "ready PID".

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace {

struct Window {
    xcb_window_t id = 0;
    bool waitingForMap = false;
    bool waitingForUnmap = false;
};

class Client {
public:
    explicit Client(std::string wmClass) : m_class(std::move(wmClass)) {}

    bool connect()
    {
        m_c = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_c))
            return false;
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        return true;
    }
    ~Client()
    {
        if (m_c)
            xcb_disconnect(m_c);
    }
    int fd() const { return xcb_get_file_descriptor(m_c); }
    bool broken() const { return xcb_connection_has_error(m_c) != 0; }

    void command(const std::string& line);
    void drainEvents();

private:
    xcb_atom_t atom(const std::string& name);
    void setProperty(xcb_window_t w, const std::string& prop, xcb_atom_t type, int format,
                     const void* data, uint32_t length)
    {
        xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, w, atom(prop), type, uint8_t(format),
                            length, data);
    }
    void setTitle(xcb_window_t w, const std::string& title)
    {
        setProperty(w, "_NET_WM_NAME", atom("UTF8_STRING"), 8, title.data(),
                    uint32_t(title.size()));
        setProperty(w, "WM_NAME", XCB_ATOM_STRING, 8, title.data(), uint32_t(title.size()));
    }
    void setShape(xcb_window_t w, const std::string& kind, int width, int height);
    void sendToRoot(xcb_window_t w, const std::string& type, std::vector<uint32_t> data);
    void sync() { free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr)); }
    Window* find(const std::string& name);
    void reply(const std::string& text)
    {
        std::cout << text << std::endl; // flushed: the test reads line by line
    }
    static std::string hex(xcb_window_t id)
    {
        char buf[16];
        std::snprintf(buf, sizeof buf, "0x%x", id);
        return buf;
    }
    void createWindow(std::istringstream& in, const std::string& rest);
    void createPopup(std::istringstream& in);

    xcb_connection_t* m_c = nullptr;
    xcb_screen_t* m_screen = nullptr;
    std::string m_class;
    std::map<std::string, xcb_atom_t> m_atoms;
    std::map<std::string, Window> m_windows;
};

xcb_atom_t Client::atom(const std::string& name)
{
    if (auto it = m_atoms.find(name); it != m_atoms.end())
        return it->second;
    auto* r = xcb_intern_atom_reply(
        m_c, xcb_intern_atom(m_c, 0, uint16_t(name.size()), name.c_str()), nullptr);
    const xcb_atom_t a = r ? r->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(r);
    m_atoms[name] = a;
    return a;
}

Window* Client::find(const std::string& name)
{
    auto it = m_windows.find(name);
    if (it == m_windows.end()) {
        reply("error no window " + name);
        return nullptr;
    }
    return &it->second;
}

void Client::setShape(xcb_window_t w, const std::string& kind, int width, int height)
{
    // One rectangle per scanline of each ellipse; "eyes" is two ellipses side by side.
    std::vector<xcb_rectangle_t> rects;
    const int count = kind == "eyes" ? 2 : 1;
    const double rx = width / (2.0 * count), ry = height / 2.0;
    for (int e = 0; e < count; ++e) {
        const double cx = rx * (2 * e + 1);
        for (int y = 0; y < height; ++y) {
            const double dy = (y + 0.5 - ry) / ry;
            if (std::abs(dy) >= 1)
                continue;
            const double half = rx * std::sqrt(1 - dy * dy);
            const int x0 = int(std::lround(cx - half)), x1 = int(std::lround(cx + half));
            if (x1 > x0)
                rects.push_back({int16_t(x0), int16_t(y), uint16_t(x1 - x0), 1});
        }
    }
    xcb_shape_rectangles(m_c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                         w, 0, 0, uint32_t(rects.size()), rects.data());
}

void Client::sendToRoot(xcb_window_t w, const std::string& type, std::vector<uint32_t> data)
{
    xcb_client_message_event_t ev{};
    ev.response_type = XCB_CLIENT_MESSAGE;
    ev.format = 32;
    ev.window = w;
    ev.type = atom(type);
    for (size_t i = 0; i < data.size() && i < 5; ++i)
        ev.data.data32[i] = data[i];
    xcb_send_event(m_c, 0, m_screen->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&ev));
}

void Client::createWindow(std::istringstream& in, const std::string& line)
{
    std::string name, colour;
    int x = 0, y = 0, w = 0, h = 0;
    if (!(in >> name >> colour >> x >> y >> w >> h) || w <= 0 || h <= 0) {
        reply("error usage: window NAME RRGGBB X Y W H [key=value...]");
        return;
    }
    if (m_windows.count(name)) {
        reply("error window exists " + name);
        return;
    }
    std::string wmClass = m_class, type = "normal", pid = std::to_string(getpid()), appId, shape,
                title = name;
    std::string token;
    while (in >> token) {
        const auto eq = token.find('=');
        const std::string key = token.substr(0, eq),
                          value = eq == std::string::npos ? "" : token.substr(eq + 1);
        if (key == "title") { // the rest of the line, spaces included
            const auto at = line.find("title=");
            title = line.substr(at + 6);
            break;
        }
        if (key == "class")
            wmClass = value;
        else if (key == "type")
            type = value;
        else if (key == "pid")
            pid = value;
        else if (key == "appid")
            appId = value;
        else if (key == "shape")
            shape = value;
    }

    const xcb_window_t id = xcb_generate_id(m_c);
    const uint32_t values[] = {uint32_t(std::stoul(colour, nullptr, 16)),
                               XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(m_c, XCB_COPY_FROM_PARENT, id, m_screen->root, int16_t(x), int16_t(y),
                      uint16_t(w), uint16_t(h), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      m_screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    setTitle(id, title);
    std::string lower = wmClass;
    for (auto& ch : lower)
        ch = char(std::tolower(static_cast<unsigned char>(ch)));
    const std::string classValue = lower + '\0' + wmClass + '\0';
    setProperty(id, "WM_CLASS", XCB_ATOM_STRING, 8, classValue.data(), uint32_t(classValue.size()));
    if (pid != "none") {
        const uint32_t p = uint32_t(std::stoul(pid));
        setProperty(id, "_NET_WM_PID", XCB_ATOM_CARDINAL, 32, &p, 1);
    }
    if (!appId.empty())
        setProperty(id, "_GTK_APPLICATION_ID", atom("UTF8_STRING"), 8, appId.data(),
                    uint32_t(appId.size()));
    std::string typeName = "_NET_WM_WINDOW_TYPE_";
    for (char ch : type)
        typeName += char(std::toupper(static_cast<unsigned char>(ch)));
    const xcb_atom_t typeAtom = atom(typeName);
    setProperty(id, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, 32, &typeAtom, 1);
    // WM_NORMAL_HINTS with user position and size, so the window manager keeps them.
    uint32_t hints[18] = {};
    hints[0] = 1 | 2; // USPosition | USSize
    hints[1] = uint32_t(x);
    hints[2] = uint32_t(y);
    hints[3] = uint32_t(w);
    hints[4] = uint32_t(h);
    setProperty(id, "WM_NORMAL_HINTS", atom("WM_SIZE_HINTS"), 32, hints, 18);
    if (!shape.empty())
        setShape(id, shape, w, h);
    m_windows[name] = Window{id, true, false};
    xcb_map_window(m_c, id);
    xcb_flush(m_c);
}

void Client::createPopup(std::istringstream& in)
{
    std::string name, parentName, colour;
    int dx = 0, dy = 0, w = 0, h = 0;
    if (!(in >> name >> parentName >> colour >> dx >> dy >> w >> h) || w <= 0 || h <= 0) {
        reply("error usage: popup NAME PARENT RRGGBB DX DY W H");
        return;
    }
    Window* parent = find(parentName);
    if (!parent)
        return;
    auto* t = xcb_translate_coordinates_reply(
        m_c, xcb_translate_coordinates(m_c, parent->id, m_screen->root, 0, 0), nullptr);
    const int px = t ? t->dst_x : 0, py = t ? t->dst_y : 0;
    free(t);
    const xcb_window_t id = xcb_generate_id(m_c);
    const uint32_t values[] = {uint32_t(std::stoul(colour, nullptr, 16)), 1,
                               XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(m_c, XCB_COPY_FROM_PARENT, id, m_screen->root, int16_t(px + dx),
                      int16_t(py + dy), uint16_t(w), uint16_t(h), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      m_screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    const uint32_t pid = uint32_t(getpid());
    setProperty(id, "_NET_WM_PID", XCB_ATOM_CARDINAL, 32, &pid, 1);
    const xcb_atom_t typeAtom = atom("_NET_WM_WINDOW_TYPE_POPUP_MENU");
    setProperty(id, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, 32, &typeAtom, 1);
    setProperty(id, "WM_TRANSIENT_FOR", XCB_ATOM_WINDOW, 32, &parent->id, 1);
    m_windows[name] = Window{id, true, false};
    xcb_map_window(m_c, id);
    xcb_flush(m_c);
}

void Client::command(const std::string& line)
{
    std::istringstream in(line);
    std::string verb;
    if (!(in >> verb))
        return;
    if (verb == "window")
        return createWindow(in, line);
    if (verb == "popup")
        return createPopup(in);
    if (verb == "sync") {
        sync();
        return reply("ok");
    }
    if (verb == "quit")
        std::exit(0);

    std::string name;
    in >> name;
    Window* w = find(name);
    if (!w)
        return;
    const xcb_window_t id = w->id;
    if (verb == "color") {
        std::string colour;
        in >> colour;
        const uint32_t pixel = uint32_t(std::stoul(colour, nullptr, 16));
        xcb_change_window_attributes(m_c, id, XCB_CW_BACK_PIXEL, &pixel);
        xcb_clear_area(m_c, 0, id, 0, 0, 0, 0);
    } else if (verb == "title") {
        std::string title;
        std::getline(in >> std::ws, title);
        setTitle(id, title);
    } else if (verb == "move" || verb == "resize") {
        uint32_t a = 0, b = 0;
        in >> a >> b;
        const uint32_t values[] = {a, b};
        xcb_configure_window(m_c, id,
                             verb == "move" ? XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y
                                            : XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             values);
    } else if (verb == "raise") {
        const uint32_t mode = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(m_c, id, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    } else if (verb == "activate") {
        sendToRoot(id, "_NET_ACTIVE_WINDOW", {2, XCB_CURRENT_TIME, 0});
    } else if (verb == "iconify") {
        sendToRoot(id, "WM_CHANGE_STATE", {3 /* IconicState */});
    } else if (verb == "map") {
        w->waitingForMap = true;
        xcb_map_window(m_c, id);
        xcb_flush(m_c);
        return;
    } else if (verb == "unmap") {
        w->waitingForUnmap = true;
        xcb_unmap_window(m_c, id);
        xcb_flush(m_c);
        return;
    } else if (verb == "close") {
        xcb_destroy_window(m_c, id);
        m_windows.erase(name);
    } else {
        return reply("error unknown command " + verb);
    }
    sync();
    reply("ok " + name + " " + hex(id));
}

void Client::drainEvents()
{
    while (xcb_generic_event_t* ev = xcb_poll_for_event(m_c)) {
        const uint8_t type = ev->response_type & 0x7f;
        xcb_window_t window = 0;
        bool mapped = false;
        if (type == XCB_MAP_NOTIFY) {
            window = reinterpret_cast<xcb_map_notify_event_t*>(ev)->window;
            mapped = true;
        } else if (type == XCB_UNMAP_NOTIFY) {
            window = reinterpret_cast<xcb_unmap_notify_event_t*>(ev)->window;
        }
        free(ev);
        if (!window)
            continue;
        for (auto& [name, w] : m_windows) {
            if (w.id != window)
                continue;
            if (mapped && w.waitingForMap) {
                w.waitingForMap = false;
                reply("mapped " + name + " " + hex(window));
            } else if (!mapped && w.waitingForUnmap) {
                w.waitingForUnmap = false;
                reply("unmapped " + name + " " + hex(window));
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::string wmClass = "VistrelTestClient";
    for (int i = 1; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], "--class") == 0)
            wmClass = argv[++i];
    Client client(wmClass);
    if (!client.connect()) {
        std::cerr << "vistrel-testclient: cannot connect to the X display" << std::endl;
        return 2;
    }
    std::cout << "ready " << getpid() << std::endl;

    std::string pending;
    pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {client.fd(), POLLIN, 0}};
    for (;;) {
        client.drainEvents();
        if (client.broken())
            return 3;
        if (poll(fds, 2, -1) < 0)
            continue;
        if (fds[0].revents & (POLLIN | POLLHUP)) {
            char buf[4096];
            const ssize_t n = read(STDIN_FILENO, buf, sizeof buf);
            if (n <= 0)
                return 0; // the test went away
            pending.append(buf, size_t(n));
            size_t nl;
            while ((nl = pending.find('\n')) != std::string::npos) {
                const std::string line = pending.substr(0, nl);
                pending.erase(0, nl + 1);
                try {
                    client.command(line);
                } catch (const std::exception&) {
                    std::cout << "error bad number in: " << line << std::endl;
                }
                client.drainEvents();
            }
        }
    }
}
