// vistrel-dragsource: a window that drags a file away as a file manager
// does, so that the X11 tests can drop a real file on Vistrel through the
// window system's drag and drop.
//
// Usage: vistrel-dragsource FILE
// Shows a 200 x 120 window titled "Drag source"; a press in it starts a
// drag of FILE's URL (copy). Prints "ready" once shown, "dragging" when a
// drag starts and "dropped" or "refused" when it ends.

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QTimer>
#include <QUrl>
#include <QWidget>
#include <cstdio>

namespace {

class DragSource : public QWidget {
public:
    explicit DragSource(QString file) : m_file(std::move(file))
    {
        setWindowTitle(QStringLiteral("Drag source"));
        resize(200, 120);
        setAutoFillBackground(true);
        setPalette(QPalette(QColor(0x80, 0x80, 0x20)));
    }

protected:
    void mousePressEvent(QMouseEvent*) override
    {
        auto* drag = new QDrag(this);
        auto* payload = new QMimeData;
        payload->setUrls({QUrl::fromLocalFile(m_file)});
        drag->setMimeData(payload);
        std::printf("dragging\n");
        std::fflush(stdout);
        const Qt::DropAction action = drag->exec(Qt::CopyAction);
        std::printf("%s\n", action == Qt::CopyAction ? "dropped" : "refused");
        std::fflush(stdout);
    }

private:
    QString m_file;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: vistrel-dragsource FILE\n");
        return 2;
    }
    DragSource source(QString::fromLocal8Bit(argv[1]));
    source.show();
    QTimer::singleShot(300, [] {
        std::printf("ready\n");
        std::fflush(stdout);
    });
    return app.exec();
}
