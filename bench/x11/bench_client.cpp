// A bare XCB client for the X11 benchmarks: one solid-colour window,
// optionally repainted with a new colour every frame, and colour changes on
// stdin ("color RRGGBB"), so that the benchmark can time change-to-frame.
// With --windows N it opens N such windows side by side (the first one is
// the one painted and reported), so that discovery has a crowded desktop.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <xcb/xcb.h>

namespace {

struct Options {
    unsigned colour = 0x3366cc;
    int x = 100, y = 100, width = 400, height = 300;
    int animateFps = 0;
    bool overrideRedirect = false;
    std::string className = "BenchClient";
    int windows = 1;
};

Options parse(int argc, char** argv)
{
    Options o;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        const char* value = argv[i + 1];
        if (key == "--color")
            o.colour = unsigned(std::strtoul(value, nullptr, 16));
        else if (key == "--geometry")
            std::sscanf(value, "%dx%d+%d+%d", &o.width, &o.height, &o.x, &o.y);
        else if (key == "--animate")
            o.animateFps = std::atoi(value);
        else if (key == "--class")
            o.className = value;
        else if (key == "--override-redirect")
            o.overrideRedirect = std::atoi(value) != 0;
        else if (key == "--windows")
            o.windows = std::max(1, std::atoi(value));
    }
    return o;
}

} // namespace

int main(int argc, char** argv)
{
    const Options o = parse(argc, argv);
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "bench client: no X display\n");
        return 1;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_intern_atom_reply_t* atom =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, 11, "_NET_WM_PID"), nullptr);
    const xcb_atom_t pidAtom = atom ? atom->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(atom);
    const pid_t pid = getpid();
    // The extra windows step right and down from the first one, wrapping
    // every 20, so that each keeps a place of its own.
    const auto open = [&](int index) {
        const int x = o.x + (index % 20) * 24;
        const int y = o.y + (index / 20 % 20) * 24;
        const xcb_window_t w = xcb_generate_id(c);
        const uint32_t values[] = {o.colour, uint32_t(o.overrideRedirect),
                                   XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, int16_t(x), int16_t(y),
                          uint16_t(o.width), uint16_t(o.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        if (pidAtom != XCB_ATOM_NONE)
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, pidAtom, XCB_ATOM_CARDINAL, 32, 1,
                                &pid);
        const std::string title = "bench client " + std::to_string(index);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            uint32_t(title.size()), title.data());
        const std::string wmClass = std::string("bench", 6) + o.className + '\0';
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            uint32_t(wmClass.size()), wmClass.data());
        // Position given by the user: the window manager keeps the window
        // where the benchmark asked, instead of placing it itself.
        uint32_t sizeHints[18] = {};
        sizeHints[0] = 1 | 2; // USPosition | USSize
        sizeHints[1] = uint32_t(x);
        sizeHints[2] = uint32_t(y);
        sizeHints[3] = uint32_t(o.width);
        sizeHints[4] = uint32_t(o.height);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, sizeHints);
        xcb_map_window(c, w);
        return w;
    };
    const xcb_window_t window = open(0);
    for (int i = 1; i < o.windows; ++i)
        open(i);
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, window, XCB_GC_FOREGROUND, &o.colour);
    xcb_flush(c);

    unsigned colour = o.colour;
    auto paint = [&](unsigned rgb) {
        colour = rgb;
        xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t all{0, 0, uint16_t(o.width), uint16_t(o.height)};
        xcb_poly_fill_rectangle(c, window, gc, 1, &all);
        xcb_flush(c);
    };

    std::printf("ready %u\n", window);
    std::fflush(stdout);
    using Clock = std::chrono::steady_clock;
    auto next = Clock::now();
    bool animate = o.animateFps > 0;
    std::string line;
    for (;;) {
        int timeout = -1;
        if (animate) {
            const auto wait =
                std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
            timeout = int(std::max<long>(0, long(wait.count())));
        }
        pollfd fds[2] = {{0, POLLIN, 0}, {xcb_get_file_descriptor(c), POLLIN, 0}};
        poll(fds, 2, timeout);
        if (fds[0].revents & (POLLIN | POLLHUP)) {
            char buffer[256];
            const ssize_t n = read(0, buffer, sizeof buffer);
            if (n <= 0)
                break;
            line.append(buffer, size_t(n));
            size_t end;
            while ((end = line.find('\n')) != std::string::npos) {
                const std::string command = line.substr(0, end);
                line.erase(0, end + 1);
                if (command.rfind("color ", 0) == 0)
                    paint(unsigned(std::strtoul(command.c_str() + 6, nullptr, 16)));
                else if (command == "still")
                    animate = false;
                else if (command == "animate")
                    animate = o.animateFps > 0;
                else if (command == "quit")
                    return 0;
            }
        }
        while (xcb_generic_event_t* e = xcb_poll_for_event(c)) {
            if ((e->response_type & 0x7f) == XCB_EXPOSE)
                paint(colour);
            std::free(e);
        }
        if (xcb_connection_has_error(c))
            return 1;
        if (animate && Clock::now() >= next) {
            // Alternate between two shades of the base colour.
            paint(colour == o.colour ? (o.colour ^ 0x000001) : o.colour);
            next += std::chrono::microseconds(1'000'000 / o.animateFps);
        }
    }
    return 0;
}
