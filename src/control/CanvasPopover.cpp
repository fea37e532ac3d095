#include "control/CanvasPopover.h"

#include "control/CanvasOptions.h"
#include "control/DeckState.h"
#include "control/DeckText.h"
#include "control/ImageDropZone.h"
#include "control/OptionRow.h"
#include "control/SelectionCard.h"
#include "coordination/MainViewModel.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int textWidth = 340;

// "Images (*.png *.jpg …)" for every format this machine decodes.
QString imageNameFilter()
{
    QStringList patterns;
    for (const QByteArray& format : QImageReader::supportedImageFormats())
        patterns.append(u"*."_s + QString::fromLatin1(format));
    return deckTr("Images (%1)").arg(patterns.join(u' '));
}

} // namespace

CanvasPopover::CanvasPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent)
    : Popover(deckTr("Canvas"), hub, parent, Dismissal::staysOpenForDrops), m_model(model),
      m_backgroundNote(secondaryText(deckTr("The background shows behind Sanitized Windows only."),
                                     this, textWidth)),
      m_imageName(new QLabel(this)), m_chooseButton(new QPushButton(deckTr("Choose Image"), this)),
      m_dropZone(new ImageDropZone(this)), m_importMessage(new QLabel(this))
{
    setAcceptDrops(false);
    QVBoxLayout* content = contentLayout();
    content->addWidget(
        secondaryText(deckTr("Choose whether Vistrel Output shows the full desktop or "
                             "places isolated windows on a background canvas."),
                      this, textWidth));

    const CanvasOptions options =
        canvasOptions(model.outputContentMode(), model.canvasBackground());
    content->addWidget(addRows(deckTr("Output"), options.output, m_outputRows, [this](int i) {
        m_model.setOutputContentMode(allOutputContentModes.at(i));
    }));
    content->addWidget(
        addRows(deckTr("Background"), options.background, m_backgroundRows, [this](int i) {
            m_model.setCanvasBackgroundMode(allCanvasBackgroundModes.at(i));
        }));
    content->addWidget(m_backgroundNote);

    auto* imageRow = new QHBoxLayout;
    auto* imageText = new QVBoxLayout;
    imageText->setSpacing(0);
    imageText->addWidget(secondaryText(deckTr("Custom image"), this, textWidth));
    imageText->addWidget(m_imageName);
    m_imageName->setMaximumWidth(textWidth - 130);
    imageRow->addLayout(imageText, 1);
    imageRow->addWidget(m_chooseButton);
    content->addLayout(imageRow);
    content->addWidget(m_dropZone);
    m_importMessage->setWordWrap(true);
    m_importMessage->setMaximumWidth(textWidth);
    QPalette warning = m_importMessage->palette();
    warning.setColor(QPalette::WindowText, deckColor::red);
    m_importMessage->setPalette(warning);
    m_importMessage->hide();
    content->addWidget(m_importMessage);

    connect(m_chooseButton, &QPushButton::clicked, this, &CanvasPopover::chooseImage);
    connect(m_dropZone, &ImageDropZone::fileDropped, this, &CanvasPopover::importFile);
    connect(&model, &MainViewModel::outputContentModeChanged, this, &CanvasPopover::sync);
    connect(&model, &MainViewModel::canvasBackgroundChanged, this, &CanvasPopover::sync);
    sync();
}

SelectionCard* CanvasPopover::addRows(const QString& title, const QList<CanvasOption>& options,
                                      QList<OptionRow*>& rows,
                                      const std::function<void(int index)>& choose)
{
    auto* card = new SelectionCard(title, this);
    for (int i = 0; i < options.size(); ++i) {
        const CanvasOption& option = options.at(i);
        auto* row = new OptionRow(option.title, option.subtitle, option.isSelected, card);
        connect(row, &OptionRow::clicked, this, [choose, i] { choose(i); });
        card->contentLayout()->addWidget(row);
        rows.append(row);
    }
    return card;
}

QString CanvasPopover::importMessage() const
{
    return m_importMessage->isHidden() ? QString() : m_importMessage->text();
}

void CanvasPopover::importFile(const QUrl& file)
{
    if (const std::optional<QString> failure = m_model.importCanvasBackground(file)) {
        m_importMessage->setText(deckTr("“%1” was not used: %2")
                                     .arg(QFileInfo(file.toLocalFile()).fileName(), *failure));
        m_importMessage->show();
    } else {
        m_importMessage->hide();
    }
    adjustSize();
}

void CanvasPopover::chooseImage()
{
    auto* dialog = new QFileDialog(this, deckTr("Choose Image"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::ApplicationModal);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    // Read-only: no new folders from here.
    dialog->setOption(QFileDialog::ReadOnly);
    dialog->setNameFilter(imageNameFilter());
    dialog->setLabelText(QFileDialog::Accept, deckTr("Choose Image"));
    dialog->setDirectory(QStandardPaths::writableLocation(QStandardPaths::PicturesLocation));
    // fileSelected comes from the built-in dialog and the desktop's alike.
    connect(dialog, &QFileDialog::fileSelected, this,
            [this](const QString& file) { importFile(QUrl::fromLocalFile(file)); });
    dialog->open();
}

void CanvasPopover::sync()
{
    const CanvasOptions options =
        canvasOptions(m_model.outputContentMode(), m_model.canvasBackground());
    for (int i = 0; i < m_outputRows.size(); ++i)
        m_outputRows.at(i)->setSelected(options.output.at(i).isSelected);
    for (int i = 0; i < m_backgroundRows.size(); ++i)
        m_backgroundRows.at(i)->setSelected(options.background.at(i).isSelected);
    m_backgroundNote->setVisible(!options.backgroundApplies);
    m_imageName->setText(options.imageName);
    adjustSize();
}

} // namespace vistrel
