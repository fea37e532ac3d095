#pragma once

// "Canvas": what the output shows (sanitized windows or the full desktop)
// and the background behind isolated windows, with a custom image chosen in
// a file dialog or dropped on the zone. It stays open while other
// applications are used, so that a file manager can drag an image onto it.
// A failed import changes nothing and says why here.

#include "control/Popover.h"

#include <QList>
#include <QUrl>
#include <functional>

class QLabel;
class QPushButton;

namespace vistrel {

struct CanvasOption;
class ImageDropZone;
class MainViewModel;
class OptionRow;
class SelectionCard;

class CanvasPopover : public Popover {
    Q_OBJECT

public:
    CanvasPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);

    ImageDropZone* dropZone() const { return m_dropZone; }
    QPushButton* chooseButton() const { return m_chooseButton; }
    // The last import's failure; empty after a success.
    QString importMessage() const;

    // Imports the file as the canvas image.
    void importFile(const QUrl& file);

private:
    // A group of option rows; `choose` gets the index of the row clicked.
    SelectionCard* addRows(const QString& title, const QList<CanvasOption>& options,
                           QList<OptionRow*>& rows, const std::function<void(int index)>& choose);
    void chooseImage();
    void sync();

    MainViewModel& m_model;
    QList<OptionRow*> m_outputRows;
    QList<OptionRow*> m_backgroundRows;
    QLabel* m_backgroundNote;
    QLabel* m_imageName;
    QPushButton* m_chooseButton;
    ImageDropZone* m_dropZone;
    QLabel* m_importMessage;
};

} // namespace vistrel
