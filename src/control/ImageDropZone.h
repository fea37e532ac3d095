#pragma once

// The Canvas popover's drop target: a dashed zone that highlights while a
// file is dragged over it and hands the dropped file on. Whether the file is
// an image is for the importer to say.

#include <QFrame>
#include <QUrl>
#include <optional>

class QMimeData;

namespace vistrel {

class ImageDropZone : public QFrame {
    Q_OBJECT
    Q_PROPERTY(bool isDropTargeted READ isDropTargeted NOTIFY isDropTargetedChanged)

public:
    explicit ImageDropZone(QWidget* parent);

    bool isDropTargeted() const { return m_isDropTargeted; }

    // The first local file a drag carries; none for text, remote URLs or
    // nothing.
    static std::optional<QUrl> droppedFile(const QMimeData& data);

Q_SIGNALS:
    void isDropTargetedChanged(bool isDropTargeted);
    void fileDropped(const QUrl& file);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void setDropTargeted(bool targeted);

    bool m_isDropTargeted = false;
};

} // namespace vistrel
