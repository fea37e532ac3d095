// vistrel-testclient: an X client that the X11 tests (and the demo session)
// start as a separate process, so that discovery and capture see a real
// foreign application with its own pid and connection.
//
// Usage: vistrel-testclient [--class NAME]
// Reads one command per line on stdin and answers one line per command on
// stdout, naming the window and its X id. Windows have no background: every
// pixel they show is one this process painted (on Expose, and at once after
// a colour change or resize).
//
//   window NAME RRGGBB X Y W H [option...] [title=TEXT TO END OF LINE]
//       options: or (override-redirect)  now (paint before the first Expose)
//                class=WM_CLASS (empty: none)  type=normal|dialog|dock|utility|...
//                pid=N|none (_NET_WM_PID, default: own pid)  appid=ID
//                shape=ellipse (SHAPE bounding region)
//       -> "mapped NAME 0xID" once mapped (after the window manager framed it)
//   popup NAME RRGGBB X Y W H [now]   override-redirect menu at root X, Y
//       -> "mapped NAME 0xID"
//   color NAME RRGGBB | title NAME TEXT | move NAME X Y | resize NAME W H |
//   raise NAME | lower NAME | activate NAME | iconify NAME | close NAME |
//   name NAME TYPE HEXBYTES (WM_NAME alone, of type TYPE, e.g. COMPOUND_TEXT;
//                            TYPE net:STRING writes _NET_WM_NAME alone)
//       -> "ok NAME 0xID"
//   map NAME -> "mapped NAME 0xID"      unmap NAME -> "unmapped NAME 0xID"
// Errors answer "error TEXT". Starts by printing "ready PID".

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace {

struct Window {
    xcb_window_t id = 0;
    uint32_t colour = 0;
    int width = 0, height = 0;
    bool waitingForMap = false;
    bool waitingForUnmap = false;
};

class Client {
public:
    explicit Client(std::string wmClass) : m_class(std::move(wmClass)) {}
    ~Client()
    {
        if (m_c)
            xcb_disconnect(m_c);
    }

    bool connect()
    {
        m_c = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_c))
            return false;
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        // One for every window: they all have the root's depth.
        m_gc = xcb_generate_id(m_c);
        xcb_create_gc(m_c, m_gc, m_screen->root, 0, nullptr);
        return true;
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
        for (const char* property : {"_NET_WM_NAME", "WM_NAME"})
            setProperty(w, property, atom("UTF8_STRING"), 8, title.data(), uint32_t(title.size()));
    }
    void setShape(xcb_window_t w, int width, int height);
    void sendToRoot(xcb_window_t w, const std::string& type, std::vector<uint32_t> data);
    void paint(const Window& w)
    {
        xcb_change_gc(m_c, m_gc, XCB_GC_FOREGROUND, &w.colour);
        const xcb_rectangle_t all{0, 0, uint16_t(w.width), uint16_t(w.height)};
        xcb_poly_fill_rectangle(m_c, w.id, m_gc, 1, &all);
    }
    void sync() { free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr)); }
    bool isMapped(xcb_window_t w)
    {
        auto* a = xcb_get_window_attributes_reply(m_c, xcb_get_window_attributes(m_c, w), nullptr);
        const bool mapped = a && a->map_state != XCB_MAP_STATE_UNMAPPED;
        free(a);
        return mapped;
    }
    Window* find(const std::string& name);
    void reply(const std::string& text)
    {
        std::cout << text << std::endl; // flushed: the test reads line by line
    }
    static std::string answer(const char* verb, const std::string& name, xcb_window_t id)
    {
        char buf[32];
        std::snprintf(buf, sizeof buf, " 0x%x", id);
        return verb + (" " + name) + buf;
    }
    void createWindow(const std::string& verb, std::istringstream& in, const std::string& line);

    xcb_connection_t* m_c = nullptr;
    xcb_screen_t* m_screen = nullptr;
    xcb_gcontext_t m_gc = 0;
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

void Client::setShape(xcb_window_t w, int width, int height)
{
    // One rectangle per scanline of the ellipse filling the window.
    std::vector<xcb_rectangle_t> rows;
    const double a = width / 2.0, b = height / 2.0;
    for (int y = 0; y < height; ++y) {
        const double dy = (y + 0.5 - b) / b;
        const int half = int(a * std::sqrt(std::max(0.0, 1 - dy * dy)));
        if (half > 0)
            rows.push_back({int16_t(a - half), int16_t(y), uint16_t(2 * half), 1});
    }
    xcb_shape_rectangles(m_c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                         w, 0, 0, uint32_t(rows.size()), rows.data());
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

void Client::createWindow(const std::string& verb, std::istringstream& in, const std::string& line)
{
    std::string name, colour;
    int x = 0, y = 0, w = 0, h = 0;
    if (!(in >> name >> colour >> x >> y >> w >> h) || w <= 0 || h <= 0)
        return reply("error usage: " + verb + " NAME RRGGBB X Y W H [option...]");
    if (m_windows.count(name))
        return reply("error window exists " + name);
    const bool popup = verb == "popup";
    std::map<std::string, std::string> option{{"class", m_class},
                                              {"type", popup ? "popup_menu" : "normal"},
                                              {"pid", std::to_string(getpid())},
                                              {"title", name}};
    for (std::string token; in >> token;) {
        const auto eq = token.find('=');
        const std::string key = token.substr(0, eq);
        if (key == "title") { // the rest of the line, spaces included
            option[key] = line.substr(line.find("title=") + 6);
            break;
        }
        option[key] = eq == std::string::npos ? "" : token.substr(eq + 1);
    }
    const bool overrideRedirect = popup || option.count("or");

    Window window;
    window.id = xcb_generate_id(m_c);
    window.colour = uint32_t(std::stoul(colour, nullptr, 16));
    window.width = w;
    window.height = h;
    const uint32_t values[] = {uint32_t(overrideRedirect),
                               XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(m_c, XCB_COPY_FROM_PARENT, window.id, m_screen->root, int16_t(x), int16_t(y),
                      uint16_t(w), uint16_t(h), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      m_screen->root_visual, XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    setTitle(window.id, option["title"]);
    // "instance\0class\0"
    const std::string wmClass = option["class"] + '\0' + option["class"] + '\0';
    if (!option["class"].empty())
        setProperty(window.id, "WM_CLASS", XCB_ATOM_STRING, 8, wmClass.data(),
                    uint32_t(wmClass.size()));
    if (option["pid"] != "none") {
        const uint32_t p = uint32_t(std::stoul(option["pid"]));
        setProperty(window.id, "_NET_WM_PID", XCB_ATOM_CARDINAL, 32, &p, 1);
    }
    if (const std::string& appId = option["appid"]; !appId.empty())
        setProperty(window.id, "_GTK_APPLICATION_ID", atom("UTF8_STRING"), 8, appId.data(),
                    uint32_t(appId.size()));
    std::string typeName = "_NET_WM_WINDOW_TYPE_";
    for (char ch : option["type"])
        typeName += char(std::toupper(static_cast<unsigned char>(ch)));
    const xcb_atom_t typeAtom = atom(typeName);
    setProperty(window.id, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, 32, &typeAtom, 1);
    // User position and size, so that the window manager keeps them.
    const uint32_t hints[18] = {1 | 2, uint32_t(x), uint32_t(y), uint32_t(w), uint32_t(h)};
    setProperty(window.id, "WM_NORMAL_HINTS", atom("WM_SIZE_HINTS"), 32, hints, 18);
    if (option["shape"] == "ellipse")
        setShape(window.id, w, h);
    window.waitingForMap = true;
    xcb_map_window(m_c, window.id);
    // Like a menu that draws right away instead of waiting for its first Expose.
    if (option.count("now"))
        paint(window);
    m_windows[name] = window;
    xcb_flush(m_c);
}

void Client::command(const std::string& line)
{
    std::istringstream in(line);
    std::string verb;
    if (!(in >> verb))
        return;
    if (verb == "window" || verb == "popup")
        return createWindow(verb, in, line);
    std::string name;
    in >> name;
    Window* w = find(name);
    if (!w)
        return;
    const xcb_window_t id = w->id;
    if (verb == "color") {
        std::string colour;
        in >> colour;
        w->colour = uint32_t(std::stoul(colour, nullptr, 16));
        paint(*w);
    } else if (verb == "title") {
        std::string title;
        std::getline(in >> std::ws, title);
        setTitle(id, title);
    } else if (verb == "name") {
        std::string type, hex, bytes;
        in >> type >> hex;
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            bytes += char(std::stoul(hex.substr(i, 2), nullptr, 16));
        // "net:TYPE" writes _NET_WM_NAME alone instead.
        const bool net = type.rfind("net:", 0) == 0;
        xcb_delete_property(m_c, id, atom(net ? "WM_NAME" : "_NET_WM_NAME"));
        setProperty(id, net ? "_NET_WM_NAME" : "WM_NAME", atom(net ? type.substr(4) : type), 8,
                    bytes.data(), uint32_t(bytes.size()));
    } else if (verb == "move" || verb == "resize") {
        uint32_t a = 0, b = 0;
        in >> a >> b;
        const uint32_t values[] = {a, b};
        const bool move = verb == "move";
        xcb_configure_window(m_c, id,
                             move ? XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y
                                  : XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             values);
        if (!move) {
            w->width = int(a);
            w->height = int(b);
            paint(*w);
        }
    } else if (verb == "raise" || verb == "lower") {
        const uint32_t mode = verb == "raise" ? XCB_STACK_MODE_ABOVE : XCB_STACK_MODE_BELOW;
        xcb_configure_window(m_c, id, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    } else if (verb == "activate") {
        sendToRoot(id, "_NET_ACTIVE_WINDOW", {2, XCB_CURRENT_TIME, 0});
    } else if (verb == "iconify") {
        sendToRoot(id, "WM_CHANGE_STATE", {3 /* IconicState */});
    } else if (verb == "map" || verb == "unmap") {
        // Answered once the server (or the window manager) has done it;
        // at once when there is nothing to do.
        const bool map = verb == "map";
        if (isMapped(id) == map)
            return reply(answer(map ? "mapped" : "unmapped", name, id));
        if (map) {
            w->waitingForMap = true;
            xcb_map_window(m_c, id);
        } else {
            w->waitingForUnmap = true;
            xcb_unmap_window(m_c, id);
        }
        xcb_flush(m_c);
        return;
    } else if (verb == "close") {
        xcb_destroy_window(m_c, id);
        m_windows.erase(name);
    } else {
        return reply("error unknown command " + verb);
    }
    sync();
    reply(answer("ok", name, id));
}

void Client::drainEvents()
{
    // Also the events that a round trip moved into xcb's queue, where poll()
    // cannot see them: an Expose left there would never be answered.
    while (xcb_generic_event_t* ev = xcb_poll_for_event(m_c)) {
        const uint8_t type = ev->response_type & 0x7f;
        xcb_window_t window = 0;
        if (type == XCB_EXPOSE)
            window = reinterpret_cast<xcb_expose_event_t*>(ev)->window;
        else if (type == XCB_MAP_NOTIFY)
            window = reinterpret_cast<xcb_map_notify_event_t*>(ev)->window;
        else if (type == XCB_UNMAP_NOTIFY)
            window = reinterpret_cast<xcb_unmap_notify_event_t*>(ev)->window;
        free(ev);
        for (auto& [name, w] : m_windows) {
            if (w.id != window)
                continue;
            if (type == XCB_EXPOSE)
                paint(w);
            else if (type == XCB_MAP_NOTIFY && std::exchange(w.waitingForMap, false))
                reply(answer("mapped", name, window));
            else if (type == XCB_UNMAP_NOTIFY && std::exchange(w.waitingForUnmap, false))
                reply(answer("unmapped", name, window));
        }
    }
    xcb_flush(m_c);
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
