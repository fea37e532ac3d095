// What showing a frame would cost if it never left the X server: a frame
// the size of the screen, held in a pixmap as the compositor holds it, drawn
// into a window with Render's bilinear scaling, the way the output window
// and the preview would show it. Whole frames, and only the part two
// 600 x 400 windows changed. The X server's CPU per frame is what a
// server-side presentation would add in place of the read-back, the
// client's scaling and the backing store's put.
//
// Runs against an X server that is already up; prints Markdown table rows.
//
//   vistrel-bench-x11-present --display :57 [--server-pid PID] [--frames 300]

#include "bench_measure.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11RenderValues.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QList>
#include <QRect>
#include <cmath>
#include <cstdio>
#include <memory>
#include <xcb/render.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;
using namespace vistrel::bench;
using vistrel::x11::renderFixed;

namespace {

void sync(xcb_connection_t* c)
{
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

// The X server's CPU per frame drawing `frame` (scaled) into a window of
// `size`, clipped to `changed` (frame coordinates) unless it is empty.
double present(xcb_connection_t* c, const xcb_screen_t* screen,
               const vistrel::x11::X11RenderFormats& formats, xcb_render_picture_t frame,
               QSize frameSize, QSize size, const QList<QRect>& changed, int frames, qint64 xPid)
{
    const xcb_render_pictformat_t windowFormat = formats.forVisual(screen->root_visual);
    const xcb_window_t window = xcb_generate_id(c);
    const uint32_t values[] = {screen->black_pixel, 1};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, quint16(size.width()),
                      quint16(size.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(c, window);
    const xcb_render_picture_t target = xcb_generate_id(c);
    xcb_render_create_picture(c, target, window, windowFormat, 0, nullptr);

    const double sx = double(frameSize.width()) / size.width();
    const double sy = double(frameSize.height()) / size.height();
    const xcb_render_transform_t transform{renderFixed(sx), 0, 0, 0, renderFixed(sy), 0, 0, 0,
                                           renderFixed(1)};
    xcb_render_set_picture_transform(c, frame, transform);
    static const char bilinear[] = "bilinear";
    xcb_render_set_picture_filter(c, frame, sizeof(bilinear) - 1, bilinear, 0, nullptr);
    // A changed frame pixel reaches one view pixel further on each side.
    QList<xcb_rectangle_t> clip;
    for (const QRect& piece : changed) {
        const int left = int(std::floor(piece.left() / sx)) - 1;
        const int top = int(std::floor(piece.top() / sy)) - 1;
        const int right = int(std::ceil((piece.right() + 1) / sx)) + 1;
        const int bottom = int(std::ceil((piece.bottom() + 1) / sy)) + 1;
        clip.append({qint16(left), qint16(top), quint16(right - left), quint16(bottom - top)});
    }
    if (!clip.isEmpty())
        xcb_render_set_picture_clip_rectangles(c, target, 0, 0, quint32(clip.size()),
                                               clip.constData());
    sync(c);
    settle(200);

    const double before = processCpuMs(xPid);
    for (int i = 0; i < frames; ++i) {
        xcb_render_composite(c, XCB_RENDER_PICT_OP_SRC, frame, XCB_NONE, target, 0, 0, 0, 0, 0, 0,
                             quint16(size.width()), quint16(size.height()));
        sync(c);
    }
    const double perFrame = (processCpuMs(xPid) - before) / frames;
    xcb_render_free_picture(c, target);
    xcb_destroy_window(c, window);
    sync(c);
    return perFrame;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addOption({u"display"_s, u"X display"_s, u"name"_s});
    parser.addOption({u"server-pid"_s, u"X server pid"_s, u"pid"_s});
    parser.addOption({u"frames"_s, u"frames per case"_s, u"n"_s, u"300"_s});
    parser.process(application);
    const QString display = parser.value(u"display"_s);
    qint64 xPid = parser.value(u"server-pid"_s).toLongLong();
    if (!xPid)
        xPid = serverPid(display);
    const int frames = std::max(1, parser.value(u"frames"_s).toInt());

    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(display.toUtf8().constData(), nullptr), &xcb_disconnect);
    xcb_connection_t* c = connection.get();
    if (xcb_connection_has_error(c) || !xPid) {
        std::fprintf(stderr, "no X server at %s\n", qPrintable(display));
        return 1;
    }
    free(xcb_render_query_version_reply(c, xcb_render_query_version(c, 0, 11), nullptr));
    vistrel::x11::X11RenderFormats formats;
    if (!formats.load(c)) {
        std::fprintf(stderr, "the X server lacks Render's standard formats\n");
        return 1;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const QSize frameSize(screen->width_in_pixels, screen->height_in_pixels);

    // The frame as the compositor keeps it: ARGB, on the server.
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    xcb_create_pixmap(c, 32, pixmap, screen->root, quint16(frameSize.width()),
                      quint16(frameSize.height()));
    const xcb_render_picture_t frame = xcb_generate_id(c);
    xcb_render_create_picture(c, frame, pixmap, formats.argb32, 0, nullptr);
    const xcb_rectangle_t all{0, 0, quint16(frameSize.width()), quint16(frameSize.height())};
    xcb_render_fill_rectangles(c, XCB_RENDER_PICT_OP_SRC, frame, {0x8000, 0x4000, 0x2000, 0xffff},
                               1, &all);

    // The output window: the screen's aspect in a 4 % inset; the preview.
    const QSize output(int(frameSize.width() * 0.92), int(frameSize.height() * 0.92));
    const QSize preview(520, 293);
    const QList<QRect> twoWindows = {QRect(200, 150, 600, 400), QRect(900, 500, 600, 400)};
    std::printf("| Screen | view | drawn | X server ms/frame |\n|---|---|---|---|\n");
    for (const auto& [name, size] : {std::pair{"output window", output}, {"preview", preview}}) {
        for (const bool partial : {false, true}) {
            const double ms = present(c, screen, formats, frame, frameSize, size,
                                      partial ? twoWindows : QList<QRect>(), frames, xPid);
            std::printf("| %dx%d | %s %dx%d | %s | %.2f |\n", frameSize.width(), frameSize.height(),
                        name, size.width(), size.height(),
                        partial ? "two 600 x 400 windows' change" : "whole frame", ms);
        }
    }
    xcb_render_free_picture(c, frame);
    xcb_free_pixmap(c, pixmap);
    return 0;
}
